// Careful replacement of a file's content, shared by whole-file writes, copies and moves
// (internal to the file-system layer).
//
// The new content goes to a new file beside the old one, which is flushed and renamed over
// the old one only once it is whole, so that a failure at any step leaves the old file as it
// was and no scratch file behind. An existing file is first opened for writing, so that the
// replacement fails exactly where such an open would, and the new file takes over its owner,
// group, extended attributes (POSIX ACLs among them on Linux) and permission bits. Where the
// owner, group or attributes cannot be carried over, where the file has more than one hard
// link (a rename would split them), or where its directory takes no new file, the file is
// rewritten in place instead, behind a copy of its old bytes that is
// put back if the rewrite fails.
#pragma once

#include <sys/stat.h>

#include <functional>
#include <string>

class LogBase;

namespace fsi {

// Writes the new content at fd's position, which is the start of an empty file. `oldContent`
// holds the file's old content from offset 0 (the old file itself, or its backup when it is
// rewritten in place), for writers that derive the new content from it: read it with
// positioned reads; -1 when there was no old file or it cannot be read. False with errno set
// and failedOp naming the call that failed.
using ContentWriter = std::function<bool(int fd, int oldContent, const char*& failedOp)>;

struct ReplaceRequest {
    const char* path = "";
    // The operation, for messages ("write", "copy").
    const char* op = "write";
    // Refuse when something already is at the path (no replacement at all).
    bool failIfExists = false;
    // Refuse a path that is a symbolic link to a missing file (as cp does) instead of
    // creating the file the link names.
    bool refuseDanglingLink = false;
    // Flush the new file to the device before it takes the old one's place even when there
    // was no old file (a replacement is always flushed).
    bool flushNewFile = true;
    // A copy's source: the same file as the destination is refused, and the new file takes
    // the source's permission bits instead of the old file's (in place too, where the caller
    // may set them).
    const struct stat* source = nullptr;
};

// Replaces (or creates) the regular file at req.path, following symbolic links to the file
// they name, so that a link stays a link. Anything else at the path (a directory, FIFO,
// socket or device) is refused and left alone. One error line on failure.
bool replaceFileContent(const ReplaceRequest& req, const ContentWriter& write, LogBase* log);

// The move of `from` to `to` on another file system: a regular file is copied beside `to`
// with its permission bits, owner (where it may be kept), extended attributes (where the other
// file system takes them) and time stamps, flushed, renamed
// over `to` and only then removed from `from`; a symbolic link arrives as a link with the
// same target text. `to` is replaced as a name, as rename replaces it.
bool moveAcrossFileSystems(const char* from, const char* to, LogBase* log);

// The path that a chain of symbolic links starting at `path` finally names (up to 40 links).
// `followed` tells whether any link was followed.
std::string followLinks(std::string path, bool& followed);

}  // namespace fsi
