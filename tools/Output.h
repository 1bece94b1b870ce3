// Bytes on their way into a command's output file.
#pragma once

#include <string>

#include "foundation/fs/FileSys.h"

namespace fatool {

// Hands the bytes of the regular file at `path` to `emit`, a large block at a time; false
// when it cannot be read (the reason in `why`), when emit fails, or when a signal asks the
// program to stop (errno EINTR, `why` empty).
bool emitFileBytes(const std::string& path, const FileSys::Emit& emit, std::string& why);

}  // namespace fatool
