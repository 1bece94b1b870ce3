// The strings read from a Windows shortcut (.lnk) file.
#pragma once

#include "foundation/base/Api.h"

#include "foundation/text/XString.h"

struct FA_API _ovShortcutInfo {
    XString name;
    XString relativePath;
    XString workingDir;
    XString commandLineArguments;
    XString iconLocation;
};
