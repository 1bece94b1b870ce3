// Fault injection into the file-system layer's system-call table.
//
// While an override is alive, the table's entries for the calls below go through wrappers
// that count every call and can make a chosen call fail with a chosen errno (once, or from
// then on), or cut reads and writes short. The destructor restores the table. Only one
// override may be alive at a time.
#pragma once

#include <cstddef>

class SysCallOverride {
  public:
    enum Call {
        Open,
        Read,
        Pread,
        Write,
        Fsync,
        Rename,
        Ftruncate,
        Flock,
        CopyFileRange,
        Unlink,
        Lstat,
        Fchown,
        Fchmod,
        Futimens,
        Symlink,
        Flistxattr,
        Fgetxattr,
        Fsetxattr,
        kCallCount
    };

    SysCallOverride();
    ~SysCallOverride();
    SysCallOverride(const SysCallOverride&) = delete;
    SysCallOverride& operator=(const SysCallOverride&) = delete;

    // The nth call (1-based, counted from now) of `which` fails with err; with `sticky`
    // every later call fails too. Several failures of one call may be planned; the first
    // planned one that applies wins.
    void failNth(Call which, int nth, int err, bool sticky = false);
    // Reads and writes move at most maxBytes per call (0: no limit).
    void limitTransfers(size_t maxBytes);
    // Every read and write is first interrupted once (EINTR) before it is let through.
    void interruptEveryTransfer(bool on);
    // Calls of `which` made since the override began.
    int calls(Call which) const;
};
