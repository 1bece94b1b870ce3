// Path names taken apart: file name, directory, extension, name without extension.
#include <array>
#include <string>
#include <utility>

#include "fileaccess/ClsFileAccess.h"
#include "support/TestSupport.h"

namespace {

using Parts = std::array<std::string, 4>;  // name, directory, extension, name sans extension
using Getter = bool (ClsFileAccess::*)(XString&, XString&);

TEST(PathNamesTest, FinalPartDirectoryAndExtension) {
    const std::string q(4000, 'q'), gr = "Gr\xC3\xBC\xC3\x9Fs", tar = ".t\xC3\xA4r";
    const std::pair<std::string, Parts> cases[] = {
        {"/a/b/report.txt", {"report.txt", "/a/b", ".txt", "report"}},
        {"archive.tar.gz", {"archive.tar.gz", "", ".gz", "archive.tar"}},
        {"/home/u/.profile", {".profile", "/home/u", ".profile", ""}},
        {"notes.", {"notes.", "", ".", "notes"}},
        {"/etc/conf.d/settings", {"settings", "/etc/conf.d", "settings", "settings"}},
        {"/c.txt", {"c.txt", "/", ".txt", "c"}},
        // Doubled separators stay out of the directory part, but for the root's own.
        {"a//b", {"b", "a", "b", "b"}},
        {"/a//c.txt", {"c.txt", "/a", ".txt", "c"}},
        {"//c.txt", {"c.txt", "/", ".txt", "c"}},
        {"dir.d/", {"", "dir.d", "", ""}},
        {"", {"", "", "", ""}},
        {"a\\b.txt", {"a\\b.txt", "", ".txt", "a\\b"}},
        {"/t/" + gr + tar, {gr + tar, "/t", tar, gr}},
        {"/x/" + q + ".bin", {q + ".bin", "/x", ".bin", q}},
    };
    ClsFileAccess fa;
    for (const auto& [path, want] : cases) {
        SCOPED_TRACE("path: " + path.substr(0, 40));
        Parts got;
        auto slot = got.begin();
        for (Getter get :
             {&ClsFileAccess::GetFileName, &ClsFileAccess::GetDirectoryName,
              &ClsFileAccess::GetExtension, &ClsFileAccess::GetFileNameWithoutExtension}) {
            XString p(path.c_str()), out("stale output");
            EXPECT_CALL_OK(fa, (fa.*get)(p, out));
            EXPECT_EQ(p.getUtf8() + std::string(fa.lastErrorLog().hasErrors() ? "!" : ""), path);
            *slot++ = out.getUtf8();
        }
        EXPECT_EQ(got, want);
    }
}

}  // namespace
