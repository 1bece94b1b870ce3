// Path names taken apart: file name, directory, extension, name without extension.
#include <array>
#include <string>

#include "fileaccess/ClsFileAccess.h"
#include "support/TestSupport.h"

namespace {

using Parts = std::array<std::string, 4>;  // name, directory, extension, name sans extension

// The four parts of `path`, each call checked to succeed and to leave its argument alone.
Parts split(ClsFileAccess& fa, const std::string& path) {
    using Getter = bool (ClsFileAccess::*)(XString&, XString&);
    const Getter getters[] = {&ClsFileAccess::GetFileName, &ClsFileAccess::GetDirectoryName,
                              &ClsFileAccess::GetExtension,
                              &ClsFileAccess::GetFileNameWithoutExtension};
    Parts parts;
    int i = 0;
    for (Getter get : getters) {
        XString p(path.c_str()), out("stale output");
        EXPECT_TRUE((fa.*get)(p, out));
        EXPECT_FALSE(fa.lastErrorLog().hasErrors()) << lastLog(fa);
        EXPECT_STREQ(p.getUtf8(), path.c_str()) << "the path argument must not change";
        parts[i++] = out.getUtf8();
    }
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
        EXPECT_EQ(got, c.want);
        // Wherever the final part holds a ".", the two halves give it back.
        EXPECT_TRUE(got[0].find('.') == std::string::npos || got[3] + got[2] == got[0]);
    }
}

}  // namespace
