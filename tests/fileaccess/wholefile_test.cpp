// Whole files into and out of memory, as bytes and as text in a named charset.
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "fileaccess/ClsFileAccess.h"
#include "fileaccess/LogProbe.h"
#include "support/TestSupport.h"

namespace fs = std::filesystem;

namespace {

class WholeFileTest : public TempDirTest {
  protected:
    ClsFileAccess fa;
    LogProbe log{fa};
};

XString X(const std::string& s) {
    return XString(s.c_str());
}

DataBuffer bufferOf(const std::string& bytes) {
    DataBuffer db;
    db.append(bytes.data(), static_cast<unsigned>(bytes.size()));
    return db;
}

// "Grüße €": two letters outside ASCII and one outside Latin-1.
const char* const kText =
    "Gr\xC3\xBC\xC3\x9F"
    "e \xE2\x82\xAC";

TEST_F(WholeFileTest, BytesRoundTripAndReplaceWhatWasThere) {
    const std::string bytes("\x00\x01\xFF binary\r\n\x00tail", 16);
    XString p = X(path("data.bin"));
    writeFile("data.bin", std::string(100, 'o'));  // longer than the new content
    DataBuffer data = bufferOf(bytes);
    ASSERT_CALL_OK(fa, fa.WriteEntireFile(p, data));
    EXPECT_EQ(readFile(path("data.bin")), bytes);

    DataBuffer back = bufferOf("previous content of the buffer");
    ASSERT_CALL_OK(fa, fa.ReadEntireFile(p, back));
    EXPECT_EQ(bytesOf(back), bytes);

    DataBuffer nothing;
    ASSERT_CALL_OK(fa, fa.WriteEntireFile(p, nothing));
    EXPECT_EQ(readFile(path("data.bin")), "");
    ASSERT_CALL_OK(fa, fa.ReadEntireFile(p, back));
    EXPECT_EQ(back.getSize(), 0u);
}

TEST_F(WholeFileTest, FailedReadsAndWritesLoseNothing) {
    writeFile("keep.txt", "keep");
    fs::create_directory(path("dir"));
    writeFile("dir/inside.txt", "inside");
    DataBuffer data = bufferOf("new bytes");

    struct Case {
        const char* name;
        std::string path;
    };
    const Case cases[] = {
        {"empty path", ""},
        {"directory as file", path("dir")},
        {"through a regular file", path("keep.txt/x")},
        {"missing directory", path("nodir/f.bin")},
        {"name too long", path(std::string(300, 'L'))},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        XString p = X(c.path);
        EXPECT_CALL_FAILS(fa, fa.WriteEntireFile(p, data));
        EXPECT_TRUE(fa.lastErrorLog().hasErrors());
        EXPECT_NE(log.lastLine(), "Failed.") << "byte writes write no outcome line";

        // A failed read does not touch the caller's buffer.
        DataBuffer held = bufferOf("held");
        EXPECT_CALL_FAILS(fa, fa.ReadEntireFile(p, held));
        EXPECT_EQ(bytesOf(held), "held");

        XString text("stale");
        XString cs("utf-8");
        EXPECT_CALL_FAILS(fa, fa.ReadEntireTextFile(p, cs, text));
        EXPECT_TRUE(text.isEmpty());
        EXPECT_EQ(log.lastLine(), "Failed.");
    }
    EXPECT_EQ(readFile(path("keep.txt")), "keep");
    EXPECT_EQ(readFile(path("dir/inside.txt")), "inside");
    EXPECT_FALSE(fs::exists(path("nodir")));
}

TEST_F(WholeFileTest, ReplacingInAReadOnlyDirectoryKeepsTheOldFile) {
    if (runningAsRoot()) GTEST_SKIP() << "root may write into any directory";
    fs::create_directory(path("ro"));
    writeFile("ro/old.txt", "old content");
    ASSERT_EQ(chmod(path("ro").c_str(), 0555), 0);
    XString p = X(path("ro/old.txt")), text("new"), cs("utf-8");
    EXPECT_CALL_FAILS(fa, fa.WriteEntireTextFile(p, text, cs, false));
    EXPECT_EQ(readFile(path("ro/old.txt")), "old content");
    EXPECT_EQ(fs::directory_iterator(path("ro"))->path().filename(), "old.txt");
}

TEST_F(WholeFileTest, TextInEachCharsetWithAndWithoutPreamble) {
    struct Case {
        const char* charset;
        bool preamble;
        std::string bytes;
    };
    const std::string utf8 =
        "Gr\xC3\xBC\xC3\x9F"
        "e \xE2\x82\xAC";
    const std::string le("G\0r\0\xFC\0\xDF\0e\0 \0\xAC\x20", 14);
    const std::string be("\0G\0r\0\xFC\0\xDF\0e\0 \x20\xAC", 14);
    const Case cases[] = {
        {"utf-8", false, utf8},
        {"UTF-8", true, "\xEF\xBB\xBF" + utf8},
        {"utf-16", false, le},
        {"utf-16", true, "\xFF\xFE" + le},
        {"utf-16be", false, be},
        {"utf-16be", true, "\xFE\xFF" + be},
        {"windows-1252", false,
         "Gr\xFC\xDF"
         "e \x80"},
        {"windows-1252", true,
         "Gr\xFC\xDF"
         "e \x80"},
    };
    XString p = X(path("text.txt")), text(kText);
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.charset) + (c.preamble ? " with preamble" : ""));
        XString cs(c.charset);
        ASSERT_CALL_OK(fa, fa.WriteEntireTextFile(p, text, cs, c.preamble));
        EXPECT_EQ(readFile(path("text.txt")), c.bytes);
        EXPECT_EQ(log.value("numOutputBytes"), std::to_string(c.bytes.size()));

        XString back("stale");
        ASSERT_CALL_OK(fa, fa.ReadEntireTextFile(p, cs, back));
        EXPECT_STREQ(back.getUtf8(), kText);
        EXPECT_EQ(log.lastLine(), "Success.");
    }
}

