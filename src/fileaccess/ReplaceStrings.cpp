// Replacing every occurrence of a string inside a file.
//
// The work is done on the file's bytes, as a stream: both strings are converted to the file's
// encoding and replaced as byte sequences, left to right, block by block, so memory does not
// depend on the file's size and files of any size can be handled. The file is first read only
// as far as its first occurrence: a file without one is left alone (same inode, same times).
// Otherwise it is rewritten through the file-system layer's careful rewrite, which keeps its
// owner, group and mode; the new content takes the old one's place only when the rewrite
// itself replaced something, since the file may have changed after the search.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>

#include "fileaccess/BlockReader.h"
#include "fileaccess/ClsFileAccess.h"
#include "fileaccess/ReplaceLimits.h"
#include "fileaccess/StreamBlocks.h"
#include "foundation/base/MethodFrame.h"
#include "foundation/fs/FileSys.h"
#include "foundation/text/Charset.h"
#include "foundation/text/StreamReplace.h"

namespace {

constexpr unsigned kBlock = 1u << 20;
// The blocks of both passes, and the most occurrences one call replaces: tests lower both.
std::atomic<unsigned> g_block{kBlock};
std::atomic<long long> g_countLimit{INT_MAX};
// Tag identifying the block's reservation in a memory-failure log entry.
constexpr int kBlockAllocTag = 1090;

// A byte-order mark at the start of a file of at least 4 bytes decides its encoding over
// the caller's charset; the mark itself stays in the data. 0 when there is none.
int markedCodePage(const unsigned char* p, unsigned n) {
    if (n < 4) return 0;
    if (p[0] == 0xFF && p[1] == 0xFE) return CodePage::Utf16LE;
    if (p[0] == 0xFE && p[1] == 0xFF) return CodePage::Utf16BE;
    if (p[0] == 0x00 && p[1] == 0x00 && p[2] == 0xFE && p[3] == 0xFF) return CodePage::Utf32BE;
    return 0;
}

// A name nothing knows leaves the charset at its default, UTF-8.
void chooseCharset(const unsigned char* head, unsigned n, const XString& charsetName,
                   _ovCharset& cs) {
    if (int cp = markedCodePage(head, n))
        cs.setByCodePage(cp);
    else
        cs.setByName(charsetName.getUtf8());
}

// Both strings in the file's encoding. Both conversions are tried, so that a failure of
// each is reported; an empty replacement is allowed, an empty search string is not.
bool convertStrings(const XString& str1, const XString& str2, const _ovCharset& cs,
                    DataBuffer& find, DataBuffer& repl, LogBase& log) {
    bool ok = true;
    if (!str1.getConverted(cs, find)) {
        log.LogError("Unable to get str1 in specified charset.");
        ok = false;
    } else if (find.getSize() == 0) {
        log.LogError("str1 is empty.");
        ok = false;
    }
    if (!str2.getConverted(cs, repl)) {
        log.LogError("Unable to get str2 in specified charset.");
        ok = false;
    }
    return ok;
}

StreamReplacer replacerFor(const DataBuffer& find, const DataBuffer& repl) {
    return StreamReplacer(find.getData2(), find.getSize(), repl.getData2(), repl.getSize());
}

// Reads on, from the first block already read, until an occurrence turns up or the file ends.
// False on a read error.
bool occurs(BlockReader& reader, unsigned got, bool last, StreamReplacer& probe, LogBase& log) {
    const StreamReplacer::Emit discard = [](const unsigned char*, size_t) { return true; };
    for (;;) {
        probe.feed(reader.block(), got, last, discard);
        if (probe.count() > 0 || last) return true;
        if (!reader.next(got, last, log)) return false;
    }
}

// Counts on from `offset` of the old content, where a failed rewrite stopped, so that "n" holds
// every occurrence in the file. A read error ends the count where it happened.
void countRest(BlockReader& reader, uint64_t offset, StreamReplacer& replacer, LogBase& log) {
    const StreamReplacer::Emit discard = [](const unsigned char*, size_t) { return true; };
    if (!reader.restartAt(static_cast<long long>(offset), kBlockAllocTag, log)) return;
    for (bool last = false; !last;) {
        unsigned got = 0;
        if (!reader.next(got, last, log)) return;
        replacer.feed(reader.block(), got, last, discard);
    }
}

// Passes entries on to the method's log until muted: a rewrite given up on purpose reports
// nothing of the failure that ends it.
class MutableLog : public LogBase {
  public:
    explicit MutableLog(LogBase& to) : m_to(to) { m_verboseLogging = to.m_verboseLogging; }
    void mute() { m_muted = true; }

    bool LogError(const char* msg) override { return m_muted || m_to.LogError(msg); }
    bool LogInfo(const char* msg) override { return m_muted || m_to.LogInfo(msg); }
    void LogData(const char* name, const char* value) override {
        if (!m_muted) m_to.LogData(name, value);
    }
    void EnterContext(const char* name) override {
        if (m_muted)
            ++m_mutedDepth;
        else
            m_to.EnterContext(name);
    }
    bool LeaveContext() override {
        if (m_mutedDepth == 0) return m_to.LeaveContext();
        --m_mutedDepth;
        return true;
    }

  private:
    LogBase& m_to;
    bool m_muted = false;
    int m_mutedDepth = 0;  // contexts entered while muted, not passed on
};

// The rewrite's filter: replaces in the old content as its pieces come, and keeps what the
// outcome depends on.
class RewriteFilter {
  public:
    RewriteFilter(const DataBuffer& find, const DataBuffer& repl, MutableLog& log)
        : m_replacer(replacerFor(find, repl)), m_log(log) {}

