// Where a command's output goes, and bytes on their way there.
//
// "-" is standard output. An existing path that is no regular file (a FIFO, a terminal,
// /dev/null, /dev/stdout) is opened and written as a stream, as the shell's > would write it.
// Any other path is a file written whole or not at all: a new file beside it, renamed over it
// once complete (the fs layer's whole-file writer), which a signal stops cleanly.
#pragma once

#include <string>

#include "Cli.h"
#include "foundation/fs/FileSys.h"

namespace fatool {

enum class OutputKind { StandardOutput, Stream, File };

OutputKind outputKind(const std::string& path);

// Writes what `produce` hands over to the output at `path`. False when the producer failed
// (its own reason), or the writing did: the reason is then in `log` (standard output's
// failures are left to run(), which reports them).
bool writeOutput(Context& ctx, const std::string& path, const FileSys::Producer& produce,
                 _ovLogger& log);

// Hands the bytes of the regular file at `path` to `emit`, a large block at a time; false
// when it cannot be read (the reason in `why`), when emit fails, or when a signal asks the
// program to stop (errno EINTR, `why` empty).
bool emitFileBytes(const std::string& path, const FileSys::Emit& emit, std::string& why);

}  // namespace fatool