TEST_F(WholeFileTest, TextWriteLogsItsValuesEvenWhenTheWriteFails) {
    XString p = X(path("empty.txt")), empty, cs("utf-8");
    ASSERT_CALL_OK(fa, fa.WriteEntireTextFile(p, empty, cs, false));
    EXPECT_EQ(log.valueNames(), (std::vector<std::string>{"filename", "charset", "includePreamble",
                                                          "numOutputBytes"}));
    EXPECT_EQ(log.value("filename"), p.getUtf8());
    EXPECT_EQ(log.value("charset"), "utf-8");
    EXPECT_EQ(log.value("includePreamble"), "0");
    EXPECT_EQ(log.value("numOutputBytes"), "0");
    EXPECT_EQ(readFile(path("empty.txt")), "");

    ASSERT_CALL_OK(fa, fa.WriteEntireTextFile(p, empty, cs, true));
    EXPECT_EQ(log.value("includePreamble"), "1");
    EXPECT_EQ(readFile(path("empty.txt")), "\xEF\xBB\xBF");
    XString ansi("windows-1252");
    ASSERT_CALL_OK(fa, fa.WriteEntireTextFile(p, empty, ansi, true));
    EXPECT_EQ(readFile(path("empty.txt")), "") << "no preamble for a single-byte charset";

    XString bad = X(path("missing/dir/f.txt")), text(kText);
    EXPECT_CALL_FAILS(fa, fa.WriteEntireTextFile(bad, text, cs, true));
    EXPECT_EQ(log.value("numOutputBytes"), "14");
    EXPECT_TRUE(fa.lastErrorLog().hasErrors());
    EXPECT_NE(log.lastLine(), "Failed.");
}

TEST_F(WholeFileTest, CharsetTroubleDoesNotFailTheCall) {
    // Text the charset cannot hold: the write still succeeds with whatever was encoded.
    XString p = X(path("partial.txt")), cjk("\xE6\x97\xA5\xE6\x9C\xAC"), latin("latin1");
    EXPECT_CALL_OK(fa, fa.WriteEntireTextFile(p, cjk, latin, false));
    EXPECT_TRUE(fs::exists(path("partial.txt")));

    // Bytes that are no valid UTF-8: the read succeeds, the text is not made up.
    writeFile("invalid.txt", "\xFF\xFE\xFD");
    XString inv = X(path("invalid.txt")), cs("utf-8"), out("stale");
    EXPECT_CALL_OK(fa, fa.ReadEntireTextFile(inv, cs, out));
    EXPECT_TRUE(out.isEmpty()) << out.getUtf8();
}

}  // namespace
