// Shortcut (.lnk) reader and checker: real files made by Windows, and synthetic files cut or
// bent at each structure of the format.
#include <cstdlib>
#include <string>
#include <vector>

#include "fileaccess/ClsFileAccess.h"
#include "support/TestSupport.h"

namespace {

// What the tests put in every field first, to see which ones a read leaves alone.
constexpr const char* kUntouched = "<untouched>";

_ovShortcutInfo sentinelInfo() {
    _ovShortcutInfo info;
    for (XString* f : {&info.name, &info.relativePath, &info.workingDir, &info.commandLineArguments,
                       &info.iconLocation})
        f->setFromUtf8(kUntouched);
    return info;
}

std::vector<std::string> fieldsOf(const _ovShortcutInfo& info) {
    return {info.name.getUtf8(), info.relativePath.getUtf8(), info.workingDir.getUtf8(),
            info.commandLineArguments.getUtf8(), info.iconLocation.getUtf8()};
}

// The failPoint a walk logged (0 when none), failing the test if it logged more than one.
int failPointOf(const _ovLogger& log) {
    int found = 0, count = 0;
    for (const LogEntry& e : log.entries()) {
        if (e.name != "failPoint") continue;
        found = std::atoi(e.text.c_str());
        ++count;
    }
    EXPECT_LE(count, 1) << log.text();
    return found;
}

struct WalkResult {
    bool read;
    int readFailPoint;
    bool parseable;
    int checkFailPoint;
    std::vector<std::string> fields;
};

WalkResult walkBoth(const std::string& path) {
    XString p(path.c_str());
    _ovShortcutInfo info = sentinelInfo();
    _ovLogger readLog, checkLog;
    WalkResult r;
    r.read = ClsFileAccess::readShortcut(p, info, readLog);
    r.readFailPoint = failPointOf(readLog);
    r.parseable = ClsFileAccess::parseableShortcut(p, checkLog);
    r.checkFailPoint = failPointOf(checkLog);
    r.fields = fieldsOf(info);
    return r;
}

// ----- real files -----

struct RealCase {
    const char* file;
    bool read;
    int readFailPoint;
    bool parseable;
    int checkFailPoint;
    std::vector<std::string> fields;  // name, relativePath, workingDir, arguments, icon
};

const std::string U = kUntouched;

// Expected strings taken from the files' bytes. Files named bits-* have the ID list and/or
// the LinkInfo flagged absent; a walk that ignored the flags would read garbage in them.
const RealCase kRealCases[] = {
    {"bits-darwin-advertised.lnk",
     true,
     0,
     true,
     0,
     {"This is the shortcut description",
      "..\\..\\..\\Windows\\Installer\\{DB8757A3-1B62-4136-8D95-D2CB9F00E36C}\\test_icon.ico", U, U,
      "C:\\WINDOWS\\Installer\\{DB8757A3-1B62-4136-8D95-D2CB9F00E36C}\\test_icon.ico"}},
    {"bits-large-unknown-target.lnk", true, 0, true, 0, {U, U, U, U, U}},
    {"bits-net-no-idlist.lnk",
     true,
     0,
     true,
     0,
     {U, U, "\\\\192.168.138.2\\storage\\Downloads\\folder1", U, U}},
    {"bits-no-idlist-no-linkinfo.lnk",
     true,
     0,
     true,
     0,
     {"@%windir%\\system32\\migwiz\\wet.dll,-590", ".\\migwiz\\migwiz.exe",
      "%windir%\\system32\\migwiz", U, "%windir%\\system32\\migwiz\\migwiz.exe"}},
    {"bits-remote-no-idlist.lnk", true, 0, true, 0, {U, U, U, U, U}},
    {"bits-task-manager-zero-count.lnk", true, 0, true, 0, {U, U, U, "/0", U}},
    {"bits-uwp-calc.lnk", true, 0, true, 0, {U, U, U, U, U}},
    {"bits-vista-home-page.lnk",
     true,
     0,
     true,
     0,
     {"@%SystemRoot%\\system32\\gameux.dll,-10035", U, U, U,
      "%ProgramFiles%\\Microsoft Games\\solitaire\\solitaire.exe"}},
    {"bits-win7-network-path.lnk", true, 0, true, 0, {U, U, "\\\\filsrv01\\ISO", U, U}},
    {"bits-win81-flags-0x80-only.lnk", true, 0, true, 0, {U, U, U, U, U}},
    {"bits-win81-photos-app.lnk",
     true,
     0,
     true,
     0,
     {"@%SystemRoot%\\FileManager\\PhotosApp.exe,-1001", U, "%HOMEDRIVE%%HOMEPATH%", U,
      "%windir%\\FileManager\\PhotosApp.exe"}},
    {"bits-windows-defender.lnk",
     true,
     0,
     true,
     0,
     {U, U, U, U, "%ProgramFiles%\\Windows Defender\\MSASCui.exe"}},
    {"console-six-blocks.lnk",
     true,
     0,
     true,
     0,
     {"Performs object-based (command-line) functions", U, "%HOMEDRIVE%%HOMEPATH%", U,
      "%SystemRoot%\\syswow64\\WindowsPowerShell\\v1.0\\powershell.exe"}},
    {"decoding-error4.lnk",
     true,
     0,
     true,
     0,
     {"Stone,I hate you!", "..\\..\\..\\..\\..\\..\\Local\\Temp\\MZ\xC2\x90",
      "C:\\Users\\admin\\AppData\\Local\\Temp\\", U, U}},
    {"diacritic-workdir.lnk", true, 0, true, 0, {U, U, "D:\\ööö", U, U}},
    {"emoji-relative-path.lnk",
     true,
     0,
     true,
     0,
     {U,
      ".\\test\xE2\x9D\xA4\xEF\xB8\x8F"
      "and\xF0\x9F\x8D\xB0.txt",
      "C:\\Users\\Public\\Downloads", U, U}},
    {"exp-string.lnk", true, 0, true, 0, {U, "..\\AppData\\Roaming\\.minecraft", U, U, U}},
    {"fax-six-blocks.lnk",
     true,
     0,
     true,
     0,
     {"Sends the document as fax to a Fax Recipient.",
      "..\\..\\..\\..\\..\\..\\..\\Windows\\System32\\WFS.exe", U, "/SendTo",
      "C:\\Windows\\System32\\WFSR.dll"}},
    {"malformed-imdisk-corrupt.lnk", true, 0, true, 0, {U, U, U, U, U}},
    // HeaderSize 2: the checker refuses it silently; the reader follows its odd flags into
    // a LinkInfo size that sends the position past the end.
    {"malformed-not-a-shortcut.lnk", false, 16, false, 0, {U, U, U, U, U}},
    {"mapped-drive-share.lnk", true, 0, true, 0, {U, U, "Z:\\Downloads\\folder1", U, U}},
    {"ms-example.lnk", true, 0, true, 0, {U, ".\\a.txt", "C:\\test", U, U}},
    {"nero-all-five-strings.lnk",
     true,
     0,
     true,
     0,
     {"Nero InfoTool provides you with information about the most important features of "
      "installed drives, inserted discs, installed software and much more. With Nero InfoTool "
      "you can find out all about your drive and your system configuration.",
      "..\\..\\..\\..\\..\\..\\..\\..\\Program Files (x86)\\Nero\\Nero 9\\Nero "
      "InfoTool\\InfoTool.exe",
      "C:\\Program Files (x86)\\Nero\\Nero 9\\Nero InfoTool", "-ScParameter=30002  ",
      "C:\\Program Files (x86)\\Nero\\Nero 9\\Nero InfoTool\\InfoTool.exe"}},
    {"network-info.lnk",
     true,
     0,
     true,
     0,
     {U, U,
      "Z:\\A - LM METAL LIFT\\01.OBCHOD - BROŽURY - Prodejní a technické informace o "
      "produktech\\ETN\\ETN-Katalog-ENG\\Katalog ETN 10_2017\\Lift-programme",
      U, U}},
    {"no-extra-blocks.lnk",
     true,
     0,
     true,
     0,
     {U, "..\\..\\..\\..\\..\\Desktop\\Slack Space", "C:\\Users\\e\\Desktop", U, U}},
    {"no-strings.lnk", true, 0, true, 0, {U, U, U, U, U}},
    // The last extra-data block is cut short and no terminal block follows.
    {"truncated-extra-data.lnk",
     false,
     13,
     false,
     13,
     {U, "..\\AppData\\Roaming\\.minecraft", U, U, U}},
    // An unpaired surrogate cannot be held as UTF-8: it becomes U+FFFD, the rest is kept.
    {"unpaired-surrogate.lnk",
     true,
     0,
     true,
     0,
     {U, ".\\unicode_U+0000d800_\xEF\xBF\xBD.exe", "C:\\test", U, U}},
    {"vista-windows-update.lnk",
     true,
     0,
     true,
     0,
     {"@%windir%\\system32\\wucltux.dll,-2", "..\\..\\..\\..\\Windows\\System32\\wuapp.exe",
      "%SystemRoot%\\system32", U, "%SystemRoot%\\system32\\wucltux.dll"}},
    {"win10-chrome-app-all-five.lnk",
     true,
     0,
     true,
     0,
     {"Access other computers or allow another user to access your computer securely over the "
      "Internet.",
      "..\\..\\..\\..\\..\\..\\..\\..\\..\\Program Files "
      "(x86)\\Google\\Chrome\\Application\\chrome.exe",
      "C:\\Program Files (x86)\\Google\\Chrome\\Application",
      " --profile-directory=Default --app-id=gbchcmhmhahfdphkhkmpfmihenigjmpp",
      "C:\\Users\\e\\AppData\\Local\\Google\\Chrome\\User Data\\Default\\Web "
      "Applications\\_crx_gbchcmhmhahfdphkhkmpfmihenigjmpp\\Chrome Remote Desktop.ico"}},
    {"win7-eacute.lnk", true, 0, true, 0, {U, ".\\école.txt", "G:\\Temp", U, U}},
    {"win7-relative-dir.lnk", true, 0, true, 0, {U, "..\\..\\Administrator", U, U, U}},
    {"xp-arguments.lnk",
     true,
     0,
     true,
     0,
     {"this is my comment", U, "C:\\Program Files\\PDFCreator", "\"this is the arguments\"",
      "%SystemRoot%\\system32\\SHELL32.dll"}},
    {"xp-comment.lnk",
     true,
     0,
     true,
     0,
     {"this is my comment", U, "C:\\Program Files\\PDFCreator", "\"this is the arguments\"",
      "%SystemRoot%\\system32\\SHELL32.dll"}},
    {"xp-network-long-filename.lnk",
     true,
     0,
     true,
     0,
     {U,
      "..\\..\\..\\..\\..\\..\\thisisanextralongfoldername\\thisisasuperhugelongfilename\\"
      "thisisasuperlongfilename.txt",
      "M:\\thisisanextralongfoldername\\thisisasuperhugelongfilename", U, U}},
    {"xp-network-unicode.lnk",
     true,
     0,
     true,
     0,
     {U, U, "\\\\als-fichiers3\\Qualité\\Archives\\Méthodologie WAS", U, U}},
    {"xp-usb-drive.lnk", true, 0, true, 0, {U, U, "G:\\", U, U}},
    {"xp-wordpad.lnk",
     true,
     0,
     true,
     0,
     {"@%SystemRoot%\\system32\\shell32.dll,-22581",
      "..\\..\\..\\..\\..\\Program Files\\Windows NT\\Accessories\\wordpad.exe",
      "%HOMEDRIVE%%HOMEPATH%", U, U}},
    {"xp-workdir-only.lnk", true, 0, true, 0, {U, U, "C:\\WINDOWS", U, U}},
};

TEST(ShortcutRealFiles, EveryFileReadsToItsStrings) {
    for (const RealCase& c : kRealCases) {
        SCOPED_TRACE(c.file);
        WalkResult r = walkBoth(testDataPath(std::string("lnk/") + c.file));
        EXPECT_EQ(r.read, c.read);
        EXPECT_EQ(r.readFailPoint, c.readFailPoint);
        EXPECT_EQ(r.parseable, c.parseable);
        EXPECT_EQ(r.checkFailPoint, c.checkFailPoint);
        EXPECT_EQ(r.fields, c.fields);
    }
}

// A crafted file whose working directory (1,693 characters) is read in full, after which
// the arguments run past the end of the file.
TEST(ShortcutRealFiles, PaddedArgumentsRunPastTheEnd) {
    WalkResult r = walkBoth(testDataPath("lnk/malformed-padded-arguments.lnk"));
    EXPECT_FALSE(r.read);
    EXPECT_EQ(r.readFailPoint, 23);
    EXPECT_FALSE(r.parseable);
    EXPECT_EQ(r.checkFailPoint, 24);
    const std::string& wd = r.fields[2];
    EXPECT_EQ(wd.rfind("C:\\Windows\\System32   ", 0), 0u) << wd.substr(0, 40);
    EXPECT_NE(wd.find("/c \"set PATH=%windir%\\system32;%PATH% & (for /R"), std::string::npos);
    EXPECT_EQ(r.fields[3], U);
    EXPECT_EQ(r.fields[4], U);
}

// ----- synthetic files -----

std::string le16(unsigned v) {
    return {char(v & 0xFF), char((v >> 8) & 0xFF)};
}
std::string le32(unsigned v) {
    return le16(v & 0xFFFF) + le16(v >> 16);
}
// UTF-16LE of text whose characters are all below U+0100 (given here as Latin-1 bytes).
std::string utf16(const std::string& latin1) {
    std::string out;
    for (unsigned char c : latin1) out += le16(c);
    return out;
}

constexpr unsigned kHasIdList = 0x1, kHasLinkInfo = 0x2, kIsUnicode = 0x80;
constexpr unsigned kAllStrings = 0x4 | 0x8 | 0x10 | 0x20 | 0x40;

// A shortcut built field by field. Each field remembers where it ends and the failPoint the
// reader and the checker report when the file is cut before that end (0: that walk does not
// read the field, so a cut inside it shows at the walk's next read).
class LnkBuilder {
  public:
    struct Field {
        size_t end;
        int readFail;
        int checkFail;
    };

