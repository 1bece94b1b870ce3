// Helpers shared by the test suites.
#pragma once

// FA_SANITIZED: 1 in a sanitizer build. Sanitizers reserve terabytes of address space, which a
// limit on it cannot leave room for, and keep memory of their own beside each block the library
// touches (freed blocks, too, for a while), so tests of memory figures skip there.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define FA_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || \
    __has_feature(memory_sanitizer)
#define FA_SANITIZED 1
#endif
#endif
#ifndef FA_SANITIZED
#define FA_SANITIZED 0
#endif

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "foundation/base/ClsBase.h"
#include "foundation/text/DataBuffer.h"

// The object's last-error log as text.
std::string lastLog(ClsBase& obj);

// Asserts that a call on `obj` succeeded (a true result), printing the object's log if not.
#define ASSERT_CALL_OK(obj, expr) ASSERT_TRUE(expr) << "call: " #expr "\nlog:\n" << lastLog(obj)
#define EXPECT_CALL_OK(obj, expr) EXPECT_TRUE(expr) << "call: " #expr "\nlog:\n" << lastLog(obj)
// Asserts that a call failed, printing the log if it did not.
#define EXPECT_CALL_FAILS(obj, expr) EXPECT_FALSE(expr) << "call: " #expr "\nlog:\n" << lastLog(obj)

// A fixture that gives each test a fresh temporary directory, removed afterwards.
class TempDirTest : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    // Absolute path of `name` inside the test's directory.
    std::string path(const std::string& name) const { return m_dir + "/" + name; }
    const std::string& dir() const { return m_dir; }

    // Writes bytes into a file (created or emptied) of the test directory; returns its path.
    std::string writeFile(const std::string& name, const std::string& bytes) const;
    // The whole content of a file, or "<missing>" when it cannot be read.
    static std::string readFile(const std::string& path);

  private:
    std::string m_dir;
};

// The bytes of a DataBuffer as a string, for comparisons.
std::string bytesOf(const DataBuffer& db);
// A DataBuffer holding the given bytes.
DataBuffer bufferOf(const std::string& bytes);

// True when the tests run with root's privileges (permission tests are skipped then).
bool runningAsRoot();

// A fresh directory of the caller's own on a memory file system (/dev/shm) that lies on
// another device than `near`, or "" when there is none (`why`, when given, then says why).
// The caller removes it.
std::string makeDirOnOtherDevice(const std::string& near, std::string* why = nullptr);

// Runs `body` in a forked child process and returns its result as the child's exit status
// (-1 when the child died of a signal). For tests that change what a process can do: its
// root, its descriptor limit, its user. The body must not use GoogleTest assertions.
int inChildProcess(const std::function<int()>& body);

// Runs `body` in a forked child that has dropped to the user `uid` and group `gid`, without
// supplementary groups (needs root); 100 when it cannot drop.
int inChildAsUser(unsigned uid, unsigned gid, const std::function<int()>& body);
// Whether the user `uid` of group `gid` may search every directory on the way to `dir` and
// `dir` itself: tests that drop to that user skip where their directory lies out of its reach
// (a TMPDIR of mode 0700, say).
bool userCanReach(unsigned uid, unsigned gid, const std::string& dir);

// Runs `body` in a child whose whole file system is the directory `root`: chrooted into it when
// the tests run as root, else only working inside it. Every removing system call of the
// file-system layer (unlink, unlinkat, rmdir) is counted in `removals` and refused, so a broken
// refusal to remove harms nothing. Returns body's result, or 100 when the child cannot settle.
int inJailRefusingRemovals(const std::string& root,
                           const std::function<int(const int& removals)>& body);

// Path of a file under tests/data.
std::string testDataPath(const std::string& name);
