// Records between a begin marker and an end marker, read from the current file one per call.
//
// Each call scans forward from the remembered scan offset in chunks of 65,536 bytes. The
// outcome of every chunk is defined as if the whole chunk had been read at once, and the
// file position and end-of-file flag are left as such whole-chunk reads (and the moves back
// between them) leave them. Underneath, chunks are fetched with positioned reads and the
// handle is placed once, when the call ends. Outside verbose logging a chunk is fetched piece
// by piece, only as far as its searches need: when an exact begin marker and the end marker
// both turn up early, the rest of the chunk is never copied, and its length is taken from
// the file's size.
#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

#include "fileaccess/ClsFileAccess.h"
#include "foundation/base/MethodFrame.h"

namespace {

constexpr unsigned kChunkSize = 65536;
// The first piece of a lazily fetched chunk; each later piece makes what is held four times
// as much.
constexpr unsigned kFirstPiece = 4096;
constexpr unsigned kNotFound = ~0u;
// The fragment buffer is kept between calls unless one long record made it bigger than this.
constexpr unsigned kKeptFragmentCapacity = 1u << 20;

// Byte search tuned for markers in text. Every marker byte pair (first, last) is tested for
// 16 positions at once, and only positions where both agree are compared in full. Records
// repeat their markers' prefixes every few dozen bytes ("<rec" before each "</rec>" ...), which
// makes a general substring search crawl when a marker is absent from a whole chunk (as the
// exact form of a tag marker usually is); this filter rarely stops there. Data full of
// near-matches, where the filter would stop at almost every byte, is handed to the general
// search, whose time is linear in any case.
using Bytes16 = unsigned char __attribute__((vector_size(16)));

Bytes16 load16(const unsigned char* p) {
    Bytes16 v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

// True when some lane of a 16-lane comparison result is set.
template <class Mask>
bool anySet(Mask v) {
    static_assert(sizeof(Mask) == 16);
    uint64_t half[2];
    std::memcpy(half, &v, sizeof half);
    return (half[0] | half[1]) != 0;
}

unsigned viaMemmem(const unsigned char* hay, unsigned from, unsigned to,
                   const unsigned char* needle, unsigned len) {
    const unsigned char* hit = DataBuffer::findBytes2(hay + from, to - from, needle, len);
    return hit ? static_cast<unsigned>(hit - hay) : kNotFound;
}

// First occurrence of needle starting in hay[from, to), or kNotFound.
unsigned findIn(const unsigned char* hay, unsigned from, unsigned to, const DataBuffer& needle) {
    const unsigned len = needle.getSize();
    const unsigned char* pat = needle.getData2();
    if (from >= to || len == 0 || to - from < len) return kNotFound;
    if (len == 1) {
        const void* hit = std::memchr(hay + from, pat[0], to - from);
        return hit ? static_cast<unsigned>(static_cast<const unsigned char*>(hit) - hay)
                   : kNotFound;
    }
    const Bytes16 first = Bytes16{} + pat[0];
    const Bytes16 last = Bytes16{} + pat[len - 1];
    // Lanes of the 16 positions from p where the first and the last byte both agree.
    auto pairs = [&](unsigned p) {
        return (load16(hay + p) == first) & (load16(hay + p + len - 1) == last);
    };
    // Full comparisons allowed before the rest goes to the general search: one per 16 bytes
    // scanned, after a start of 64.
    unsigned budget = 64;
    constexpr unsigned kGiveUp = kNotFound - 1;
    // The first match among the lanes of the block at p, kNotFound, or kGiveUp once the
    // budget is spent.
    auto verify = [&](unsigned p, auto lanes) {
        budget += 1;
        if (!anySet(lanes)) return kNotFound;
        for (unsigned k = 0; k < 16; ++k) {
            if (!lanes[k]) continue;
            if (std::memcmp(hay + p + k + 1, pat + 1, len - 2) == 0) return p + k;
            if (--budget == 0) return kGiveUp;
        }
        return kNotFound;
    };
    unsigned i = from;
    // Four blocks at a time while none holds a candidate.
    for (; i + len - 1 + 64 <= to; i += 64) {
        if (!anySet(pairs(i) | pairs(i + 16) | pairs(i + 32) | pairs(i + 48))) {
            budget += 4;
            continue;
        }
        for (unsigned b = i; b < i + 64; b += 16) {
            const unsigned at = verify(b, pairs(b));
            if (at == kGiveUp) return viaMemmem(hay, b, to, pat, len);
            if (at != kNotFound) return at;
        }
    }
    for (; i + len - 1 + 16 <= to; i += 16) {
        const unsigned at = verify(i, pairs(i));
        if (at == kGiveUp) return viaMemmem(hay, i, to, pat, len);
        if (at != kNotFound) return at;
    }
    return i + len <= to ? viaMemmem(hay, i, to, pat, len) : kNotFound;
}

// One chunk of the file: up to 65,536 bytes from `start`, fetched with positioned reads.
// A lazy chunk is fetched piece by piece; settle() then fixes the length and end-of-file flag
// that one whole read would have given, from the file's size.
class Chunk {
  public:
    Chunk(OrvaneHandle& handle, DataBuffer& buf, LogBase& log, bool lazy)
        : m_handle(handle), m_buf(buf), m_log(log), m_lazy(lazy) {}

    // Starts an empty chunk at `start`. False when the chunk's memory cannot be had.
    bool reset(long long start) {
        m_buf.clear();
        m_start = start;
        m_complete = false;
        m_length = 0;
        m_eof = false;
        return m_buf.ensureBuffer(kChunkSize);
    }

    // Holds at least `want` bytes (capped at a whole chunk) unless the file ends first.
    // False on a read error.
    bool fetch(unsigned want) {
        want = std::min(want, kChunkSize);
        const unsigned have = m_buf.getSize();
        if (m_complete || have >= want) return true;
        unsigned got = 0;
        bool eof = false;
        const bool ok = m_handle.preadBytes(m_buf.getData2() + have, want - have, m_start + have,
                                            got, eof, &m_log);
        m_buf.setDataSize_CAUTION(have + got);
        if (!ok) return false;
        if (got < want - have || have + got == kChunkSize) markComplete();
        return true;
    }

    // Fetches the next piece: the whole chunk when not lazy, else four times what is held
    // (4, 16, then 64 KiB: each read costs about as much as copying a few KiB, so a chunk
    // that must be searched whole, as for an absent exact tag marker, takes three reads).
    bool more() { return fetch(m_lazy ? std::max(kFirstPiece, 4 * held()) : kChunkSize); }

    // The chunk's length and end-of-file flag as one read of 65,536 bytes would report
    // them. Whatever is still unfetched is measured, not read; a file whose size cannot be
    // had is read instead.
    bool settle() {
        if (m_complete) return true;
        const long long size = m_handle.fileSize64(nullptr);
        if (size < 0) return fetch(kChunkSize);
        const long long left = std::max(size - m_start, static_cast<long long>(held()));
        m_length = static_cast<unsigned>(std::min(left, static_cast<long long>(kChunkSize)));
        m_eof = m_length < kChunkSize;
        m_complete = true;
        return true;
    }

    const unsigned char* data() const { return m_buf.getData2(); }
    const DataBuffer& bytes() const { return m_buf; }
    unsigned held() const { return m_buf.getSize(); }
    bool complete() const { return m_complete; }
    long long start() const { return m_start; }
    // Valid once complete.
    unsigned length() const { return m_length; }
    bool eof() const { return m_eof; }

  private:
    void markComplete() {
        m_complete = true;
        m_length = m_buf.getSize();
        m_eof = m_length < kChunkSize;
    }

    OrvaneHandle& m_handle;
    DataBuffer& m_buf;
    LogBase& m_log;
    const bool m_lazy;
    long long m_start = 0;
    bool m_complete = false;
    unsigned m_length = 0;
    bool m_eof = false;
};

// The begin marker's tag variants: its closing ">" replaced by a space, tab, carriage return
// and line feed, in that order of preference. Where ">" is the single byte 0x3E that is the
// final byte; where it is a wider code unit (UTF-16, UTF-32) the whole unit is replaced by the
// same-width unit of the white-space character.
class TagVariants {
  public:
    void build(const DataBuffer& begin, const char* charset) {
        static const char* const kText[4] = {" ", "\t", "\r", "\n"};
        static const unsigned char kByte[4] = {0x20, 0x09, 0x0D, 0x0A};
        m_built = true;
        DataBuffer gt;
        const bool wide =
            XString(">").getConverted(charset, gt) && !isSingleGt(gt) && endsWith(begin, gt);
        for (unsigned i = 0; i < 4; ++i) {
            DataBuffer& v = m_forms[i];
            v.clear();
            v.append(begin);
            DataBuffer ws;
            if (wide && XString(kText[i]).getConverted(charset, ws) &&
                ws.getSize() == gt.getSize()) {
                v.shorten(gt.getSize());
                v.append(ws);
            } else {
                v.shorten(1);
                v.appendChar(kByte[i]);
            }
        }
    }
    bool built() const { return m_built; }
    const DataBuffer& form(unsigned i) const { return m_forms[i]; }

  private:
    static bool isSingleGt(const DataBuffer& gt) {
        return gt.getSize() == 1 && gt.getData2()[0] == 0x3E;
    }
    static bool endsWith(const DataBuffer& s, const DataBuffer& tail) {
        const unsigned n = s.getSize(), k = tail.getSize();
        return k != 0 && k < n &&
               std::equal(tail.getData2(), tail.getData2() + k, s.getData2() + (n - k));
    }

    bool m_built = false;
    std::array<DataBuffer, 4> m_forms;
};

enum class Pass { Continue, Found, NotFound, Failed, ReadFailed };

// The arguments and state of one ReadNextFragment call.
struct ScanRequest {
    const DataBuffer& begin;
    const DataBuffer& end;
    bool isXmlTag;
    const char* charset;
    ClsStringBuilder& sb;
};

// One call's scan: a two-state machine, one chunk per pass.
class FragmentScan {
  public:
    FragmentScan(const ScanRequest& req, OrvaneHandle& handle, DataBuffer& chunkBuf,
                 DataBuffer& fragment, LogBase& log, bool verbose)
        : m_req(req),
          m_handle(handle),
          m_fragment(fragment),
          m_log(log),
          m_verbose(verbose),
          m_chunk(handle, chunkBuf, log, !verbose) {}

    // Runs the passes from `offset`; the handle stands at `offset` on entry. Returns the
    // call's result, sets eofFlag as the last whole-chunk read would and advances `offset`
    // past a fragment found.
    int run(int64_t& offset, std::atomic<bool>& eofFlag) {
        m_handlePos = offset;
        m_fragment.clear();
        long long chunkStart = offset;
        for (;;) {
            if (!m_chunk.reset(chunkStart)) {
                m_log.LogError("Failed to allocate memory.");
                return leave(chunkStart, -1);
            }
            eofFlag = false;
            const Pass pass = m_seekingEnd ? seekEnd(chunkStart) : seekBegin(chunkStart);
            if (pass == Pass::ReadFailed) {
                m_log.LogError("Failed to read next chunk.");
                return leave(m_chunk.start() + m_chunk.held(), -1);
            }
            eofFlag = m_chunk.eof();
            if (pass == Pass::Continue) continue;
            const long long endOfChunk = m_chunk.start() + m_chunk.length();
            if (pass == Pass::Failed) return leave(m_handlePos, -1);
            if (pass == Pass::NotFound) return leave(endOfChunk, 0);
            offset = m_foundEnd;
            return leave(endOfChunk, 1);
        }
    }

  private:
    // Places the handle where the whole-chunk reads would have left it.
    int leave(long long pos, int result) {
        syncHandle(pos);
        return result;
    }
    void syncHandle(long long pos) {
        if (pos == m_handlePos) return;
        if (m_handle.setFilePointerAbsolute(pos, nullptr)) m_handlePos = pos;
    }

    // First occurrence of needle at or after `from` in the whole chunk, fetching more of a
    // lazy chunk while none is found. `at` is kNotFound only once the chunk is complete.
    bool find(const DataBuffer& needle, unsigned from, unsigned& at) {
        const unsigned len = needle.getSize();
        for (;;) {
            at = findIn(m_chunk.data(), from, m_chunk.held(), needle);
            if (at != kNotFound || m_chunk.complete()) return true;
            // A match starting before this point would have ended within what is held.
            if (m_chunk.held() >= len) from = std::max(from, m_chunk.held() - len + 1);
            if (!m_chunk.more()) return false;
        }
    }

    // The tag variants, each over the whole (complete) chunk, first form found wins.
    unsigned findVariant() {
        if (!m_variants.built()) m_variants.build(m_req.begin, m_req.charset);
        for (unsigned i = 0; i < 4; ++i) {
            const unsigned at = findIn(m_chunk.data(), 0, m_chunk.length(), m_variants.form(i));
            if (at != kNotFound) return at;
        }
        return kNotFound;
    }

    Pass seekEnd(long long& chunkStart) {
        const unsigned endLen = m_req.end.getSize();
        unsigned q = kNotFound;
        if (!find(m_req.end, 0, q)) return Pass::ReadFailed;
        if (q != kNotFound) {
            if (m_verbose) m_log.LogInfo("Found end marker in later chunk.");
            return found(0, q + endLen);
        }
        if (m_chunk.eof()) {
            m_log.LogInfo("Found begin marker, but hit EOF before finding the end marker.");
            return Pass::NotFound;
        }
        // The last endLen bytes come again at the head of the next chunk, so an end marker
        // straddling the two is seen whole.
        const unsigned keep = m_chunk.length() - endLen;
        m_fragment.appendRange(m_chunk.bytes(), 0, keep);
        chunkStart += keep;
        return Pass::Continue;
    }

    Pass seekBegin(long long& chunkStart) {
        const unsigned beginLen = m_req.begin.getSize();
        unsigned p = kNotFound;
        if (!find(m_req.begin, 0, p)) return Pass::ReadFailed;
        if (p == kNotFound && m_req.isXmlTag) p = findVariant();
        if (p == kNotFound) {
            if (m_chunk.eof()) {
                m_log.LogInfo("Did not find the next begin marker.");
                return Pass::NotFound;
            }
            chunkStart += m_chunk.length() - beginLen;
            return Pass::Continue;
        }
        if (m_verbose) {
            m_log.LogInfo("Found begin marker.");
            m_log.LogDataLong("chunkOffsetToBeginMarker", static_cast<long>(p));
        }
        if (p != kChunkSize - 1) {
            const Pass pass = endInSameChunk(p);
            if (pass != Pass::Continue) return pass;
        }
        return beginMarkerOnly(p, chunkStart);
    }

    // Looks for the end marker from the byte after the begin marker's first byte. Continue
    // when it is not in this chunk.
    Pass endInSameChunk(unsigned p) {
        const unsigned endLen = m_req.end.getSize();
        if (!m_chunk.fetch(p + 1 + endLen)) return Pass::ReadFailed;
        // Verbose chunks are always complete, so the remaining count is known when logged.
        if (m_verbose) {
            m_log.LogDataLong("numChunkBytesRemaining_toSearchForEndMarker",
                              static_cast<long>(m_chunk.length() - p - 1));
        }
        if (m_chunk.held() < p + 1 + endLen) {
            if (m_verbose)
                m_log.LogInfo("Not enought bytes left in chunk to search for end marker.");
            return Pass::Continue;
        }
        unsigned q = kNotFound;
        if (!find(m_req.end, p + 1, q)) return Pass::ReadFailed;
        if (q == kNotFound) return Pass::Continue;
        if (m_verbose) m_log.LogInfo("Found end marker in same chunk.");
        return found(p, q + m_req.end.getSize());
    }

    // Keeps the begin marker as found in the file; the next chunk starts just after it.
    Pass beginMarkerOnly(unsigned p, long long& chunkStart) {
        const unsigned beginLen = m_req.begin.getSize();
        if (m_verbose) m_log.LogInfo("Appending just the being marker.");
        m_fragment.appendRange(m_chunk.bytes(), p, beginLen);
        if (m_verbose) {
            StringBuffer soFar;
            soFar.append(m_fragment);
            m_log.LogDataSb("fragmentSoFar", soFar);
        }
        chunkStart += p + beginLen;
        m_seekingEnd = true;
        if (!m_verbose) return Pass::Continue;
        m_log.LogDataInt64("curPos", chunkStart);
        syncHandle(chunkStart);
        const long long actual = m_handle.ftell64(nullptr);
        m_log.LogDataInt64("curFilePos", actual);
        if (actual == chunkStart) return Pass::Continue;
        m_log.LogError(
            "Our record of the current file position is not the same as the actual file "
            "position.");
        return Pass::Failed;
    }

    // Appends chunk bytes [from, to) to the fragment and delivers its text.
    Pass found(unsigned from, unsigned to) {
        if (!m_chunk.settle()) return Pass::ReadFailed;
        m_fragment.appendRange(m_chunk.bytes(), from, to - from);
        m_foundEnd = m_chunk.start() + to;
        m_req.sb.m_str.appendFromEncodingDb(m_fragment, m_req.charset);
        return Pass::Found;
    }

    const ScanRequest& m_req;
    OrvaneHandle& m_handle;
    DataBuffer& m_fragment;
    LogBase& m_log;
    const bool m_verbose;
    Chunk m_chunk;
    TagVariants m_variants;
    bool m_seekingEnd = false;
    long long m_handlePos = 0;
    long long m_foundEnd = 0;
};

}  // namespace

int ClsFileAccess::ReadNextFragment(bool startAtBeginning, XString& beginMarker, XString& endMarker,
                                    XString& charset, ClsStringBuilder& sb) {
    ObjectFrame f(*this, "ReadNextFragment");
    return readNextFragment(startAtBeginning, beginMarker, endMarker, charset, sb);
}

int ClsFileAccess::readNextFragment(bool startAtBeginning, XString& beginMarker, XString& endMarker,
                                    XString& charset, ClsStringBuilder& sb) {
    if (startAtBeginning) m_fragmentScanOffset = 0;
    const bool verbose = m_log.m_verboseLogging;
    if (verbose) {
        m_log.LogDataBool("startAtBeginning", startAtBeginning);
        m_log.LogDataX("beginMarker", beginMarker);
        m_log.LogDataX("endMarker", endMarker);
        m_log.LogDataX("charset", charset);
    }
    if (beginMarker.isEmpty() || endMarker.isEmpty()) {
        m_log.LogError("beginMarker and/or endMarker is empty.");
        return -1;
    }
    const bool isXmlTag =
        beginMarker.beginsWithUtf8("<", false) && beginMarker.endsWithUtf8(">", false);
    if (verbose) {
        m_log.LogDataBool("isXmlTag", isXmlTag);
        m_log.LogDataInt64("startingFileOffset", m_fragmentScanOffset);
    }
    if (!m_handle.setFilePointerAbsolute(m_fragmentScanOffset, &m_log)) {
        m_log.LogError("Unable to set file pointer to scanning start point.");
        m_log.LogDataInt64("position", m_fragmentScanOffset);
        return -1;
    }
    const char* cs = charset.getUtf8();
    // Conversions are deterministic: a scan that passes the same markers call after call
    // converts them once.
    std::string key = std::string(cs) + '\0' + beginMarker.getUtf8() + '\0' + endMarker.getUtf8();
    if (key != m_scanMarkerKey) {
        m_scanMarkerKey.clear();
        if (!beginMarker.getConverted(cs, m_scanBeginBytes)) {
            m_log.LogError("Failed to convert beginMarker to desired charset.");
            return -1;
        }
        if (!endMarker.getConverted(cs, m_scanEndBytes)) {
            m_log.LogError("Failed to convert endMarker to desired charset.");
            return -1;
        }
        m_scanMarkerKey = std::move(key);
    }
    const DataBuffer& beginBytes = m_scanBeginBytes;
    const DataBuffer& endBytes = m_scanEndBytes;
    if (verbose) {
        m_log.LogDataLong("beginMarkerLen", static_cast<long>(beginBytes.getSize()));
        m_log.LogDataLong("endMarkerLen", static_cast<long>(endBytes.getSize()));
    }
    // A marker must fit in one chunk with room to spare, or the overlapping re-reads would
    // never move forward.
    if (beginBytes.getSize() >= kChunkSize || endBytes.getSize() >= kChunkSize) {
        m_log.LogError("beginMarker and endMarker must each be shorter than 65536 bytes.");
        return -1;
    }
    const ScanRequest req{beginBytes, endBytes, isXmlTag, cs, sb};
    FragmentScan scan(req, m_handle, m_scanChunk, m_scanFragment, m_log, verbose);
    const int result = scan.run(m_fragmentScanOffset, m_endOfFile);
    if (m_scanFragment.getCapacity() > kKeptFragmentCapacity) m_scanFragment.releaseStorage();
    return result;
}