    explicit LnkBuilder(unsigned flags, unsigned headerSize = 76) : m_flags(flags) {
        put(le32(headerSize), 1, 1);
        put(std::string(16, '\x01'), 2, 0);  // LinkCLSID
        put(le32(flags), 3, 3);
        put(std::string(4, '\x20'), 4, 0);
        for (int fp : {5, 6, 7}) put(std::string(8, '\x07'), fp, 0);  // three time stamps
        put(le32(1234), 8, 0);
        put(le32(0), 9, 0);
        put(le32(1), 10, 0);
        put(le16(0), 11, 0);
        put(std::string(10, '\0'), 0, 0);
    }
    // Items given by their data; each is written with its size word and the list ends in 0.
    LnkBuilder& idList(const std::vector<std::string>& items) {
        unsigned total = 2;
        for (const std::string& i : items) total += 2 + unsigned(i.size());
        put(le16(total), 12, 12);
        for (const std::string& i : items) {
            put(le16(2 + unsigned(i.size())), 13, 13);
            put(i, 14, 0);
        }
        put(le16(0), 13, 13);
        return *this;
    }
    LnkBuilder& linkInfo(unsigned size) {
        put(le32(size), 15, 15);
        put(std::string(size - 4, '\x33'), 0, 0);
        return *this;
    }
    // slot 0..4 in file order; text is Latin-1, written as UTF-16LE or ANSI per the flags.
    LnkBuilder& string(int slot, const std::string& text) {
        put(le16(unsigned(text.size())), 16 + 2 * slot, 16 + 2 * slot);
        put((m_flags & kIsUnicode) ? utf16(text) : text, 17 + 2 * slot, 0);
        return *this;
    }
    LnkBuilder& block(unsigned size) {
        put(le32(size), 13, 13);
        put(std::string(size - 4, '\x44'), 0, 0);
        return *this;
    }
    LnkBuilder& terminal(unsigned value = 0) {
        put(le32(value), 13, 13);
        return *this;
    }
    LnkBuilder& raw(const std::string& bytes) {
        put(bytes, 0, 0);
        return *this;
    }

