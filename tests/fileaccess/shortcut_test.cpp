// Shortcut (.lnk) reader and checker: real files made by Windows, and synthetic files cut or
// bent at each structure of the format.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "fileaccess/ClsFileAccess.h"
#include "support/TestSupport.h"

namespace {

using Strings = std::vector<std::string>;

// What every field holds before a read, to see which ones the read leaves alone.
const std::string U = "<untouched>";

// The failPoint a walk logged ("0" when none), failing the test if it logged more than one.
std::string failPointOf(const _ovLogger& log) {
    Strings found;
    for (const LogEntry& e : log.entries())
        if (e.name == "failPoint") found.push_back(e.text);
    EXPECT_LE(found.size(), 1u) << log.text();
    return found.empty() ? "0" : found[0];
}

struct Walk {
    std::string results;  // "read readFailPoint parseable checkFailPoint", e.g. "0 13 0 13"
    bool readSilent, checkSilent;
    Strings fields;  // name, relativePath, workingDir, arguments, icon
};

// Reads the file and checks it, each with its own log.
Walk walkBoth(const std::string& path) {
    XString p(path.c_str());
    _ovShortcutInfo info;
    XString* fields[] = {&info.name, &info.relativePath, &info.workingDir,
                         &info.commandLineArguments, &info.iconLocation};
    for (XString* f : fields) f->setFromUtf8(U.c_str());
    _ovLogger readLog, checkLog;
    const bool read = ClsFileAccess::readShortcut(p, info, readLog);
    const bool parseable = ClsFileAccess::parseableShortcut(p, checkLog);
    const std::string results = std::to_string(read) + " " + failPointOf(readLog) + " " +
                                std::to_string(parseable) + " " + failPointOf(checkLog);
    Walk r{results, readLog.entries().empty(), checkLog.entries().empty(), {}};
    for (XString* f : fields) r.fields.push_back(f->getUtf8());
    return r;
}

// Every real file in tests/data/lnk has a row in expected.tsv, whose strings were checked
// against the file's bytes; about 40% of them have the ID list or the LinkInfo flagged absent.
// Each file is named in one of the forms the reader completes to the file's path: ".lnk" is
// added when missing and trailing white space removed.
TEST(ShortcutRealFiles, EveryFileReadsToTheStringsItHolds) {
    std::ifstream tsv(testDataPath("lnk/expected.tsv"));
    std::set<std::string> listed;
    const char* forms[] = {".lnk", "", ".lnk  \t", " \n"};
    for (std::string line; std::getline(tsv, line);) {
        if (line.empty() || line[0] == '#') continue;
        const std::string name = line.substr(0, line.find('\t'));
        listed.insert(name);
        const std::string stem = name.substr(0, name.size() - 4), form = forms[listed.size() % 4];
        const Walk r = walkBoth(testDataPath("lnk/" + stem + form));
        std::string row = name + " " + r.results;
        std::replace(row.begin(), row.end(), ' ', '\t');
        for (const std::string& f : r.fields) row += "\t" + (f == U ? "-" : f);
        EXPECT_EQ(row, line) << "named as '" << stem + form << "'";
    }
    for (const auto& e : std::filesystem::directory_iterator(testDataPath("lnk")))
        EXPECT_TRUE(e.path().extension() != ".lnk" || listed.count(e.path().filename())) << e;
    // A missing file: false and no failPoint; the reader logs the load's own message, the
    // checker stops at the size test without a word.
    const Walk r = walkBoth(testDataPath("lnk/gone"));
    EXPECT_TRUE(r.results == "0 0 0 0" && !r.readSilent && r.checkSilent) << r.results;
}

const auto le16 = [](unsigned v) { return std::string{char(v & 0xFF), char((v >> 8) & 0xFF)}; };
const auto le32 = [](unsigned v) { return le16(v & 0xFFFF) + le16(v >> 16); };

constexpr unsigned kIdList = 0x1, kLinkInfo = 0x2, kName = 0x4, kUnicode = 0x80;

// A shortcut built field by field. Each field remembers where it ends and the failPoint the
// reader and the checker report when the file is cut inside it (0: that walk does not read
// the field, so the cut shows at the walk's next read).
struct Lnk {
    struct Field {
        size_t end;
        int readFail, checkFail;
    };

