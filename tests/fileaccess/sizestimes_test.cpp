// Sizes and time stamps of files named by path.
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "fileaccess/ClsFileAccess.h"
#include "fileaccess/LogProbe.h"
#include "support/TestSupport.h"

namespace fs = std::filesystem;

namespace {

class SizesTimesTest : public TempDirTest {
  protected:
    // A date-time object at the given Unix time.
    static std::unique_ptr<ClsDateTime> at(int64_t seconds, uint32_t nanos = 0) {
        auto t = std::make_unique<ClsDateTime>();
        t->SetFromUnixTime(seconds, nanos);
        return t;
    }

    ClsFileAccess fa;
    LogProbe log{fa};
};

XString X(const std::string& s) {
    return XString(s.c_str());
}

using TimePtr = std::unique_ptr<ClsDateTime>;

TEST_F(SizesTimesTest, MissingAndEmptyFilesAreToldApartOnlyByTheTextForm) {
    XString empty = X(writeFile("empty.bin", "")), missing = X(path("missing.bin"));
    XString small = X(writeFile("small.bin", std::string(1234, 'z')));
    fs::create_directory(path("dir"));

    EXPECT_EQ(fa.FileSize(empty), 0);
    EXPECT_EQ(fa.FileSize64(empty), 0);
    EXPECT_EQ(fa.FileSize(missing), 0);
    EXPECT_TRUE(fa.lastErrorLog().hasErrors()) << "the reason is the layer's line";
    EXPECT_EQ(fa.FileSize64(missing), 0);
    EXPECT_EQ(fa.FileSize(small), 1234);
    EXPECT_EQ(fa.FileSize64(small), 1234);

    struct Case {
        const char* name;
        std::string path;
        bool ok;
        const char* text;
    };
    const Case cases[] = {
        {"empty file", empty.getUtf8(), true, "0"},
        {"small file", small.getUtf8(), true, "1234"},
        {"missing file", missing.getUtf8(), false, ""},
        {"empty path", "", false, ""},
        {"through a regular file", path("small.bin/x"), false, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        XString p = X(c.path), out("stale");
        EXPECT_EQ(fa.FileSizeStr(p, out), c.ok) << lastLog(fa);
        EXPECT_STREQ(out.getUtf8(), c.text);
    }
}

TEST_F(SizesTimesTest, SparseFileBeyondFourGiB) {
    const uint64_t size = (5ull << 30) + 3;  // 5 GiB and 3 bytes, no blocks written
    std::error_code ec;
    writeFile("sparse.bin", "");
    fs::resize_file(path("sparse.bin"), size, ec);
    if (ec) GTEST_SKIP() << "cannot make a sparse file here: " << ec.message();
    XString p = X(path("sparse.bin"));

    EXPECT_EQ(fa.FileSize64(p), static_cast<long long>(size));
    XString text;
    ASSERT_CALL_OK(fa, fa.FileSizeStr(p, text));
    EXPECT_STREQ(text.getUtf8(), "5368709123");
    // Too big for 32 bits: the failure value, with the reason in the log.
    EXPECT_EQ(fa.FileSize(p), 0);
    EXPECT_TRUE(fa.lastErrorLog().hasErrors());
}

// Times set and read back, every selector other than 1 (access) and 2 (creation) reading the
// modification time; each call logs its values, also when it fails on a missing file.
TEST_F(SizesTimesTest, TimeStampsSetAndReadBackAndFailuresLogTheirValues) {
    XString p = X(writeFile("stamped.txt", "t")), missing = X(path("gone.txt"));
    const int64_t mod = 1614834367, accessed = 1200000000;  // mod: 2021-03-04T05:06:07Z
    auto modTime = at(mod, 250000000), acc = at(accessed), created = at(1000000000);
    const std::vector<std::string> setTimesValues = {"path", "createTime", "lastAccessTime",
                                                     "lastModTime"};
    for (XString* target : {&missing, &p}) {
        const bool ok = target == &p;
        EXPECT_EQ(fa.SetFileTimes(*target, *created, *acc, *acc), ok) << lastLog(fa);
        EXPECT_EQ(log.valueNames(), setTimesValues);
        EXPECT_EQ(log.lastLine(), ok ? "Success." : "Failed.");
        EXPECT_EQ(fa.SetLastModified(*target, *modTime), ok) << lastLog(fa);
        EXPECT_EQ(log.valueNames(), (std::vector<std::string>{"path", "lastModifiedTime"}));
        EXPECT_EQ(log.lastLine(), ok ? "Success." : "Failed.");
        EXPECT_EQ(TimePtr(fa.GetLastModified(*target)) != nullptr, ok);
        EXPECT_EQ(log.lastLine(), ok ? "Success." : "Failed.");
    }
    EXPECT_FALSE(fs::exists(path("gone.txt"))) << "setting a time must not create the file";

    TimePtr read(fa.GetLastModified(p));
    ASSERT_NE(read, nullptr) << lastLog(fa);
    XString iso;
    read->GetAsIso8601(iso);
    EXPECT_EQ(std::string(iso.getUtf8()).rfind("2021-03-04T05:06:07", 0), 0u) << iso.getUtf8();
    for (int which : {0, 1, 3, -1, 1000}) {
        SCOPED_TRACE(which);
        TimePtr t(fa.GetFileTime(p, which));
        ASSERT_NE(t, nullptr) << lastLog(fa);
        EXPECT_EQ(t->GetAsUnixTime(), which == 1 ? accessed : mod);
        EXPECT_EQ(t->GetNanoseconds(), (which == 1 ? acc : read)->GetNanoseconds());
    }
    // Whether the platform took the creation time or kept the real birth time, selector 2
    // must not read the modification time.
    TimePtr birth(fa.GetFileTime(p, 2));
    EXPECT_TRUE(!birth || birth->GetAsUnixTime() != mod);
}

}  // namespace
