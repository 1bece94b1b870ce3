/// @file
/// The strings read from a Windows shortcut (.lnk) file.
#pragma once

#include "foundation/base/Api.h"

#include "foundation/text/XString.h"

/// The five optional strings of a Windows shortcut (.lnk) file, as
/// `ClsFileAccess::readShortcut` fills them. A field is set only when the file carries that
/// string, decoded from UTF-16LE (an unpaired surrogate becomes U+FFFD), or from this
/// platform's ANSI code page (Windows-1252) in a file not flagged as Unicode; the other
/// fields keep what the caller put in them. A plain value with no lock of its own.
struct FA_API _ovShortcutInfo {
    /// The shortcut's name (description) string.
    XString name;
    /// The path of the shortcut's target relative to the shortcut file.
    XString relativePath;
    /// The working directory in which the target is started.
    XString workingDir;
    /// The command-line arguments given to the target.
    XString commandLineArguments;
    /// Where the shortcut's icon is found (the path of the file that holds it).
    XString iconLocation;
};
