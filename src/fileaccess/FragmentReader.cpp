// Records between a begin marker and an end marker of the current file: one per call
// (ReadNextFragment) or many per call (ScanFragments), by the same rules (FragmentScan).
//
// A single call fetches its chunks with positioned reads, lazily: when the begin and end
// markers both turn up early, the rest of the chunk is never read. A scan of many records
// serves its chunks from a large window of the file instead, so that a record costs no
// system call at all.
#include <string>

#include "fileaccess/ClsFileAccess.h"
#include "fileaccess/FragmentScan.h"
#include "foundation/base/MethodFrame.h"
#include "foundation/fs/OrvaneHandle.h"

namespace {

// The fragment buffer is kept between calls unless one long record made it bigger than this.
constexpr unsigned kKeptFragmentCapacity = 1u << 20;

}  // namespace

int ClsFileAccess::ReadNextFragment(bool startAtBeginning, XString& beginMarker, XString& endMarker,
                                    XString& charset, ClsStringBuilder& sb) {
    ObjectFrame f(*this, "ReadNextFragment");
    return readNextFragment(startAtBeginning, beginMarker, endMarker, charset, sb);
}

int ClsFileAccess::readNextFragment(bool startAtBeginning, XString& beginMarker, XString& endMarker,
                                    XString& charset, ClsStringBuilder& sb) {
    if (!prepareFragmentScan(startAtBeginning, beginMarker, endMarker, charset)) return -1;
    const bool verbose = m_log.m_verboseLogging;
    fragments::ReadChunk chunk(*m_handle, m_scanChunk, m_log, !verbose);
    fragments::FragmentScan scan(*m_scanMarkers, chunk, *m_handle, m_scanFragment, m_log, verbose);
    const int result = scan.next(m_fragmentScanOffset, m_endOfFile);
    if (result == 1) scan.appendRecord(sb.m_str);
    releaseLargeFragment();
    return result;
}

int ClsFileAccess::ScanFragments(bool startAtBeginning, int maxCount, XString& beginMarker,
                                 XString& endMarker, XString& charset,
                                 const std::function<bool(const XString&)>& onFragment) {
    ObjectFrame f(*this, "ScanFragments");
    // Refused before anything moves: not even startAtBeginning resets the offset.
    if (!onFragment) {
        m_log.LogError("onFragment is empty.");
        return -1;
    }
    if (!prepareFragmentScan(startAtBeginning, beginMarker, endMarker, charset)) return -1;
    const bool verbose = m_log.m_verboseLogging;
    // With verbose logging each record is read as a single call reads it, with its lines.
    fragments::WindowChunk window(*m_handle, m_scanChunk, m_log);
    fragments::ReadChunk reads(*m_handle, m_scanChunk, m_log, false);
    fragments::Chunk& chunk = verbose ? static_cast<fragments::Chunk&>(reads) : window;
    fragments::FragmentScan scan(*m_scanMarkers, chunk, *m_handle, m_scanFragment, m_log, verbose);
    XString text;
    int count = 0, result = 0;
    while (maxCount <= 0 || count < maxCount) {
        // Each later call starts by placing the file at the scan offset, as the first did.
        if (count > 0 && !placeAtScanOffset()) {
            result = -1;
            break;
        }
        const int64_t from = m_fragmentScanOffset;
        result = scan.next(m_fragmentScanOffset, m_endOfFile);
        // The last record of a limited call, in a chunk that reached the end of the file: the
        // end-of-file flag and position it leaves depend on the file's size as it is now.
        const bool last = maxCount > 0 && count + 1 == maxCount;
        if (result == 1 && last && chunk.eof() && !chunk.endStands()) {
            m_fragmentScanOffset = from;
            result = scan.next(m_fragmentScanOffset, m_endOfFile);
        }
        if (result != 1) break;
        ++count;
        text.clear();
        scan.appendRecord(text);
        const bool goOn = onFragment(text);
        // A long record's text is not kept while the next one is gathered.
        if (text.getSizeUtf8() > kKeptFragmentCapacity)
            std::string().swap(text.getUtf8Sb_rw().str());
        if (!goOn) break;
    }
    if (verbose) m_log.LogDataLong("numFragments", count);
    releaseLargeFragment();
    return result < 0 ? -1 : count;
}

// What each call does before it scans: the arguments logged (when verbose), the markers
// checked and converted, the file placed at the scan offset. False (logged) ends the call
// with -1.
bool ClsFileAccess::prepareFragmentScan(bool startAtBeginning, XString& beginMarker,
                                        XString& endMarker, XString& charset) {
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
        return false;
    }
    if (verbose) {
        m_log.LogDataBool("isXmlTag", beginMarker.beginsWithUtf8("<", false) &&
                                          beginMarker.endsWithUtf8(">", false));
        m_log.LogDataInt64("startingFileOffset", m_fragmentScanOffset);
    }
    if (!placeAtScanOffset()) return false;
    if (const char* failed = m_scanMarkers->prepare(beginMarker, endMarker, charset)) {
        m_log.LogError(failed);
        return false;
    }
    const unsigned beginLen = m_scanMarkers->begin().getSize();
    const unsigned endLen = m_scanMarkers->end().getSize();
    if (verbose) {
        m_log.LogDataLong("beginMarkerLen", static_cast<long>(beginLen));
        m_log.LogDataLong("endMarkerLen", static_cast<long>(endLen));
    }
    // A marker must fit in one chunk with room to spare, or the overlapping re-reads would
    // never move forward.
    if (beginLen >= fragments::kChunkSize || endLen >= fragments::kChunkSize) {
        m_log.LogError("beginMarker and endMarker must each be shorter than 65536 bytes.");
        return false;
    }
    return true;
}

bool ClsFileAccess::placeAtScanOffset() {
    if (m_handle->setFilePointerAbsolute(m_fragmentScanOffset, &m_log)) return true;
    m_log.LogError("Unable to set file pointer to scanning start point.");
    m_log.LogDataInt64("position", m_fragmentScanOffset);
    return false;
}

void ClsFileAccess::releaseLargeFragment() {
    if (m_scanFragment.getCapacity() > kKeptFragmentCapacity) m_scanFragment.releaseStorage();
}
