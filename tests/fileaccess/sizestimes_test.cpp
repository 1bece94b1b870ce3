// Sizes and time stamps of files named by path.
#include <filesystem>
#include <memory>
#include <string>
#include <tuple>

#include "fileaccess/LogProbe.h"

namespace fs = std::filesystem;

namespace {

using SizesTimesTest = FileAccessTest;
using TimePtr = std::unique_ptr<ClsDateTime>;

// 0 is the failure value of both numeric forms; only the text form tells a missing file from
// an empty one, and only the 64-bit forms hold a size beyond 4 GiB.
TEST_F(SizesTimesTest, SizesInEachFormAndTheirFailureValues) {
    writeFile("empty", "");
    writeFile("small", std::string(1234, 'z'));
    fs::resize_file(writeFile("sparse", ""), (5ull << 30) + 3);  // no blocks written
    // Path, 32-bit size, 64-bit size, text size (empty: FileSizeStr fails).
    const std::tuple<std::string, int, long long, std::string> cases[] = {
        {path("empty"), 0, 0, "0"},  {path("small"), 1234, 1234, "1234"},
        {path("missing"), 0, 0, ""}, {"", 0, 0, ""},
        {path("small/x"), 0, 0, ""}, {path("sparse"), 0, 5368709123, "5368709123"}};
    for (const auto& [name, size32, size64, text] : cases) {
        SCOPED_TRACE(name);
        XString p = X(name), out("stale");
        EXPECT_EQ(fa.FileSize(p), size32);
        EXPECT_EQ(fa.lastErrorLog().hasErrors(), size32 != size64 || text.empty()) << lastLog(fa);
        EXPECT_EQ(fa.FileSize64(p), size64);
        EXPECT_EQ(fa.FileSizeStr(p, out), !text.empty()) << lastLog(fa);
        EXPECT_EQ(out.getUtf8(), text);
    }
}

// The setters log their values and outcome also when they fail; a time set reads back, and
// every selector other than 1 (access) and 2 (creation) reads the modification time.
TEST_F(SizesTimesTest, TimeStampsSetAndReadBackAndFailuresLogTheirValues) {
    XString p = X(writeFile("stamped.txt", "t")), missing = X(path("gone.txt")), iso;
    ClsDateTime mod, acc;
    mod.SetFromUnixTime(1614834367, 250000000);  // 2021-03-04T05:06:07Z
    acc.SetFromUnixTime(1200000000);
    for (XString* target : {&missing, &p}) {
        const std::string outcome = target == &p ? "Success." : "Failed.";
        EXPECT_EQ(fa.SetFileTimes(*target, acc, acc, acc), target == &p) << lastLog(fa);
        EXPECT_EQ(valueNames(), (Names{"path", "createTime", "lastAccessTime", "lastModTime"}));
        EXPECT_EQ(lastLine(), outcome);
        EXPECT_EQ(fa.SetLastModified(*target, mod), target == &p) << lastLog(fa);
        EXPECT_EQ(valueNames(), (Names{"path", "lastModifiedTime"}));
        EXPECT_EQ(lastLine() + (TimePtr(fa.GetFileTime(*target, 0)) ? "+" : "-") + lastLine(),
                  outcome + (target == &p ? "+" : "-") + outcome);
    }
    EXPECT_FALSE(fs::exists(path("gone.txt"))) << "setting a time must not create the file";
    for (int which : {100, 0, 1, 3, -1}) {  // 100: GetLastModified
        SCOPED_TRACE(which);
        TimePtr t(which == 100 ? fa.GetLastModified(p) : fa.GetFileTime(p, which));
        ASSERT_NE(t, nullptr) << lastLog(fa);
        t->GetAsIso8601(iso);
        EXPECT_EQ(std::string(iso.getUtf8()).substr(0, 19) + std::to_string(t->GetNanoseconds()),
                  which == 1 ? "2008-01-10T21:20:000" : "2021-03-04T05:06:07250000000");
    }
    // Whether the platform took the creation time or kept the real birth time, selector 2
    // must not read the modification time.
    TimePtr birth(fa.GetFileTime(p, 2));
    EXPECT_TRUE(!birth || birth->GetAsUnixTime() != 1614834367);
}

}  // namespace