    bool take(const unsigned char* piece, size_t n, bool last, const FileSys::Emit& emit) {
        // A failed write does not stop the replacer inside the piece: it takes whole pieces,
        // so that a count after a failure can go on where the rewrite stopped.
        const StreamReplacer::Emit write = [&](const unsigned char* p, size_t k) {
            if (!m_writeFailed && !emit(p, k)) {
                m_writeFailed = true;
                m_writeErr = errno;
            }
            return true;
        };
        // Handed over in the search's blocks, whatever pieces the rewrite reads.
        const size_t block = streamblocks::replaceBlock();
        size_t at = 0;
        do {
            const size_t k = std::min(block, n - at);
            m_replacer.feed(piece + at, k, last && at + k == n, write);
            at += k;
        } while (at < n);
        m_taken += n;
        m_sawEnd = last;
        if (m_writeFailed) return errno = m_writeErr, false;
        m_tooMany = m_replacer.count() > static_cast<uint64_t>(replacelimits::countLimit());
        if (m_tooMany) return errno = EOVERFLOW, false;
        // The file changed since the search found an occurrence, and now has none: the new
        // file goes, and the old one stays as it is.
        m_gaveUp = last && m_replacer.count() == 0;
        if (m_gaveUp) {
            m_log.mute();
            return errno = ECANCELED, false;
        }
        return true;
    }

    StreamReplacer& replacer() { return m_replacer; }
    uint64_t taken() const { return m_taken; }
    bool sawEnd() const { return m_sawEnd; }
    bool tooMany() const { return m_tooMany; }
    bool gaveUp() const { return m_gaveUp; }

  private:
    StreamReplacer m_replacer;
    MutableLog& m_log;
    uint64_t m_taken = 0;  // bytes of the old content the replacer has been given
    bool m_sawEnd = false, m_tooMany = false, m_gaveUp = false, m_writeFailed = false;
    int m_writeErr = 0;
};

// Rewrites the file with every occurrence replaced. The new file takes the old one's place
// only when the rewrite itself replaced something. Logs "n" after the rewrite's own lines
// (-1 when there are more than the count can hold) and returns the count, or -1.
int rewrite(BlockReader& reader, const XString& path, const DataBuffer& find,
            const DataBuffer& repl, LogBase& log) {
    MutableLog saveLog(log);
    RewriteFilter filter(find, repl, saveLog);
    const bool ok = FileSys::transformFileUtf8(
        path.getUtf8(),
        [&](const unsigned char* piece, size_t n, bool last, const FileSys::Emit& emit) {
            return filter.take(piece, n, last, emit);
        },
        &saveLog);
    if (filter.tooMany()) {
        log.LogError("Unable to replace: more occurrences than the count can hold.");
        log.LogDataLong("n", -1);
        return -1;
    }
    if (filter.gaveUp()) {
        log.LogDataLong("n", 0);
        return 0;
    }
    StreamReplacer& replacer = filter.replacer();
    if (!ok && !filter.sawEnd()) countRest(reader, filter.taken(), replacer, log);
    const bool countable = replacer.count() <= static_cast<uint64_t>(replacelimits::countLimit());
    log.LogDataLong("n", countable ? static_cast<long>(replacer.count()) : -1L);
    return ok ? static_cast<int>(replacer.count()) : -1;
}

// The whole operation inside the method's frame. A file that cannot be read ends it at once,
// without "n" or an outcome line.
int replaceStrings(const XString& path, const XString& charset, const XString& str1,
                   const XString& str2, FrameBase& f) {
    LogBase& log = f.log();
    BlockReader reader(streamblocks::replaceBlock());
    if (!reader.open(path, kBlockAllocTag, log)) return -1;
    unsigned got = 0;
    bool last = false;
    if (!reader.next(got, last, log)) return -1;

    _ovCharset cs;
    chooseCharset(reader.block(), got, charset, cs);
    DataBuffer find;
    DataBuffer repl;
    if (!convertStrings(str1, str2, cs, find, repl, log)) {
        log.LogDataLong("n", -1);
        f.result(false);
        return -1;
    }
    StreamReplacer probe = replacerFor(find, repl);
    if (!occurs(reader, got, last, probe, log)) return -1;
    if (probe.count() == 0) {
        log.LogDataLong("n", 0);
        f.result(true);
        return 0;
    }
    reader.releaseBlock();
    const int n = rewrite(reader, path, find, repl, log);
    f.result(n >= 0);
    return n;
}

}  // namespace

namespace streamblocks {

unsigned replaceBlock() {
    return g_block.load(std::memory_order_relaxed);
}

void setReplaceBlockForTest(unsigned bytes) {
    g_block.store(bytes == 0 ? kBlock : std::max(bytes, 4u), std::memory_order_relaxed);
}

}  // namespace streamblocks

namespace replacelimits {

long long countLimit() {
    return g_countLimit.load(std::memory_order_relaxed);
}

void setCountLimitForTest(long long count) {
    g_countLimit.store(count > 0 && count < INT_MAX ? count : INT_MAX, std::memory_order_relaxed);
}

}  // namespace replacelimits

int ClsFileAccess::ReplaceStrings(XString& path, XString& charset, XString& str1, XString& str2) {
    ObjectFrame f(*this, "ReplaceStrings");
    return replaceStrings(path, charset, str1, str2, f);
}