    const std::string& bytes() const { return m_bytes; }
    const std::vector<Field>& fields() const { return m_fields; }

  private:
    void put(const std::string& b, int readFail, int checkFail) {
        m_bytes += b;
        m_fields.push_back({m_bytes.size(), readFail, checkFail});
    }

    unsigned m_flags;
    std::string m_bytes;
    std::vector<Field> m_fields;
};

class ShortcutSynthetic : public TempDirTest {
  protected:
    WalkResult walk(const std::string& bytes) { return walkBoth(writeFile("s.lnk", bytes)); }
};

// The strings of the full synthetic file, as Latin-1 and as the UTF-8 they read back as.
const char* const kTexts[] = {"Caf\xE9 name", "..\\rel\\a.txt", "C:\\w\xF6rk", "-x \"y\"",
                              "icon.dll,3"};
const char* const kTextsUtf8[] = {"Café name", "..\\rel\\a.txt", "C:\\wörk", "-x \"y\"",
                                  "icon.dll,3"};

LnkBuilder fullFile(unsigned flags) {
    LnkBuilder b(flags);
    if (flags & kHasIdList) b.idList({"item-one", std::string(300, 'z')});
    if (flags & kHasLinkInfo) b.linkInfo(28);
    for (int i = 0; i < 5; ++i) b.string(i, kTexts[i]);
    return b.block(12).block(8).terminal();
}

// Every cut of a well-formed file fails, with the failPoint of the field the cut falls in;
// the fields read before the cut are set and the rest keep the caller's values.
TEST_F(ShortcutSynthetic, EveryCutFailsAtTheFieldItFallsIn) {
    for (unsigned flags : {0xFFu, 0x7Fu}) {  // UTF-16 strings, then ANSI
        const LnkBuilder b = fullFile(flags);
        const std::string& all = b.bytes();
        ASSERT_TRUE(walk(all).read && walk(all).parseable) << flags;
        for (size_t len = 0; len < all.size(); ++len) {
            SCOPED_TRACE("flags " + std::to_string(flags) + ", cut at " + std::to_string(len));
            int readFail = 0, checkFail = 0;
            std::vector<std::string> fields(5, U);
            for (const LnkBuilder::Field& f : b.fields()) {
                if (f.end <= len) {
                    if (f.readFail >= 17 && f.readFail % 2 == 1)
                        fields[(f.readFail - 17) / 2] = kTextsUtf8[(f.readFail - 17) / 2];
                    continue;
                }
                if (!readFail) readFail = f.readFail;
                if (!checkFail) checkFail = f.checkFail;
            }
            WalkResult r = walk(all.substr(0, len));
            EXPECT_FALSE(r.read);
            EXPECT_EQ(r.readFailPoint, readFail);
            EXPECT_FALSE(r.parseable);
            EXPECT_EQ(r.checkFailPoint, checkFail);
            EXPECT_EQ(r.fields, fields);
            if (::testing::Test::HasFailure()) return;
        }
    }
}

// The three layout bits decide whether an ID list and a LinkInfo are present and whether
// strings are UTF-16 or ANSI (code page 1252, one byte per character).
TEST_F(ShortcutSynthetic, LayoutBitsAreFollowed) {
    for (unsigned layout = 0; layout < 8; ++layout) {
        const unsigned flags = (layout & 1 ? kHasIdList : 0) | (layout & 2 ? kHasLinkInfo : 0) |
                               (layout & 4 ? kIsUnicode : 0) | 0x4 | 0x40;
        SCOPED_TRACE("flags " + std::to_string(flags));
        LnkBuilder b(flags);
        if (flags & kHasIdList) b.idList({"abc"});
        if (flags & kHasLinkInfo) b.linkInfo(40);
        // 0x80 and 0x9F are the euro sign and Y with diaeresis in code page 1252.
        b.string(0, "\x80 5 \xE9t\xE9").string(4, "\x9F").terminal();
        WalkResult r = walk(b.bytes());
        EXPECT_TRUE(r.read);
        EXPECT_TRUE(r.parseable);
        const bool ansi = !(flags & kIsUnicode);
        EXPECT_EQ(r.fields[0], ansi ? "€ 5 été" : "\xC2\x80 5 été");
        EXPECT_EQ(r.fields[4], ansi ? "Ÿ" : "\xC2\x9F");
        EXPECT_EQ(r.fields[1], U);
        EXPECT_EQ(r.fields[2], U);
        EXPECT_EQ(r.fields[3], U);
    }
}

// The ID list ends at an item size of 0, or when the items have used up IDListSize (less
// than 2 bytes left), also when an item claims more than is left.
TEST_F(ShortcutSynthetic, IdListEndsByTerminatorOrBySize) {
    const std::string item = le16(7) + "abcde";
    const struct {
        unsigned listSize;
        std::string bytes;
    } cases[] = {{9, item + le16(0)}, {7, item}, {8, item}, {3, item}};
    for (const auto& c : cases) {
        SCOPED_TRACE("IDListSize " + std::to_string(c.listSize));
        LnkBuilder b(kHasIdList | kHasLinkInfo | 0x4 | kIsUnicode);
        b.raw(le16(c.listSize) + c.bytes).linkInfo(28).string(0, "n").terminal();
        WalkResult r = walk(b.bytes());
        EXPECT_TRUE(r.read);
        EXPECT_TRUE(r.parseable);
        EXPECT_EQ(r.fields[0], "n");
    }
}

TEST_F(ShortcutSynthetic, AbsentStringsKeepTheCallersValues) {
    const unsigned flags = 0x1 | 0x2 | 0x4 | 0x10 | 0x20 | 0x80;
    LnkBuilder b(flags);
    b.idList({"x1"}).linkInfo(28).string(0, "n").string(2, "w").string(3, "a").terminal();
    WalkResult r = walk(b.bytes());
    EXPECT_TRUE(r.read);
    EXPECT_TRUE(r.parseable);
    EXPECT_EQ(r.fields, (std::vector<std::string>{"n", U, "w", "a", U}));
}

TEST_F(ShortcutSynthetic, PathGetsLnkAddedAndTrailingSpaceRemoved) {
    writeFile("app.lnk", fullFile(0xFF).bytes());
    for (const char* name : {"app", "app.lnk", "app.lnk  \t", "app \n"}) {
        SCOPED_TRACE(std::string("'") + name + "'");
        WalkResult r = walkBoth(path(name));
        EXPECT_TRUE(r.read);
        EXPECT_TRUE(r.parseable);
        EXPECT_EQ(r.fields[0], kTextsUtf8[0]);
    }
    // A missing file: false, with the load's own message and no failPoint.
    XString missing(path("gone").c_str());
    _ovShortcutInfo info;
    _ovLogger log;
    EXPECT_FALSE(ClsFileAccess::readShortcut(missing, info, log));
    EXPECT_FALSE(log.entries().empty());
    EXPECT_EQ(failPointOf(log), 0);
    EXPECT_FALSE(ClsFileAccess::parseableShortcut(missing, log));
}

// The extra-data walk stops at a terminal block (any value below 4) or after 500 blocks.
TEST_F(ShortcutSynthetic, ExtraDataEndsAtTerminalOrBlockLimit) {
    struct Case {
        int blocks;
        int terminal;  // -1: none
        bool ok;
    } cases[] = {{499, -1, false}, {500, -1, true}, {600, -1, true}, {3, 0, true},
                 {3, 1, true},     {3, 2, true},    {3, 3, true},    {0, -1, false}};
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.blocks) + " blocks, terminal " + std::to_string(c.terminal));
        LnkBuilder b(0x4 | 0x80);
        b.string(0, "n");
        for (int i = 0; i < c.blocks; ++i) b.block(8);
        if (c.terminal >= 0) b.terminal(unsigned(c.terminal)).raw(std::string(9, '\xFF'));
        WalkResult r = walk(b.bytes());
        EXPECT_EQ(r.read, c.ok);
        EXPECT_EQ(r.parseable, c.ok);
        EXPECT_EQ(r.readFailPoint, c.ok ? 0 : 13);
        EXPECT_EQ(r.checkFailPoint, c.ok ? 0 : 13);
    }
}

