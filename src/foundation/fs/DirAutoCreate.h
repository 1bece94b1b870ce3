// Creates missing directories.
#pragma once

#include "foundation/base/LogBase.h"
#include "foundation/text/StringBuffer.h"

class DirAutoCreate {
public:
    // The directory, with any missing parents, exists afterwards.
    static bool ensureDirUtf8(const char* dir, LogBase& log);
    // The directories leading to the file exist afterwards; scratch is working space.
    static bool ensureFileUtf8(const char* file, StringBuffer& scratch, LogBase& log);
};
