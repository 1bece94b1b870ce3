// FIFOs, device nodes and sockets under every method that reads or writes content by path:
// each call is refused at once, without opening it, with a line naming the path passed and
// what it is, and the special file stays what it was. The current file's opens keep their
// meaning but never block.
#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <future>
#include <string>
#include <thread>

#include "fileaccess/LogProbe.h"
#include "foundation/fs/SysCalls.h"
#include "support/SysCallOverride.h"

namespace {

namespace fs = std::filesystem;

// Every call must answer within this time; one that blocks ends the run with a line naming it.
constexpr unsigned kCallSeconds = 3;
const char* g_call = "";

void onAlarm(int) {
    const char line[] = "\nThis call did not answer in time: ";
    (void)!write(2, line, sizeof line - 1);
    (void)!write(2, g_call, std::strlen(g_call));
    (void)!write(2, "\n", 1);
    _exit(1);
}

template <class Call>
auto bounded(const char* what, Call call) {
    g_call = what;
    alarm(kCallSeconds);
    auto result = call();
    alarm(0);
    return result;
}

// Opens of the special file, by any of the names it is given (through the system-call table).
std::string g_watched[2];
int g_watchedOpens = 0;
int countingOpen(const char* p, int flags, mode_t mode) {
    g_watchedOpens += p == g_watched[0] || p == g_watched[1];
    return realSysCalls().open(p, flags, mode);
}

struct Special {
    const char* kind;  // as the refusal names it
    mode_t type;
};

class SpecialFileTest : public FileAccessTest {
  protected:
    void SetUp() override {
        FileAccessTest::SetUp();
        std::signal(SIGALRM, onAlarm);
    }
    void TearDown() override {
        alarm(0);
        std::signal(SIGALRM, SIG_DFL);
        sysCalls() = realSysCalls();
        FileAccessTest::TearDown();
    }