    explicit Lnk(unsigned flagBits, unsigned headerSize = 76) : flags(flagBits) {
        put(le32(headerSize), 1, 1);
        put(std::string(16, '\x01'), 2, 0);  // LinkCLSID
        put(le32(flags), 3, 3);
        // Attributes, three time stamps, file size, icon index, show command, hot key.
        const size_t sizes[] = {4, 8, 8, 8, 4, 4, 4, 2};
        for (int i = 0; i < 8; ++i) put(std::string(sizes[i], '\x07'), 4 + i, 0);
        put(std::string(10, '\0'), 0, 0);  // reserved
    }
    // Items given by their data; each is written with its size word and the list ends in 0.
    Lnk& idList(const Strings& items) {
        unsigned total = 2;
        for (const std::string& i : items) total += 2 + unsigned(i.size());
        put(le16(total), 12, 12);
        for (const std::string& i : items) put(le16(2 + unsigned(i.size())), 13, 13).put(i, 14, 0);
        return put(le16(0), 13, 13);
    }
    Lnk& linkInfo(unsigned size) {
        return put(le32(size), 15, 15).put(std::string(size - 4, 'i'), 0, 0);
    }
    // slot 0..4 in file order; text is Latin-1, written as UTF-16LE or ANSI per the flags.
    Lnk& string(int slot, const std::string& text) {
        std::string chars;
        for (unsigned char c : text) chars += flags & kUnicode ? le16(c) : std::string(1, c);
        return put(le16(unsigned(text.size())), 16 + 2 * slot, 16 + 2 * slot)
            .put(chars, 17 + 2 * slot, 0);
    }
    Lnk& block(unsigned size, int count = 1) {
        for (int i = 0; i < count; ++i)
            put(le32(size), 13, 13).put(std::string(size - 4, 'x'), 0, 0);
        return *this;
    }
    // One block and a terminal block that end the file at exactly `total` bytes.
    Lnk& fillTo(size_t total) { return block(unsigned(total - bytes.size() - 4)).terminal(); }
    Lnk& terminal(unsigned value = 0) { return put(le32(value), 13, 13); }
    Lnk& raw(const std::string& bytes) { return put(bytes, 0, 0); }

    Lnk& put(const std::string& b, int readFail, int checkFail) {
        bytes += b;
        fields.push_back({bytes.size(), readFail, checkFail});
        return *this;
    }

