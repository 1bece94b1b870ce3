#include "support/SysCallOverride.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <vector>

#include "foundation/fs/SysCalls.h"

namespace {

struct Rule {
    int at;
    int err;
    bool sticky;
};

struct State {
    bool active = false;
    int count[SysCallOverride::kCallCount] = {};
    std::vector<Rule> rules[SysCallOverride::kCallCount];
    size_t maxTransfer = 0;
    bool interrupt = false;
    bool interruptedLast = false;
    SysCalls saved{};
};

State g;

// Counts the call; true (errno set) when it is to fail.
bool injected(SysCallOverride::Call c) {
    int n = ++g.count[c];
    for (const Rule& r : g.rules[c]) {
        if (n == r.at || (r.sticky && n > r.at)) {
            errno = r.err;
            return true;
        }
    }
    return false;
}

size_t limit(size_t n) {
    return g.maxTransfer ? std::min(n, g.maxTransfer) : n;
}

// Alternates: every transfer attempt is interrupted once, the retry goes through.
bool interruptNow() {
    if (!g.interrupt) return false;
    g.interruptedLast = !g.interruptedLast;
    if (!g.interruptedLast) return false;
    errno = EINTR;
    return true;
}

int wOpen(const char* p, int f, mode_t m) {
    return injected(SysCallOverride::Open) ? -1 : realSysCalls().open(p, f, m);
}
ssize_t wRead(int fd, void* b, size_t n) {
    if (injected(SysCallOverride::Read) || interruptNow()) return -1;
    return realSysCalls().read(fd, b, limit(n));
}
ssize_t wPread(int fd, void* b, size_t n, off_t off) {
    if (injected(SysCallOverride::Pread) || interruptNow()) return -1;
    return realSysCalls().pread(fd, b, limit(n), off);
}
ssize_t wWrite(int fd, const void* b, size_t n) {
    if (injected(SysCallOverride::Write) || interruptNow()) return -1;
    return realSysCalls().write(fd, b, limit(n));
}
int wFsync(int fd) {
    return injected(SysCallOverride::Fsync) ? -1 : realSysCalls().fsync(fd);
}
int wRename(const char* a, const char* b) {
    return injected(SysCallOverride::Rename) ? -1 : realSysCalls().rename(a, b);
}
int wFtruncate(int fd, off_t len) {
    return injected(SysCallOverride::Ftruncate) ? -1 : realSysCalls().ftruncate(fd, len);
}
int wFlock(int fd, int op) {
    return injected(SysCallOverride::Flock) ? -1 : realSysCalls().flock(fd, op);
}
ssize_t wCopyFileRange(int in, off_t* io, int out, off_t* oo, size_t n, unsigned fl) {
    if (injected(SysCallOverride::CopyFileRange)) return -1;
    return realSysCalls().copy_file_range(in, io, out, oo, limit(n), fl);
}
int wUnlink(const char* p) {
    return injected(SysCallOverride::Unlink) ? -1 : realSysCalls().unlink(p);
}
int wLstat(const char* p, struct stat* st) {
    return injected(SysCallOverride::Lstat) ? -1 : realSysCalls().lstat(p, st);
}

int wFchown(int fd, uid_t u, gid_t g) {
    return injected(SysCallOverride::Fchown) ? -1 : realSysCalls().fchown(fd, u, g);
}
int wFchmod(int fd, mode_t m) {
    return injected(SysCallOverride::Fchmod) ? -1 : realSysCalls().fchmod(fd, m);
}
int wFutimens(int fd, const struct timespec t[2]) {
    return injected(SysCallOverride::Futimens) ? -1 : realSysCalls().futimens(fd, t);
}
int wSymlink(const char* target, const char* link) {
    return injected(SysCallOverride::Symlink) ? -1 : realSysCalls().symlink(target, link);
}

ssize_t wFlistxattr(int fd, char* names, size_t size) {
    if (injected(SysCallOverride::Flistxattr)) return -1;
    return realSysCalls().flistxattr(fd, names, size);
}
ssize_t wFgetxattr(int fd, const char* name, void* value, size_t size) {
    if (injected(SysCallOverride::Fgetxattr)) return -1;
    return realSysCalls().fgetxattr(fd, name, value, size);
}
int wFsetxattr(int fd, const char* name, const void* value, size_t size, int flags) {
    if (injected(SysCallOverride::Fsetxattr)) return -1;
    return realSysCalls().fsetxattr(fd, name, value, size, flags);
}

}  // namespace

SysCallOverride::SysCallOverride() {
    if (g.active) std::abort();  // two overrides at once would restore the wrong table
    g = State{};
    g.active = true;
    SysCalls& t = sysCalls();
    g.saved = t;
    t.open = wOpen;
    t.read = wRead;
    t.pread = wPread;
    t.write = wWrite;
    t.fsync = wFsync;
    t.rename = wRename;
    t.ftruncate = wFtruncate;
    t.flock = wFlock;
    t.copy_file_range = wCopyFileRange;
    t.unlink = wUnlink;
    t.lstat = wLstat;
    t.fchown = wFchown;
    t.fchmod = wFchmod;
    t.futimens = wFutimens;
    t.symlink = wSymlink;
    t.flistxattr = wFlistxattr;
    t.fgetxattr = wFgetxattr;
    t.fsetxattr = wFsetxattr;
}

SysCallOverride::~SysCallOverride() {
    sysCalls() = g.saved;
    g.active = false;
}

void SysCallOverride::failNth(Call which, int nth, int err, bool sticky) {
    g.rules[which].push_back({g.count[which] + nth, err, sticky});
}

void SysCallOverride::limitTransfers(size_t maxBytes) {
    g.maxTransfer = maxBytes;
}

void SysCallOverride::interruptEveryTransfer(bool on) {
    g.interrupt = on;
    g.interruptedLast = false;
}

int SysCallOverride::calls(Call which) const {
    return g.count[which];
}