// The checker wants a 76-byte header and at most 100,000 bytes and says nothing otherwise;
// the reader takes both.
TEST_F(ShortcutSynthetic, CheckerRefusesOddHeaderAndLargeFilesSilently) {
    struct Case {
        const char* what;
        unsigned headerSize;
        size_t fileSize;
        bool parseable;
    } cases[] = {{"header 80", 80, 0, false},
                 {"header 0", 0, 0, false},
                 {"exactly 100,000 bytes", 76, 100000, true},
                 {"100,001 bytes", 76, 100001, false}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        LnkBuilder b(0x10 | 0x80, c.headerSize);
        b.string(2, "dir");
        if (c.fileSize) b.block(unsigned(c.fileSize - b.bytes().size() - 4));
        b.terminal();
        if (c.fileSize) {
            ASSERT_EQ(b.bytes().size(), c.fileSize);
        }
        const std::string p = writeFile("s.lnk", b.bytes());
        XString xp(p.c_str());
        _ovLogger log;
        EXPECT_EQ(ClsFileAccess::parseableShortcut(xp, log), c.parseable);
        if (!c.parseable) {
            EXPECT_TRUE(log.entries().empty()) << log.text();
        }
        _ovShortcutInfo info;
        EXPECT_TRUE(ClsFileAccess::readShortcut(xp, info, log)) << log.text();
        EXPECT_TRUE(info.workingDir.equalsUtf8("dir"));
    }
}

