// Path names taken apart: file name, directory, extension, name without extension.
#include <string>

#include "fileaccess/ClsFileAccess.h"
#include "support/TestSupport.h"

namespace {

struct Parts {
    std::string fileName, directory, extension, withoutExtension;
};

Parts split(ClsFileAccess& fa, const std::string& path) {
    XString p(path.c_str());
    Parts parts;
    XString out("stale output");
    EXPECT_TRUE(fa.GetFileName(p, out));
    parts.fileName = out.getUtf8();
    out.setFromUtf8("stale output");
    EXPECT_TRUE(fa.GetDirectoryName(p, out));
    parts.directory = out.getUtf8();
    out.setFromUtf8("stale output");
    EXPECT_TRUE(fa.GetExtension(p, out));
    parts.extension = out.getUtf8();
    out.setFromUtf8("stale output");
    EXPECT_TRUE(fa.GetFileNameWithoutExtension(p, out));
    parts.withoutExtension = out.getUtf8();
    EXPECT_STREQ(p.getUtf8(), path.c_str()) << "the path argument must not change";
    return parts;
}

TEST(PathNamesTest, FinalPartDirectoryAndExtension) {
    const std::string longName(4000, 'q');
    const struct Case {
        std::string path;
        Parts want;
    } cases[] = {
        {"/a/b/report.txt", {"report.txt", "/a/b", ".txt", "report"}},
        {"archive.tar.gz", {"archive.tar.gz", "", ".gz", "archive.tar"}},
        {"/home/u/.profile", {".profile", "/home/u", ".profile", ""}},
        {"notes.", {"notes.", "", ".", "notes"}},
        {"docs/README", {"README", "docs", "README", "README"}},
        {"/etc/conf.d/settings", {"settings", "/etc/conf.d", "settings", "settings"}},
        {"/c.txt", {"c.txt", "/", ".txt", "c"}},
        {"dir.d/", {"", "dir.d", "", ""}},
        {"", {"", "", "", ""}},
        {"a\\b.txt", {"a\\b.txt", "", ".txt", "a\\b"}},
        {"/t/Gr\xC3\xBC\xC3\x9F"
         "e.t\xC3\xA4r",
         {"Gr\xC3\xBC\xC3\x9F"
          "e.t\xC3\xA4r",
          "/t", ".t\xC3\xA4r",
          "Gr\xC3\xBC\xC3\x9F"
          "e"}},
        {"/x/" + longName + ".bin", {longName + ".bin", "/x", ".bin", longName}},
    };
    ClsFileAccess fa;
    for (const Case& c : cases) {
        SCOPED_TRACE("path: " + c.path.substr(0, 40));
        const Parts got = split(fa, c.path);
        EXPECT_EQ(got.fileName, c.want.fileName);
        EXPECT_EQ(got.directory, c.want.directory);
        EXPECT_EQ(got.extension, c.want.extension);
        EXPECT_EQ(got.withoutExtension, c.want.withoutExtension);
        // Wherever the final part holds a ".", the two halves give it back.
        if (got.fileName.find('.') != std::string::npos) {
            EXPECT_EQ(got.withoutExtension + got.extension, got.fileName);
        }
    }
}

TEST(PathNamesTest, EachCallHasItsOwnContextAndNoErrors) {
    ClsFileAccess fa;
    XString p("/no/such/place/file.txt"), out;
    ASSERT_TRUE(fa.GetFileNameWithoutExtension(p, out));
    const auto& entries = fa.lastErrorLog().entries();
    ASSERT_FALSE(entries.empty());
    EXPECT_EQ(entries.front().kind, LogKind::Context);
    EXPECT_EQ(entries.front().name, "GetFileNameWithoutExtension");
    EXPECT_FALSE(fa.lastErrorLog().hasErrors()) << lastLog(fa);
}

}  // namespace
