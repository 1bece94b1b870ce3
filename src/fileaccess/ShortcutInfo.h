// The strings read from a Windows shortcut (.lnk) file.
#pragma once

#include "foundation/text/XString.h"

struct _ovShortcutInfo {
    XString name;
    XString relativePath;
    XString workingDir;
    XString commandLineArguments;
    XString iconLocation;
};