    unsigned flags;
    std::string bytes;
    std::vector<Field> fields;
};

using ShortcutSynthetic = TempDirTest;

// The strings of the full synthetic file, as Latin-1 and as the UTF-8 they read back as from
// UTF-16; as ANSI (code page 1252) 0x80 and 0x9F are the euro sign and Y with diaeresis.
const Strings kTexts = {"Caf\xE9 name", "..\\rel\\a.txt", "C:\\w\xF6rk", "-x \"y\"",
                        "i.dll,3 \x80\x9F"};
const Strings kTextsUtf8 = {"Café name", "..\\rel\\a.txt", "C:\\wörk", "-x \"y\"",
                            "i.dll,3 \xC2\x80\xC2\x9F"};

Lnk fullFile(unsigned flags) {
    Lnk b(flags);
    if (flags & kIdList) b.idList({"item-one", std::string(300, 'z')});
    if (flags & kLinkInfo) b.linkInfo(28);
    for (int i = 0; i < 5; ++i) b.string(i, kTexts[i]);
    return b.block(12).block(8).terminal();
}

// In each layout the three layout bits give (ID list, LinkInfo, UTF-16 or ANSI strings), the
// whole file reads and every cut of it fails with the failPoint of the field the cut falls in
// (inside each string among them); the strings read before the cut are set, the rest kept.
TEST_F(ShortcutSynthetic, EveryLayoutAndEveryCutOfIt) {
    for (unsigned layout = 0; layout < 8; ++layout) {
        const unsigned flags = 0x7C | (layout & 1 ? kIdList : 0) | (layout & 2 ? kLinkInfo : 0) |
                               (layout & 4 ? kUnicode : 0);
        Strings texts = kTextsUtf8;
        if (!(flags & kUnicode)) texts[4] = "i.dll,3 €Ÿ";
        const Lnk b = fullFile(flags);
        const Walk whole = walkBoth(writeFile("s.lnk", b.bytes));
        ASSERT_EQ(whole.results + " " + testing::PrintToString(whole.fields),
                  "1 0 1 0 " + testing::PrintToString(texts))
            << flags;
        for (size_t len = 0; len < b.bytes.size(); ++len) {
            SCOPED_TRACE("flags " + std::to_string(flags) + ", cut at " + std::to_string(len));
            int readFail = 0, checkFail = 0;
            Strings fields(5, U);
            for (const Lnk::Field& f : b.fields) {
                const int slot = (f.readFail - 17) / 2;  // of a string's characters
                if (f.end <= len && f.readFail >= 17 && f.readFail % 2) fields[slot] = texts[slot];
                if (f.end > len && !readFail) readFail = f.readFail;
                if (f.end > len && !checkFail) checkFail = f.checkFail;
            }
            const Walk r = walkBoth(writeFile("s.lnk", b.bytes.substr(0, len)));
            EXPECT_EQ(r.results,
                      "0 " + std::to_string(readFail) + " 0 " + std::to_string(checkFail));
            EXPECT_EQ(r.fields, fields);
            if (::testing::Test::HasFailure()) return;
        }
    }
}

// Files bent at one structure each. The checker wants a 76-byte header and at most 100,000
// bytes and refuses others without a word; the reader takes both.
TEST_F(ShortcutSynthetic, EdgeFiles) {
    const unsigned kN = kName | kUnicode;
    const auto named = [&](unsigned headerSize = 76) { return Lnk(kN, headerSize).string(0, "n"); };
    const std::string item = le16(7) + "abcde";
    std::string text40k;
    for (int i = 0; i < 40000; ++i) text40k += char('a' + i % 26);
    const struct {
        const char* what;
        Lnk file;
        const char* results;
        std::string name = "n";
    } cases[] = {
        // The extra-data walk ends at a terminal block (any size below 4) or after 500 blocks.
        {"no extra data", named(), "0 13 0 13"},
        {"499 blocks, no terminal", named().block(8, 499), "0 13 0 13"},
        {"500 blocks, no terminal", named().block(8, 500), "1 0 1 0"},
        {"600 blocks, no terminal", named().block(8, 600), "1 0 1 0"},
        {"terminal 3, then junk", named().block(8, 3).terminal(3).raw("\xFF\xFF\xFF\xFF\xFF"),
         "1 0 1 0"},
        {"block past the end", named().raw(le32(0xFFFFFF00)).terminal(), "0 13 0 13"},
        {"header size 80", named(80).terminal(), "1 0 0 0"},
        {"exactly 100,000 bytes", named().fillTo(100000), "1 0 1 0"},
        {"100,001 bytes", named().fillTo(100001), "1 0 0 0"},
        {"empty name", Lnk(kN).string(0, "").terminal(), "1 0 1 0", ""},
        {"40,000 characters", Lnk(kN).string(0, text40k).terminal(), "1 0 1 0", text40k},
        // Item size 1: the reader asks for 2^32 - 1 bytes and fails; the checker steps one
        // byte back, reads the size 0 made of that byte and the next, and goes on.
        {"ID list item size 1", Lnk(kIdList | kUnicode).raw(le16(3) + le16(1) + '\0').terminal(),
         "0 14 1 0", U},
        {"LinkInfo past the end",
         Lnk(kN | kLinkInfo).raw(le32(0x7FFFFFFF)).string(0, "n").terminal(), "0 16 0 16", U},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const Walk r = walkBoth(writeFile("s.lnk", c.file.bytes));
        EXPECT_EQ(r.results, c.results);
        EXPECT_EQ(r.fields[0], c.name);
        EXPECT_TRUE(!r.results.ends_with(" 0 0") || r.checkSilent) << "refused without a word";
    }
    // The ID list ends at an item size of 0 (list size 9), when the items have used up
    // IDListSize (7), with less than 2 bytes left (8), also when an item claims more (3).
    for (unsigned listSize : {9u, 7u, 8u, 3u}) {
        Lnk b(kN | kIdList);
        b.raw(le16(listSize) + item + (listSize == 9 ? le16(0) : "")).string(0, "n").terminal();
        const Walk r = walkBoth(writeFile("s.lnk", b.bytes));
        EXPECT_EQ(r.results + " " + r.fields[0], "1 0 1 0 n") << listSize;
    }
}

}  // namespace
