// Runs a hook before every read (read and pread alike) of the file layer, so that a test
// can change a file while a method is reading it. Only one hook may be alive at a time.
#pragma once

#include "foundation/fs/SysCalls.h"

class ReadHook {
  public:
    // `hook` gets the number of reads made so far and the descriptor about to be read.
    explicit ReadHook(void (*hook)(int call, int fd)) {
        s_hook = hook;
        s_calls = 0;
        sysCalls().read = [](int fd, void* p, size_t n) {
            s_hook(s_calls++, fd);
            return realSysCalls().read(fd, p, n);
        };
        sysCalls().pread = [](int fd, void* p, size_t n, off_t off) {
            s_hook(s_calls++, fd);
            return realSysCalls().pread(fd, p, n, off);
        };
    }
    ~ReadHook() {
        sysCalls().read = realSysCalls().read;
        sysCalls().pread = realSysCalls().pread;
    }
    ReadHook(const ReadHook&) = delete;
    ReadHook& operator=(const ReadHook&) = delete;

  private:
    static inline void (*s_hook)(int, int) = nullptr;
    static inline int s_calls = 0;
};
