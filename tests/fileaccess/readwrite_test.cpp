// Reads, writes, appends, seeks and truncation on the current file.
#include <functional>
#include <string>
#include <vector>

#include "fileaccess/ClsFileAccess.h"
#include "support/TestSupport.h"

namespace {

DataBuffer dbOf(const std::string& s) {
    DataBuffer db;
    db.append(s.data(), static_cast<unsigned>(s.size()));
    return db;
}

class ReadWriteTest : public TempDirTest {
protected:
    // Opens a file holding `content` for reading and writing; returns its path.
    std::string openWith(const std::string& content, const std::string& name = "f.bin") {
        std::string p = writeFile(name, content);
        XString xp(p.c_str());
        EXPECT_CALL_OK(fa, fa.OpenForReadWrite(xp));
        return p;
    }
    std::string readNext(unsigned n) {
        DataBuffer out;
        EXPECT_CALL_OK(fa, fa.FileRead(n, out));
        return bytesOf(out);
    }

    ClsFileAccess fa;
};

TEST_F(ReadWriteTest, EndOfFileFollowsEachReadAndNothingElse) {
    const std::string p = openWith("abcd");
    EXPECT_EQ(readNext(10), "abcd");
    EXPECT_TRUE(fa.get_EndOfFile());
    EXPECT_EQ(readNext(10), "");
    EXPECT_TRUE(fa.get_EndOfFile());

    // Seeks, writes, appends, truncation and a zero-byte read leave the flag alone.
    ASSERT_CALL_OK(fa, fa.FileSeek(0, 0));
    EXPECT_TRUE(fa.get_EndOfFile());
    DataBuffer zero = dbOf("Z");
    ASSERT_CALL_OK(fa, fa.FileWrite(zero));
    ASSERT_CALL_OK(fa, fa.AppendUtf8BOM());
    ASSERT_CALL_OK(fa, fa.Truncate());
    DataBuffer out = dbOf("keep");
    ASSERT_CALL_OK(fa, fa.FileRead(0, out));
    EXPECT_TRUE(fa.get_EndOfFile());
    EXPECT_TRUE(fa.lastErrorLog().contains("Requested number of bytes is zero"));
    EXPECT_EQ(bytesOf(out), "");  // FileRead empties its output even then
    EXPECT_EQ(readFile(p), "Z\xEF\xBB\xBF");

    // A read that delivers exactly what is left has not seen the end yet.
    ASSERT_CALL_OK(fa, fa.FileSeek(1, 0));
    EXPECT_EQ(readNext(3), "\xEF\xBB\xBF");
    EXPECT_FALSE(fa.get_EndOfFile());
}

TEST_F(ReadWriteTest, ReadsFillOrAppendToTheirOutput) {
    openWith("0123456789");
    DataBuffer out = dbOf("old");
    ASSERT_CALL_OK(fa, fa.FileRead(3, out));
    EXPECT_EQ(bytesOf(out), "012");

    ClsBinData bd;
    bd.m_data.append("pre-", 4);
    ASSERT_CALL_OK(fa, fa.FileReadBd(2, bd));
    ASSERT_CALL_OK(fa, fa.FileReadBd(3, bd));
    EXPECT_EQ(bytesOf(bd.m_data), "pre-34567");

    // The internal read appends too, and logs into the log it is given.
    _ovLogger log;
    ASSERT_TRUE(fa.fileReadDb(10, out, log));
    EXPECT_EQ(bytesOf(out), "01289");
    EXPECT_TRUE(fa.get_EndOfFile());
    EXPECT_TRUE(fa.fileReadDb(0, out, log));
    EXPECT_TRUE(log.contains("Requested number of bytes is zero"));
    EXPECT_EQ(bytesOf(out), "01289");
}

TEST_F(ReadWriteTest, FailedReadsLeaveTheBufferAsItWas) {
    ClsBinData bd;
    bd.m_data.append("held", 4);
    // No file open: the handle refuses.
    EXPECT_CALL_FAILS(fa, fa.FileReadBd(4, bd));
    EXPECT_EQ(bytesOf(bd.m_data), "held");

    // A negative count asks for nearly 4 GiB: with the bytes held and the spare room the
    // total passes the 32-bit range, so nothing is reserved and nothing read.
    openWith("abc");
    EXPECT_CALL_FAILS(fa, fa.FileReadBd(-1, bd));
    EXPECT_TRUE(fa.lastErrorLog().contains("Memory allocation failed."));
    EXPECT_TRUE(fa.lastErrorLog().contains("1085"));
    EXPECT_EQ(bytesOf(bd.m_data), "held");
    EXPECT_FALSE(fa.get_EndOfFile());

    DataBuffer out;
    EXPECT_CALL_FAILS(fa, fa.FileRead(0xFFFFFFE0u, out));
    EXPECT_EQ(readNext(3), "abc");  // the position did not move
}

TEST_F(ReadWriteTest, FileWriteBdWritesTheSliceAsked) {
    struct Case {
        int offset, count;
        bool ok;
        std::string written;
    };
    const std::vector<Case> cases = {
        {2, 0, true, "23456789"}, {2, 100, true, "23456789"}, {2, 3, true, "234"},
        {9, 1, true, "9"},        {-5, 2, true, "01"},        {0, -1, true, "0123456789"},
        {0, 10, true, "0123456789"}, {10, 0, false, ""},      {11, 1, false, ""},
    };
    ClsBinData bd;
    bd.m_data.append("0123456789", 10);
    for (size_t i = 0; i < cases.size(); ++i) {
        const Case& c = cases[i];
        SCOPED_TRACE(std::to_string(c.offset) + "," + std::to_string(c.count));
        const std::string p = openWith("", "slice" + std::to_string(i));
        EXPECT_EQ(fa.FileWriteBd(bd, c.offset, c.count), c.ok) << lastLog(fa);
        EXPECT_FALSE(fa.lastErrorLog().hasErrors()) << lastLog(fa);
        fa.FileClose();
        EXPECT_EQ(readFile(p), c.written);
    }
}

TEST_F(ReadWriteTest, WritesWithNoFileOpenFailAlike) {
    XString text("t"), utf8("utf-8");
    ClsStringBuilder sb;
    sb.m_str.setFromUtf8("t");
    ClsBinData bd;
    bd.m_data.append("b", 1);
    DataBuffer db = dbOf("d");
    const std::vector<std::pair<const char*, std::function<bool()>>> calls = {
        {"FileWrite", [&] { return fa.FileWrite(db); }},
        {"FileWrite2", [&] { return fa.FileWrite2(db); }},
        {"FileWriteBd", [&] { return fa.FileWriteBd(bd, 0, 0); }},
        {"AppendText", [&] { return fa.AppendText(text, utf8); }},
        {"AppendAnsi", [&] { return fa.AppendAnsi(text); }},
        {"AppendSb", [&] { return fa.AppendSb(sb, utf8); }},
        {"AppendBd", [&] { return fa.AppendBd(bd); }},
        {"AppendUtf8BOM", [&] { return fa.AppendUtf8BOM(); }},
        {"AppendUnicodeBOM", [&] { return fa.AppendUnicodeBOM(); }},
        {"Truncate", [&] { return fa.Truncate(); }},
    };
    for (const auto& [name, call] : calls) {
        SCOPED_TRACE(name);
        EXPECT_FALSE(call());
        const auto& entries = fa.lastErrorLog().entries();
        ASSERT_FALSE(entries.empty());
        EXPECT_EQ(entries.front().name, name);
        EXPECT_TRUE(fa.lastErrorLog().contains("File not open")) << lastLog(fa);
        EXPECT_FALSE(fa.lastErrorLog().contains("Failed.")) << lastLog(fa);
    }
    // An empty slice is refused before the file is looked at.
    ClsBinData empty;
    EXPECT_FALSE(fa.FileWriteBd(empty, 0, 0));
    EXPECT_FALSE(fa.lastErrorLog().contains("File not open")) << lastLog(fa);
    EXPECT_FALSE(fa.FileSeek(0, 0));
}

TEST_F(ReadWriteTest, AppendsWriteAtThePositionInTheirCharset) {
    XString utf8("utf-8"), utf16("utf-16");
    XString text("h\xC3\xA9");  // "hé"
    ClsStringBuilder sb;
    sb.m_str.setFromUtf8("\xE2\x82\xAC!");  // "€!"

    std::string p = openWith("");
    ASSERT_CALL_OK(fa, fa.AppendUtf8BOM());
    ASSERT_CALL_OK(fa, fa.AppendText(text, utf8));
    fa.FileClose();
    EXPECT_EQ(readFile(p), "\xEF\xBB\xBFh\xC3\xA9");

    p = openWith("", "u16");
    ASSERT_CALL_OK(fa, fa.AppendUnicodeBOM());
    fa.FileClose();
    EXPECT_EQ(readFile(p), "\xFF\xFE");

    p = openWith("", "mixed");
    ASSERT_CALL_OK(fa, fa.AppendText(text, utf16));
    ASSERT_CALL_OK(fa, fa.AppendSb(sb, utf8));
    ASSERT_CALL_OK(fa, fa.AppendSb(sb, utf16));
    ASSERT_CALL_OK(fa, fa.AppendAnsi(text));
    ClsBinData bd;
    bd.m_data.append("\x00\x01", 2);
    ASSERT_CALL_OK(fa, fa.AppendBd(bd));
    fa.FileClose();
    EXPECT_EQ(readFile(p), std::string("h\0\xE9\0", 4) + "\xE2\x82\xAC!" +
                               std::string("\xAC\x20!\0", 4) + "h\xE9" +
                               std::string("\x00\x01", 2));

    // Appending does not move to the end first.
    p = openWith("abcdef", "overwrite");
    ASSERT_CALL_OK(fa, fa.FileSeek(1, 0));
    ASSERT_CALL_OK(fa, fa.AppendSb(sb, utf8));
    fa.FileClose();
    EXPECT_EQ(readFile(p), "a\xE2\x82\xAC!f");
}

TEST_F(ReadWriteTest, SeekOriginsPlaceThePosition) {
    struct Case {
        int firstOffset, firstOrigin, offset, origin;
        std::string next;
    };
    const std::vector<Case> cases = {
        {0, 0, 3, 0, "3"},  {0, 0, 4, 7, "4"},  {0, 0, 5, -1, "5"}, {4, 0, 2, 1, "6"},
        {6, 0, -3, 1, "3"}, {0, 0, 0, 2, ""},   {0, 0, -2, 2, "8"}, {2, 1, 1, 1, "3"},
    };
    openWith("0123456789");
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.offset) + " from " + std::to_string(c.origin));
        ASSERT_CALL_OK(fa, fa.FileSeek(0, 0));
        ASSERT_CALL_OK(fa, fa.FileSeek(c.firstOffset, c.firstOrigin));
        ASSERT_CALL_OK(fa, fa.FileSeek(c.offset, c.origin));
        EXPECT_EQ(readNext(1), c.next);
    }
    EXPECT_CALL_FAILS(fa, fa.FileSeek(-1, 0));
}

TEST_F(ReadWriteTest, TruncateCutsAtThePosition) {
    const std::string p = openWith("0123456789");
    ASSERT_CALL_OK(fa, fa.FileSeek(3, 0));
    ASSERT_CALL_OK(fa, fa.Truncate());
    EXPECT_EQ(readFile(p), "012");
    EXPECT_FALSE(fa.lastErrorLog().hasErrors());

    EXPECT_EQ(readNext(1), "");
    ASSERT_CALL_OK(fa, fa.FileSeek(1, 0));
    EXPECT_EQ(readNext(1), "1");
    ASSERT_CALL_OK(fa, fa.Truncate());
    EXPECT_EQ(readFile(p), "01");
}

}  // namespace