    // Makes the special file at `p`; false when this machine does not allow it.
    static bool make(mode_t type, const std::string& p) {
        if (type == S_IFIFO) return mkfifo(p.c_str(), 0666) == 0;
        // A second node of the null device, whatever its numbers are here: harmless even if
        // something were written to it.
        struct stat null {};
        if (type == S_IFCHR)
            return stat("/dev/null", &null) == 0 &&
                   mknod(p.c_str(), S_IFCHR | 0666, null.st_rdev) == 0;
        int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un addr{};
        addr.sun_family = AF_UNIX;
        if (fd < 0 || p.size() >= sizeof addr.sun_path) return false;
        std::strcpy(addr.sun_path, p.c_str());
        bool ok = bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
        close(fd);
        return ok;
    }
    static mode_t typeOf(const std::string& p) {
        struct stat st {};
        return lstat(p.c_str(), &st) == 0 ? (st.st_mode & S_IFMT) : 0;
    }
};

TEST_F(SpecialFileTest, ContentMethodsRefuseThemAtOnce) {
    const Special specials[] = {
        {"a FIFO", S_IFIFO}, {"a character device", S_IFCHR}, {"a socket", S_IFSOCK}};
    const std::string plain = writeFile("plain", "some bytes"), parts = path("parts");
    ASSERT_TRUE(fs::create_directory(parts));
    writeFile("parts/q1.x", "part one");
    sysCalls().open = countingOpen;
    for (const Special& sp : specials) {
        // Named so that it is also part 1 of the set "s" / "x" in the test directory.
        const std::string special = path("s1.x"), viaLink = path("link");
        fs::remove(special);
        fs::remove(viaLink);
        fs::create_symlink(special, viaLink);
        g_watched[0] = special;
        g_watched[1] = viaLink;
        if (!make(sp.type, special)) {
            // Only a device node needs privileges.
            EXPECT_TRUE(sp.type == S_IFCHR && !runningAsRoot())
                << sp.kind << ": " << strerror(errno);
            continue;
        }
        XString s = X(special), l = X(viaLink), f = X(plain), d = X(dir()), pd = X(parts),
                copy = X(path("copy")), cs("utf-8"), out, pre("s"), q("q"), ext("x"), text("text");
        DataBuffer data;
        // The line names the path passed: the special file, or the link to it.
        const struct {
            const char* name;
            std::function<bool()> call;
            std::string named = "";
        } methods[] = {
            {"ReadEntireFile", [&] { return fa.ReadEntireFile(s, data); }},
            {"ReadEntireTextFile", [&] { return fa.ReadEntireTextFile(s, cs, out); }},
            {"ReadBinaryToEncoded", [&] { return fa.ReadBinaryToEncoded(s, cs, out); }},
            {"ReplaceStrings", [&] { return fa.ReplaceStrings(s, cs, text, out) != -1; }},
            {"WriteEntireFile", [&] { return fa.WriteEntireFile(s, data); }},
            {"WriteEntireTextFile", [&] { return fa.WriteEntireTextFile(s, text, cs, false); }},
            {"FileCopy from it", [&] { return fa.FileCopy(s, copy, false); }},
            {"FileCopy onto it", [&] { return fa.FileCopy(f, s, false); }},
            {"FileRename of it to another file system",
             [&] {
                 SysCallOverride o;
                 o.failNth(SysCallOverride::Rename, 1, EXDEV);
                 return fa.FileRename(s, copy);
             }},
            {"FileRename onto it from another file system",
             [&] {
                 SysCallOverride o;
                 o.failNth(SysCallOverride::Rename, 1, EXDEV);
                 return fa.FileRename(f, s);
             }},
            {"SplitFile of it", [&] { return fa.SplitFile(s, q, ext, 4, pd); }},
            {"SplitFile onto it", [&] { return fa.SplitFile(f, pre, ext, 100, d); }},
            {"ReassembleFile from it", [&] { return fa.ReassembleFile(d, pre, ext, copy); }},
            {"ReassembleFile onto it", [&] { return fa.ReassembleFile(pd, q, ext, s); }},
            {"FileContentsEqual first", [&] { return fa.FileContentsEqual(s, f); }},
            {"FileContentsEqual second", [&] { return fa.FileContentsEqual(f, s); }},
            {"FileContentsEqual both", [&] { return fa.FileContentsEqual(s, s); }},
            {"FileCopy onto it, failing if it exists", [&] { return fa.FileCopy(f, s, true); }},
            {"ReadEntireFile through a link", [&] { return fa.ReadEntireFile(l, data); }, viaLink},
            {"ReplaceStrings through a link",
             [&] { return fa.ReplaceStrings(l, cs, text, out) != -1; }, viaLink},
            {"WriteEntireFile through a link", [&] { return fa.WriteEntireFile(l, data); },
             viaLink},
            {"WriteEntireTextFile through a link",
             [&] { return fa.WriteEntireTextFile(l, text, cs, false); }, viaLink},
            {"FileCopy onto it through a link", [&] { return fa.FileCopy(f, l, false); }, viaLink},
            {"FileCopy onto it through a link, failing if it exists",
             [&] { return fa.FileCopy(f, l, true); }, viaLink},
        };
        for (const auto& m : methods) {
            SCOPED_TRACE(std::string(m.name) + " on " + sp.kind);
            g_watchedOpens = 0;
            EXPECT_CALL_FAILS(fa, bounded(m.name, m.call));
            EXPECT_EQ(g_watchedOpens, 0) << "opened before it was refused";
            const std::string refusal = "\"" + (m.named.empty() ? special : m.named) +
                                        "\" failed: it is " + sp.kind + ", not a regular file";
            EXPECT_NE(lastLog(fa).find(refusal), std::string::npos) << lastLog(fa);
            EXPECT_EQ(typeOf(special), sp.type);
            EXPECT_EQ(fs::read_symlink(viaLink), special);
        }
        EXPECT_EQ(readFile(plain) + readFile(parts + "/q1.x") + readFile(path("copy")),
                  "some bytespart one<missing>");
        EXPECT_EQ(std::distance(fs::directory_iterator(parts), fs::directory_iterator()), 1);
    }
}

// The current file's opens: a FIFO opens for reading at once even without a writer (and
// then reads its end), for writing fails at once without a reader; a socket cannot be
// opened; a device opens as usual.
TEST_F(SpecialFileTest, CurrentFileOpensNeverBlock) {
    const std::string fifo = path("fifo"), sock = path("sock"), dev = path("null");
    ASSERT_TRUE(make(S_IFIFO, fifo) && make(S_IFSOCK, sock));
    const bool haveDevice = make(S_IFCHR, dev);  // needs privileges
    EXPECT_TRUE(haveDevice || !runningAsRoot());
    using Open = bool (ClsFileAccess::*)(XString&);
    const struct {
        Open open;
        std::string path;
        int code;  // the open-error code; 0 when it opens
    } cases[] = {
        {&ClsFileAccess::OpenForRead, fifo, 0},   {&ClsFileAccess::OpenForReadWrite, fifo, 0},
        {&ClsFileAccess::OpenForWrite, fifo, 10}, {&ClsFileAccess::OpenForAppend, fifo, 10},
        {&ClsFileAccess::OpenForRead, sock, 10},  {&ClsFileAccess::OpenForWrite, sock, 10},
        {&ClsFileAccess::OpenForRead, dev, 0},    {&ClsFileAccess::OpenForWrite, dev, 0},
    };
    for (const auto& c : cases) {
        if (c.path == dev && !haveDevice) continue;
        SCOPED_TRACE(c.path + " code " + std::to_string(c.code));
        XString p = X(c.path);
        EXPECT_EQ(bounded("an open", [&] { return (fa.*c.open)(p); }), c.code == 0) << lastLog(fa);
        EXPECT_EQ(fa.get_FileOpenError(), c.code);
        fa.FileClose();
    }
    // Without a writer the FIFO reads as ended; with one, reads wait for its data as usual.
    XString p = X(fifo);
    ASSERT_CALL_OK(fa, bounded("OpenForRead", [&] { return fa.OpenForRead(p); }));
    DataBuffer got;
    EXPECT_TRUE(bounded("FileRead", [&] { return fa.FileRead(16, got); }) && got.getSize() == 0 &&
                fa.get_EndOfFile());
    std::promise<void> writerOpen;
    std::thread writer([&] {
        int fd = open(fifo.c_str(), O_WRONLY);
        writerOpen.set_value();
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_EQ(write(fd, "hello", 5), 5);
        close(fd);
    });
    bounded("the writer's open", [&] { return writerOpen.get_future().wait(), true; });
    EXPECT_CALL_OK(fa, bounded("FileRead with a writer", [&] { return fa.FileRead(5, got); }));
    writer.join();
    EXPECT_EQ(bytesOf(got), "hello");
}

}  // namespace
