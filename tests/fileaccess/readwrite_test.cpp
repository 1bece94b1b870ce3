// Reads, writes, appends, seeks and truncation on the current file.
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "fileaccess/ClsFileAccess.h"
#include "support/TestSupport.h"

namespace {

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

// Reads replace (FileRead) or extend (FileReadBd, fileReadDb) their output and set the
// end-of-file flag; failed reads keep the buffer; seeks, writes and truncation keep the flag.
TEST_F(ReadWriteTest, ReadsFillTheirOutputAndAloneMoveTheEndOfFileFlag) {
    ClsBinData bd;
    bd.m_data.append("pre-", 4);
    EXPECT_CALL_FAILS(fa, fa.FileReadBd(4, bd));  // no file open
    const std::string p = openWith("0123456789");
    DataBuffer out;
    out.append("old", 3);
    ASSERT_CALL_OK(fa, fa.FileRead(3, out));
    ASSERT_CALL_OK(fa, fa.FileReadBd(2, bd));
    _ovLogger log;
    ASSERT_TRUE(fa.fileReadDb(2, out, log));
    EXPECT_EQ(bytesOf(out), "01256");
    // A negative count asks for nearly 4 GiB: past the 32-bit range with what is held, so
    // nothing is reserved, nothing read, and the position stays.
    EXPECT_CALL_FAILS(fa, fa.FileReadBd(-1, bd));
    EXPECT_TRUE(fa.lastErrorLog().contains("Memory allocation failed."));
    EXPECT_EQ(bytesOf(bd.m_data), "pre-34");
    EXPECT_CALL_FAILS(fa, fa.FileRead(0xFFFFFFE0u, out));
    EXPECT_EQ(readNext(3), "789");  // exactly what is left: the end is not seen yet
    EXPECT_FALSE(fa.get_EndOfFile());
    EXPECT_EQ(readNext(3), "");
    EXPECT_TRUE(fa.get_EndOfFile());
    ASSERT_CALL_OK(fa, fa.FileSeek(8, 0));
    ASSERT_CALL_OK(fa, fa.AppendUtf8BOM());
    ASSERT_CALL_OK(fa, fa.Truncate());
    ASSERT_CALL_OK(fa, fa.FileRead(0, out));
    EXPECT_TRUE(fa.lastErrorLog().contains("Requested number of bytes is zero"));
    EXPECT_EQ(bytesOf(out), "");
    EXPECT_TRUE(fa.get_EndOfFile());
    EXPECT_EQ(readFile(p), "01234567\xEF\xBB\xBF");
}

TEST_F(ReadWriteTest, FileWriteBdWritesTheSliceAsked) {
    const struct {
        int offset, count;
        bool ok;
        const char* written;
    } cases[] = {{2, 0, true, "23456789"}, {2, 100, true, "23456789"}, {2, 3, true, "234"},
                 {9, 1, true, "9"},        {-5, 2, true, "01"},        {0, -1, true, "0123456789"},
                 {10, 0, false, ""},       {11, 1, false, ""}};
    ClsBinData bd, empty;
    bd.m_data.append("0123456789", 10);
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.offset) + "," + std::to_string(c.count));
        const std::string p =
            openWith("", std::to_string(c.offset) + "," + std::to_string(c.count));
        EXPECT_EQ(fa.FileWriteBd(bd, c.offset, c.count), c.ok) << lastLog(fa);
        EXPECT_FALSE(fa.lastErrorLog().hasErrors()) << lastLog(fa);
        fa.FileClose();
        EXPECT_EQ(readFile(p), c.written);
    }
    // An empty object is refused silently, before the file is even looked at.
    EXPECT_FALSE(fa.FileWriteBd(empty, 0, 0));
    EXPECT_FALSE(fa.lastErrorLog().hasErrors()) << lastLog(fa);
}

