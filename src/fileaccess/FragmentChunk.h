// The chunks a record scan reads: up to 65,536 bytes of the current file from a start
// offset, with the length and end-of-file flag that one whole read at that start reports.
// The scan's rules are stated in chunks, whatever way their bytes arrive.
#pragma once

#include <array>

#include "fileaccess/MarkerSearch.h"
#include "foundation/base/LogBase.h"
#include "foundation/fs/OrvaneHandle.h"
#include "foundation/text/DataBuffer.h"

namespace fragments {

constexpr unsigned kChunkSize = 65536;
// WindowChunk's window at its full size: large enough that its reads cost nothing per record,
// small enough to stay in the processor's second-level cache while its records are searched
// and copied. It is refilled, to start at the chunk's start, when less than a chunk is left
// in it; its first read is one chunk long, and each refill reads twice as far, up to this size.
constexpr unsigned kWindowSize = 512u << 10;

class Chunk {
  public:
    virtual ~Chunk() = default;

    // Starts an empty chunk at `start`. False when its memory cannot be had.
    virtual bool reset(long long start) = 0;
    // Holds at least `want` bytes (at most a whole chunk) unless the file ends first. False
    // on a read error.
    virtual bool fetch(unsigned want) = 0;
    // Makes the length and end-of-file flag known. False on a read error.
    virtual bool settle() = 0;
    // The first occurrence of needle that starts at or after chunk offset `from` and ends
    // within the chunk; `at` is kNotFound only when the chunk, complete, holds none. False on
    // a read error.
    virtual bool find(const DataBuffer& needle, unsigned from, unsigned& at) = 0;
    // Whether the end of the file the complete chunk reports still stands. False when the file
    // has changed since the chunk's bytes were read: the chunk is then read again, from the
    // file, the next time it is reset.
    virtual bool endStands() { return true; }

    const unsigned char* data() const { return m_data; }
    unsigned held() const { return m_held; }
    bool complete() const { return m_complete; }
    long long start() const { return m_start; }
    // Both valid once complete.
    unsigned length() const { return m_length; }
    bool eof() const { return m_eof; }

  protected:
    void begin(long long start);
    // Records that the chunk is whole: `length` bytes, fewer than a chunk only at the end.
    void completeWith(unsigned length);

    const unsigned char* m_data = nullptr;
    unsigned m_held = 0;
    long long m_start = 0;
    bool m_complete = false;
    unsigned m_length = 0;
    bool m_eof = false;
};

// A chunk fetched with positioned reads into a buffer of its own. A lazy chunk is fetched
// piece by piece, only as far as the searches need, and its length is then taken from the
// file's size: a record that begins and ends early in its chunk costs one small read.
class ReadChunk final : public Chunk {
  public:
    ReadChunk(OrvaneHandle& handle, DataBuffer& buf, LogBase& log, bool lazy)
        : m_handle(handle), m_buf(buf), m_log(log), m_lazy(lazy) {}

    bool reset(long long start) override;
    bool fetch(unsigned want) override;
    bool settle() override;
    bool find(const DataBuffer& needle, unsigned from, unsigned& at) override;

  private:
    OrvaneHandle& m_handle;
    DataBuffer& m_buf;
    LogBase& m_log;
    const bool m_lazy;
};

// Chunks served from a window of the file many chunks long, read in large blocks, for scans
// of many records in one call: a record costs no system call. Each search runs on to the
// window's end and is remembered, so a marker that is rare (the exact form of a tag marker)
// is looked for once per window instead of once per chunk.
//
// When a window read fails, the rest of the scan reads its chunks as single calls read them
// (a lazy ReadChunk in `pieces`): a bad spot ahead then fails the scan exactly where single
// calls would fail, not up to a window earlier.
class WindowChunk final : public Chunk {
  public:
    WindowChunk(OrvaneHandle& handle, DataBuffer& pieces, LogBase& log)
        : m_handle(handle), m_single(handle, pieces, log, true) {}
    ~WindowChunk() override;
    WindowChunk(const WindowChunk&) = delete;
    WindowChunk& operator=(const WindowChunk&) = delete;

    bool reset(long long start) override;
    bool fetch(unsigned want) override;
    bool settle() override;
    bool find(const DataBuffer& needle, unsigned from, unsigned& at) override;
    // Checks the file's size (one fstat) against the window's end.
    bool endStands() override;

  private:
    // What one needle's last search found: its first occurrence at or after `from` starts at
    // `next`, or (next < 0) none that ends by `to`.
    struct Memo {
        const DataBuffer* needle = nullptr;
        long long from = 0, next = -1, to = 0;
    };
    Memo& memoFor(const DataBuffer& needle);
    // Makes the chunk whole from the window, refilling it as needed. True also when a window
    // read failed and the chunk is now to be read as a single call reads it (m_single in use).
    bool settleFromWindow();
    // Moves the window to start at the chunk's start, keeping what it holds from there (unless
    // stale), and reads until it is full or the file ends. False when the read fails.
    bool refill();
    // Takes over the single-call chunk's view after an operation on it, and its result.
    bool mirror(bool ok);

    OrvaneHandle& m_handle;
    unsigned char* m_window = nullptr;
    unsigned m_reach = kChunkSize;  // how much of the window its reads fill
    bool m_filled = false;          // the window has been read once
    long long m_windowStart = 0;
    unsigned m_windowLength = 0;
    bool m_windowAtEnd = false;  // the window reaches the end of the file
    bool m_stale = false;        // the file changed: the window is read again from the chunk
    std::array<Memo, 6> m_memos;
    unsigned m_nextMemo = 0;
    ReadChunk m_single;
    bool m_readingSingly = false;  // a window read failed: chunks come from m_single
};

}  // namespace fragments
