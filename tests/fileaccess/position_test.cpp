// The current file's position kept by the handle against the descriptor's own: the same
// random mixes of seeks, reads, block reads, record scans, writes, appends and truncation on
// two copies of one file give the same results, logs, end-of-file flags and files.
#include <sys/stat.h>

#include <random>
#include <string>

#include "fileaccess/LogProbe.h"
#include "foundation/fs/SysCalls.h"

namespace {

class PositionTest : public FileAccessTest {
  protected:
    // Opens `p` on `obj` so that the handle uses the descriptor's offset: the open is told
    // the file is a character device, which never gets a position of its own.
    static bool openUntracked(ClsFileAccess& obj, XString& p) {
        sysCalls().fstat = [](int fd, struct stat* st) {
            const int rc = realSysCalls().fstat(fd, st);
            st->st_mode = (st->st_mode & ~S_IFMT) | S_IFCHR;
            return rc;
        };
        const bool ok = obj.OpenForReadWrite(p);
        sysCalls().fstat = realSysCalls().fstat;
        return ok;
    }
};

// One operation on an object, described by what it did and saw.
std::string apply(ClsFileAccess& obj, unsigned op, unsigned a, unsigned b) {
    DataBuffer out;
    ClsStringBuilder sb;
    XString begin("<r"), end("</r>"), cs("utf-8"), text("+text+");
    std::string seen;
    switch (op) {
        case 0:
            seen = std::to_string(obj.FileSeek(static_cast<int>(a % 300) - 50, b % 3));
            break;
        case 1:
            seen = std::to_string(obj.FileRead(a % 200, out)) + bytesOf(out);
            break;
        case 2:
            seen = std::to_string(obj.ReadBlock(static_cast<int>(a % 8), 1 + b % 60, out)) +
                   bytesOf(out);
            break;
        case 3:
            seen = std::to_string(obj.ReadNextFragment(a % 4 == 0, begin, end, cs, sb)) +
                   sb.m_str.getUtf8();
            break;
        case 4:
            out.append("WRITE", 1 + a % 5);
            seen = std::to_string(obj.FileWrite(out));
            break;
        case 5:
            seen = std::to_string(obj.AppendText(text, cs));
            break;
        case 6: {
            std::string records;
            const int n = obj.ScanFragments(a % 4 == 0, static_cast<int>(b % 4), begin, end, cs,
                                            [&](const XString& rec) {
                                                records += rec.getUtf8();
                                                return true;
                                            });
            seen = std::to_string(n) + records;
            break;
        }
        default:
            seen = std::to_string(obj.Truncate());
            break;
    }
    return seen + "|" + std::to_string(obj.get_EndOfFile()) + "|" + lastLog(obj);
}

TEST_F(PositionTest, KeptPositionActsAsTheDescriptors) {
    std::string content;
    for (int i = 0; i < 20; ++i)
        content += "<r" + std::to_string(i) + ">" + std::string(i, 'x') + "</r>\n";
    for (unsigned seed = 1; seed <= 40; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        XString kept = X(writeFile("kept", content)), plain = X(writeFile("plain", content));
        ClsFileAccess reference;
        ASSERT_CALL_OK(fa, fa.OpenForReadWrite(kept));
        ASSERT_TRUE(openUntracked(reference, plain));
        std::mt19937 rng(seed);
        for (int step = 0; step < 60; ++step) {
            const unsigned op = rng() % 8, a = rng(), b = rng();
            SCOPED_TRACE("step " + std::to_string(step) + " op " + std::to_string(op));
            ASSERT_EQ(apply(fa, op, a, b), apply(reference, op, a, b));
        }
        fa.FileClose();
        reference.FileClose();
        ASSERT_EQ(readFile(kept.getUtf8()), readFile(plain.getUtf8()));
    }
}

}  // namespace
