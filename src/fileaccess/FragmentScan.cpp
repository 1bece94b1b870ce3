#include "fileaccess/FragmentScan.h"

#include "foundation/text/StringBuffer.h"

namespace fragments {

int FragmentScan::next(int64_t& offset, std::atomic<bool>& eofFlag) {
    m_endChecked = false;
    long long chunkStart = offset;
    restart();
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
        if (pass == Pass::Again) {
            chunkStart = offset;
            restart();
            continue;
        }
        if (pass == Pass::Failed) return -1;
        const long long endOfChunk = m_chunk.start() + m_chunk.length();
        if (pass == Pass::NotFound) return leave(endOfChunk, 0);
        offset = m_foundEnd;
        return leave(endOfChunk, 1);
    }
}

void FragmentScan::restart() {
    m_fragment.clear();
    m_seekingEnd = false;
    m_record = nullptr;
    m_recordSize = 0;
    m_spans = false;
}

bool FragmentScan::appendRecord(XString& out) {
    if (!m_spans) return m_markers.decodeAppend(m_record, m_recordSize, out);
    return m_markers.decodeTaking(m_fragment, out);
}

// Places the handle where the whole-chunk reads would have left it.
int FragmentScan::leave(long long pos, int result) {
    m_handle.setFilePointerAbsolute(pos, nullptr);
    return result;
}

bool FragmentScan::endConfirmed() {
    if (m_endChecked) return true;
    m_endChecked = true;
    return m_chunk.endStands();
}

FragmentScan::Pass FragmentScan::seekEnd(long long& chunkStart) {
    const DataBuffer& end = m_markers.end();
    unsigned q = kNotFound;
    if (!m_chunk.find(end, 0, q)) return Pass::ReadFailed;
    if (q != kNotFound) {
        if (m_verbose) m_log.LogInfo("Found end marker in later chunk.");
        return found(0, q + end.getSize());
    }
    if (m_chunk.eof()) {
        if (!endConfirmed()) return Pass::Again;
        m_log.LogInfo("Found begin marker, but hit EOF before finding the end marker.");
        return Pass::NotFound;
    }
    // The last endLen bytes come again at the head of the next chunk, so an end marker
    // straddling the two is seen whole.
    const unsigned keep = m_chunk.length() - end.getSize();
    m_fragment.append(m_chunk.data(), keep);
    chunkStart += keep;
    return Pass::Continue;
}

FragmentScan::Pass FragmentScan::seekBegin(long long& chunkStart) {
    const unsigned beginLen = m_markers.begin().getSize();
    unsigned p = kNotFound;
    if (!m_chunk.find(m_markers.begin(), 0, p)) return Pass::ReadFailed;
    // The tag variants, each over the whole (now complete) chunk: the first form found wins.
    for (unsigned i = 0; p == kNotFound && m_markers.isXmlTag() && i < 4; ++i)
        if (!m_chunk.find(m_markers.variant(i), 0, p)) return Pass::ReadFailed;
    if (p == kNotFound) {
        if (m_chunk.eof()) {
            if (!endConfirmed()) return Pass::Again;
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

// Looks for the end marker from the byte after the begin marker's first byte. Continue when
// it is not in this chunk.
FragmentScan::Pass FragmentScan::endInSameChunk(unsigned p) {
    const unsigned endLen = m_markers.end().getSize();
    if (!m_chunk.fetch(p + 1 + endLen)) return Pass::ReadFailed;
    // Verbose chunks are always complete, so the remaining count is known when logged.
    if (m_verbose) {
        m_log.LogDataLong("numChunkBytesRemaining_toSearchForEndMarker",
                          static_cast<long>(m_chunk.length() - p - 1));
    }
    if (m_chunk.held() < p + 1 + endLen) {
        if (m_verbose) m_log.LogInfo("Not enought bytes left in chunk to search for end marker.");
        return Pass::Continue;
    }
    unsigned q = kNotFound;
    if (!m_chunk.find(m_markers.end(), p + 1, q)) return Pass::ReadFailed;
    if (q == kNotFound) return Pass::Continue;
    if (m_verbose) m_log.LogInfo("Found end marker in same chunk.");
    return found(p, q + endLen);
}

// Keeps the begin marker as found in the file; the next chunk starts just after it.
FragmentScan::Pass FragmentScan::beginMarkerOnly(unsigned p, long long& chunkStart) {
    const unsigned beginLen = m_markers.begin().getSize();
    if (m_verbose) m_log.LogInfo("Appending just the being marker.");
    m_fragment.append(m_chunk.data() + p, beginLen);
    if (m_verbose) {
        StringBuffer soFar;
        soFar.append(m_fragment);
        m_log.LogDataSb("fragmentSoFar", soFar);
    }
    chunkStart += p + beginLen;
    m_seekingEnd = true;
    if (!m_verbose) return Pass::Continue;
    m_log.LogDataInt64("curPos", chunkStart);
    m_handle.setFilePointerAbsolute(chunkStart, nullptr);
    const long long actual = m_handle.ftell64(nullptr);
    m_log.LogDataInt64("curFilePos", actual);
    if (actual == chunkStart) return Pass::Continue;
    m_log.LogError(
        "Our record of the current file position is not the same as the actual file position.");
    return Pass::Failed;
}

// The record is chunk bytes [from, to) after what earlier chunks gave; one that lies in a
// single chunk is handed over where it stands.
FragmentScan::Pass FragmentScan::found(unsigned from, unsigned to) {
    if (!m_chunk.settle()) return Pass::ReadFailed;
    m_foundEnd = m_chunk.start() + to;
    if (m_fragment.getSize() == 0) {
        m_record = m_chunk.data() + from;
        m_recordSize = to - from;
    } else {
        m_fragment.append(m_chunk.data() + from, to - from);
        m_record = m_fragment.getData2();
        m_recordSize = m_fragment.getSize();
        m_spans = true;
    }
    return Pass::Found;
}

}  // namespace fragments
