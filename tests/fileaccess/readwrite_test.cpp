// Reads, writes, appends, seeks and truncation on the current file.
#include <functional>
#include <tuple>
#include <utility>

#include "fileaccess/LogProbe.h"

namespace {

class ReadWriteTest : public FileAccessTest {
  protected:
    // Opens a file holding `content` for reading and writing; returns its path.
    std::string openWith(const std::string& content) {
        XString p(writeFile("f.bin", content).c_str());
        EXPECT_CALL_OK(fa, fa.OpenForReadWrite(p));
        return p.getUtf8();
    }
    std::string readNext(unsigned n) {
        DataBuffer out;
        EXPECT_CALL_OK(fa, fa.FileRead(n, out));
        return bytesOf(out);
    }
};

// Reads replace (FileRead) or extend (FileReadBd, fileReadDb) their output and set the
// end-of-file flag; failed reads keep the buffer; seeks, writes and truncation keep the flag.
// Seeks go from position 4; origins other than 1 (current) and 2 (end) count from the start.
TEST_F(ReadWriteTest, ReadsSeeksAndTruncation) {
    const std::tuple<int, int, const char*> seeks[] = {{3, 0, "3"}, {5, 7, "5"},  {5, -1, "5"},
                                                       {2, 1, "6"}, {-3, 1, "1"}, {0, 2, ""},
                                                       {-2, 2, "8"}};
    ClsBinData bd;
    bd.m_data.append("pre-", 4);
    EXPECT_CALL_FAILS(fa, fa.FileReadBd(4, bd));  // no file open
    const std::string p = openWith("0123456789");
    for (const auto& [offset, origin, next] : seeks) {
        SCOPED_TRACE(std::to_string(offset) + " from " + std::to_string(origin));
        ASSERT_CALL_OK(fa, fa.FileSeek(4, 0));
        ASSERT_CALL_OK(fa, fa.FileSeek(offset, origin));
        EXPECT_EQ(readNext(1), next);
    }
    EXPECT_CALL_FAILS(fa, fa.FileSeek(-1, 0));
    ASSERT_CALL_OK(fa, fa.FileSeek(0, 0));
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
    ASSERT_CALL_OK(fa, fa.FileSeek(4, 0));
    ASSERT_CALL_OK(fa, fa.AppendUtf8BOM());  // over "456", then cut behind it
    ASSERT_CALL_OK(fa, fa.Truncate());
    ASSERT_CALL_OK(fa, fa.FileRead(0, out));
    EXPECT_TRUE(fa.lastErrorLog().contains("Requested number of bytes is zero"));
    EXPECT_EQ(bytesOf(out), "");
    EXPECT_TRUE(fa.get_EndOfFile());
    EXPECT_EQ(readFile(p), "0123\xEF\xBB\xBF");
}

// Each slice (empty when refused) is appended to one file; an empty object is refused silently,
// before the file is even looked at.
TEST_F(ReadWriteTest, FileWriteBdWritesTheSliceAsked) {
    const std::tuple<int, int, std::string> cases[] = {
        {2, 0, "23456789"}, {2, 100, "23456789"},  {2, 3, "234"}, {9, 1, "9"},
        {-5, 2, "01"},      {0, -1, "0123456789"}, {10, 0, ""},   {11, 1, ""}};
    ClsBinData bd, empty;
    bd.m_data.append("0123456789", 10);
    const std::string p = openWith("");
    std::string expected;
    for (const auto& [offset, count, written] : cases) {
        SCOPED_TRACE(std::to_string(offset) + "," + std::to_string(count));
        EXPECT_EQ(fa.FileWriteBd(bd, offset, count), !written.empty()) << lastLog(fa);
        EXPECT_FALSE(fa.lastErrorLog().hasErrors()) << lastLog(fa);
        EXPECT_EQ(readFile(p), expected += written);
    }
    EXPECT_FALSE(fa.FileWriteBd(empty, 0, 0) || fa.lastErrorLog().hasErrors()) << lastLog(fa);
}

// With no file open every write is refused by its own frame without a failure line; with one
// open, each writes at the current position (not the end) in its charset.
TEST_F(ReadWriteTest, WritesAndAppendsNeedAFileAndWriteAtThePosition) {
    XString utf8("utf-8"), utf16("utf-16"), utf16Alias("UTF16"), text("h\xC3\xA9");  // "hé"
    ClsStringBuilder sb;
    sb.m_str.setFromUtf8("\xE2\x82\xAC!");  // "€!"
    ClsBinData bd;
    bd.m_data.append("\x00\x01", 2);
    const std::vector<std::pair<const char*, std::function<bool()>>> calls = {
        {"AppendUtf8BOM", [&] { return fa.AppendUtf8BOM(); }},
        {"AppendUnicodeBOM", [&] { return fa.AppendUnicodeBOM(); }},
        {"AppendText", [&] { return fa.AppendText(text, utf8); }},
        {"AppendText", [&] { return fa.AppendText(text, utf16); }},
        {"AppendText", [&] { return fa.AppendText(text, utf16Alias); }},
        {"AppendSb", [&] { return fa.AppendSb(sb, utf8); }},
        {"AppendSb", [&] { return fa.AppendSb(sb, utf16); }},
        {"AppendAnsi", [&] { return fa.AppendAnsi(text); }},
        {"AppendBd", [&] { return fa.AppendBd(bd); }},
        {"FileWrite", [&] { return fa.FileWrite(bd.m_data); }},
        {"FileWrite2", [&] { return fa.FileWrite2(bd.m_data); }},
        {"FileWriteBd", [&] { return fa.FileWriteBd(bd, 1, 1); }}};
    for (const auto& [name, call] : calls) {
        EXPECT_FALSE(call()) << name;  // the log shows the name on the other failures
        EXPECT_EQ(fa.lastErrorLog().entries().at(0).name, name);
        EXPECT_EQ(lastLine(), "File not open") << lastLog(fa);  // and no failure line
    }
    std::string p = openWith("abcdefghijklmnopqrstuvwxyz0123456789");
    ASSERT_CALL_OK(fa, fa.FileSeek(1, 0));
    for (const auto& [name, call] : calls) EXPECT_CALL_OK(fa, call()) << name;
    fa.FileClose();
    EXPECT_EQ(readFile(p), "a\xEF\xBB\xBF\xFF\xFEh\xC3\xA9" + std::string("h\0\xE9\0h\0\xE9\0", 8) +
                               "\xE2\x82\xAC!" + std::string("\xAC\x20!\0", 4) + "h\xE9" +
                               std::string("\0\1\0\1\0\1\1", 7) + "89");
}

}  // namespace
