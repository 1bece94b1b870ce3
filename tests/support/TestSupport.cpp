#include "support/TestSupport.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>

#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "foundation/fs/SysCalls.h"
#include "foundation/text/XString.h"

std::string lastLog(ClsBase& obj) {
    XString text;
    obj.get_LastErrorText(text);
    return text.getUtf8();
}

void TempDirTest::SetUp() {
    namespace fs = std::filesystem;
    const char* tmp = std::getenv("TMPDIR");
    fs::path base = (tmp && *tmp) ? fs::path(tmp) : fs::temp_directory_path();
    std::random_device rd;
    for (int attempt = 0; attempt < 100; ++attempt) {
        fs::path candidate =
            base / ("fa-test-" + std::to_string(getpid()) + "-" + std::to_string(rd()));
        std::error_code ec;
        if (fs::create_directory(candidate, ec)) {
            m_dir = fs::canonical(candidate).string();
            return;
        }
    }
    FAIL() << "cannot create a temporary directory under " << base;
}

void TempDirTest::TearDown() {
    if (m_dir.empty()) return;
    std::error_code ec;
    // Restore permissions a test may have taken away, so that everything can be removed.
    for (auto it = std::filesystem::recursive_directory_iterator(
             m_dir, std::filesystem::directory_options::skip_permission_denied, ec);
         !ec && it != std::filesystem::recursive_directory_iterator(); it.increment(ec)) {
        if (it->is_directory(ec) && !it->is_symlink(ec))
            std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                                         std::filesystem::perm_options::add, ec);
    }
    std::filesystem::permissions(m_dir, std::filesystem::perms::owner_all,
                                 std::filesystem::perm_options::add, ec);
    std::filesystem::remove_all(m_dir, ec);
}

std::string TempDirTest::writeFile(const std::string& name, const std::string& bytes) const {
    std::string p = path(name);
    std::ofstream out(p, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return p;
}

std::string TempDirTest::readFile(const std::string& p) {
    std::ifstream in(p, std::ios::binary);
    if (!in) return "<missing>";
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string bytesOf(const DataBuffer& db) {
    if (db.getSize() == 0) return {};
    return std::string(reinterpret_cast<const char*>(db.getData2()), db.getSize());
}

DataBuffer bufferOf(const std::string& bytes) {
    DataBuffer db;
    db.append(bytes.data(), static_cast<unsigned>(bytes.size()));
    return db;
}

bool runningAsRoot() {
    return geteuid() == 0;
}

std::string testDataPath(const std::string& name) {
    return std::string(FA_TEST_DATA_DIR) + "/" + name;
}

int inChildProcess(const std::function<int()>& body) {
    std::fflush(nullptr);
    pid_t pid = fork();
    if (pid < 0) return -1;
    if (pid == 0) _exit(body());
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int inChildAsUser(unsigned uid, unsigned gid, const std::function<int()>& body) {
    return inChildProcess([&] {
        if (setgroups(0, nullptr) != 0 || setgid(gid) != 0 || setuid(uid) != 0) return 100;
        return body();
    });
}

bool userCanReach(unsigned uid, unsigned gid, const std::string& dir) {
    return inChildAsUser(uid, gid, [&] { return access(dir.c_str(), X_OK) == 0 ? 0 : 1; }) == 0;
}

int inJailRefusingRemovals(const std::string& root,
                           const std::function<int(const int& removals)>& body) {
    static int s_removals;
    return inChildProcess([&] {
        if (runningAsRoot() ? chroot(root.c_str()) != 0 || chdir("/") != 0
                            : chdir(root.c_str()) != 0)
            return 100;
        s_removals = 0;
        SysCalls& t = sysCalls();
        t.unlink = [](const char*) { return ++s_removals, errno = EPERM, -1; };
        t.unlinkat = [](int, const char*, int) { return ++s_removals, errno = EPERM, -1; };
        t.rmdir = [](const char*) { return ++s_removals, errno = EPERM, -1; };
        return body(s_removals);
    });
}

std::string makeDirOnOtherDevice(const std::string& near, std::string* why) {
    char tmpl[] = "/dev/shm/fa-test-XXXXXX";
    struct stat here = {}, there = {};
    std::string reason;
    if (stat(near.c_str(), &here) != 0) {
        reason = "cannot stat " + near + ": " + std::strerror(errno);
    } else if (!mkdtemp(tmpl)) {
        reason = std::string("cannot make a directory in /dev/shm: ") + std::strerror(errno);
    } else if (stat(tmpl, &there) != 0 || there.st_dev == here.st_dev) {
        reason = "/dev/shm is on the same device as " + near;
        rmdir(tmpl);
    } else {
        return tmpl;
    }
    if (why) *why = reason;
    return "";
}