TEST_F(ShortcutSynthetic, LongStringsAndOddSizes) {
    // 40,000 characters: 80,000 bytes of UTF-16.
    std::string text;
    for (int i = 0; i < 40000; ++i) text += char('a' + i % 26);
    LnkBuilder longFile(0x20 | 0x80);
    longFile.string(3, text).terminal();
    WalkResult r = walk(longFile.bytes());
    EXPECT_TRUE(r.read);
    EXPECT_TRUE(r.parseable);
    EXPECT_EQ(r.fields[3], text);

    // An ID-list item of size 1: the reader asks for 2^32 - 1 bytes and fails; the checker
    // steps one byte back, reads the size 0 made of that byte and the next, and goes on.
    LnkBuilder tiny(0x1 | 0x80);
    std::string list = le16(3) + le16(1) + std::string(1, '\0');
    tiny.raw(list).terminal();
    r = walk(tiny.bytes());
    EXPECT_FALSE(r.read);
    EXPECT_EQ(r.readFailPoint, 14);
    EXPECT_TRUE(r.parseable);

    // Sizes that send the position past the end fail at the next read.
    LnkBuilder farInfo(0x2 | 0x4 | 0x80);
    farInfo.raw(le32(0x7FFFFFFF)).string(0, "n").terminal();
    r = walk(farInfo.bytes());
    EXPECT_EQ(r.readFailPoint, 16);
    EXPECT_EQ(r.checkFailPoint, 16);
    LnkBuilder farBlock(0x80);
    farBlock.raw(le32(0xFFFFFF00)).terminal();
    r = walk(farBlock.bytes());
    EXPECT_EQ(r.readFailPoint, 13);
    EXPECT_EQ(r.checkFailPoint, 13);
}

}  // namespace
