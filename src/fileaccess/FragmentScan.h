// The scan for one record between a begin and an end marker, as ReadNextFragment defines it:
// a two-state machine (seeking the begin marker, seeking the end marker) that takes one chunk
// per pass. Where a chunk's bytes come from is the Chunk's matter, so the single-record
// reader and the many-record scanner share every rule.
#pragma once

#include <atomic>
#include <cstdint>

#include "fileaccess/FragmentChunk.h"
#include "fileaccess/MarkerSearch.h"

namespace fragments {

class FragmentScan {
  public:
    // `fragment` holds a record that spans chunks; `verbose` adds the reader's verbose lines
    // and its check of the file position.
    FragmentScan(Markers& markers, Chunk& chunk, OrvaneHandle& handle, DataBuffer& fragment,
                 LogBase& log, bool verbose)
        : m_markers(markers),
          m_chunk(chunk),
          m_handle(handle),
          m_fragment(fragment),
          m_log(log),
          m_verbose(verbose) {}

    // Scans for the next record from `offset`. Returns 1 (found: `offset` is advanced past
    // it), 0 (none) or -1 (error, logged). Leaves eofFlag and the handle's position as the
    // whole-chunk reads of the rules would.
    int next(int64_t& offset, std::atomic<bool>& eofFlag);

    // Appends the text of the record last found to `out`; false (nothing appended) when it
    // cannot be decoded. A record that spans chunks is taken out of the fragment buffer, which
    // is then empty: its bytes and its text are not held in full at once (in UTF-8).
    bool appendRecord(XString& out);

  private:
    // Again: the file changed since the chunk was read; the record is sought afresh.
    enum class Pass { Continue, Again, Found, NotFound, Failed, ReadFailed };

    // Forgets the record sought so far.
    void restart();
    int leave(long long pos, int result);
    // True when "no record" may be answered from the chunk, which has reached the end of the
    // file; false, once per call, when the file changed since the chunk was read (the record
    // is then sought again from its start, in bytes read afresh).
    bool endConfirmed();
    Pass seekBegin(long long& chunkStart);
    Pass seekEnd(long long& chunkStart);
    Pass endInSameChunk(unsigned p);
    Pass beginMarkerOnly(unsigned p, long long& chunkStart);
    Pass found(unsigned from, unsigned to);

    Markers& m_markers;
    Chunk& m_chunk;
    OrvaneHandle& m_handle;
    DataBuffer& m_fragment;
    LogBase& m_log;
    const bool m_verbose;
    bool m_seekingEnd = false;
    bool m_endChecked = false;  // the chunk was asked once this call whether its end stands
    long long m_foundEnd = 0;
    // The record last found: where it lies, in its chunk or in m_fragment (m_spans).
    const unsigned char* m_record = nullptr;
    unsigned m_recordSize = 0;
    bool m_spans = false;
};

}  // namespace fragments