// With no file open every write is refused by its own frame without a failure line; with one
// open, each writes at the current position (not the end) in its charset.
TEST_F(ReadWriteTest, WritesAndAppendsNeedAFileAndWriteAtThePosition) {
    XString utf8("utf-8"), utf16("utf-16"), text("h\xC3\xA9");  // "hé"
    ClsStringBuilder sb;
    sb.m_str.setFromUtf8("\xE2\x82\xAC!");  // "€!"
    ClsBinData bd;
    bd.m_data.append("\x00\x01", 2);
    DataBuffer db;
    db.append("d", 1);
    const std::vector<std::pair<const char*, std::function<bool()>>> calls = {
        {"AppendUtf8BOM", [&] { return fa.AppendUtf8BOM(); }},
        {"AppendUnicodeBOM", [&] { return fa.AppendUnicodeBOM(); }},
        {"AppendText", [&] { return fa.AppendText(text, utf8); }},
        {"AppendText", [&] { return fa.AppendText(text, utf16); }},
        {"AppendSb", [&] { return fa.AppendSb(sb, utf8); }},
        {"AppendSb", [&] { return fa.AppendSb(sb, utf16); }},
        {"AppendAnsi", [&] { return fa.AppendAnsi(text); }},
        {"AppendBd", [&] { return fa.AppendBd(bd); }},
        {"FileWrite", [&] { return fa.FileWrite(db); }},
        {"FileWrite2", [&] { return fa.FileWrite2(db); }},
        {"FileWriteBd", [&] { return fa.FileWriteBd(bd, 1, 1); }}};
    for (const auto& [name, call] : calls) {
        SCOPED_TRACE(name);
        EXPECT_FALSE(call());
        EXPECT_EQ(fa.lastErrorLog().entries().at(0).name, name);
        EXPECT_TRUE(fa.lastErrorLog().contains("File not open")) << lastLog(fa);
        EXPECT_FALSE(fa.lastErrorLog().contains("Failed.")) << lastLog(fa);
    }
    std::string p = openWith("abcdefghijklmnopqrstuvwxyz0123");
    ASSERT_CALL_OK(fa, fa.FileSeek(1, 0));
    for (const auto& [name, call] : calls) EXPECT_CALL_OK(fa, call()) << name;
    fa.FileClose();
    EXPECT_EQ(readFile(p), "a\xEF\xBB\xBF\xFF\xFEh\xC3\xA9" + std::string("h\0\xE9\0", 4) +
                               "\xE2\x82\xAC!" + std::string("\xAC\x20!\0", 4) + "h\xE9" +
                               std::string("\x00\x01", 2) + "dd\x01" + "23");
}

TEST_F(ReadWriteTest, SeekOriginsPlaceThePositionAndTruncateCutsThere) {
    const struct {
        int firstOffset, firstOrigin, offset, origin;
        const char* next;
    } cases[] = {{0, 0, 3, 0, "3"},  {0, 0, 4, 7, "4"}, {0, 0, 5, -1, "5"}, {4, 0, 2, 1, "6"},
                 {6, 0, -3, 1, "3"}, {0, 0, 0, 2, ""},  {0, 0, -2, 2, "8"}, {2, 1, 1, 1, "3"}};
    const std::string p = openWith("0123456789");
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.offset) + " from " + std::to_string(c.origin));
        ASSERT_CALL_OK(fa, fa.FileSeek(0, 0));
        ASSERT_CALL_OK(fa, fa.FileSeek(c.firstOffset, c.firstOrigin));
        ASSERT_CALL_OK(fa, fa.FileSeek(c.offset, c.origin));
        EXPECT_EQ(readNext(1), c.next);
    }
    EXPECT_CALL_FAILS(fa, fa.FileSeek(-1, 0));
    ASSERT_CALL_OK(fa, fa.FileSeek(3, 0));
    ASSERT_CALL_OK(fa, fa.Truncate());
    EXPECT_EQ(readFile(p), "012");
    EXPECT_EQ(readNext(1), "");
    ASSERT_CALL_OK(fa, fa.FileSeek(1, 0));
    ASSERT_CALL_OK(fa, fa.Truncate());
    EXPECT_EQ(readFile(p), "0");
}

}  // namespace
