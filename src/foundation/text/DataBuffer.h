// A growable byte buffer with a size and a capacity.
//
// Callers may write into reserved storage directly (getData2() up to the capacity) and then
// set the size with setDataSize_CAUTION. Sizes are 32-bit: a buffer holds at most
// 4,294,967,295 bytes, and every operation that would pass that answers false instead.
// Large storage is allocated so that its pages fault in cheaply (see DataBuffer.cpp).
#pragma once

#include "foundation/base/Api.h"

#include <cstdint>

class LogBase;
class StringBuffer;

class FA_API DataBuffer {
  public:
    DataBuffer() = default;
    DataBuffer(const DataBuffer& other);
    DataBuffer& operator=(const DataBuffer& other);
    DataBuffer(DataBuffer&& other) noexcept;
    DataBuffer& operator=(DataBuffer&& other) noexcept;
    ~DataBuffer();

    // Size 0; the storage is kept for reuse.
    void clear() { m_size = 0; }
    // Size 0 and the storage released.
    void releaseStorage();

    unsigned getSize() const { return m_size; }
    unsigned getCapacity() const { return m_capacity; }
    bool isEmpty() const { return m_size == 0; }
    // Pointer to the first byte (writable up to the capacity); null while nothing is reserved.
    unsigned char* getData2() { return m_data; }
    const unsigned char* getData2() const { return m_data; }
    // Pointer to the byte at offset; null when offset lies beyond the size.
    unsigned char* getDataAt2(unsigned offset);
    const unsigned char* getDataAt2(unsigned offset) const;

    // The capacity becomes at least `capacity` (a total, not an increase); the bytes held
    // stay. False when the memory cannot be had.
    bool ensureBuffer(unsigned capacity);
    // As ensureBuffer, for totals computed in 64 bits: false beyond 4,294,967,295.
    bool ensureBuffer64(uint64_t capacity);
    // As ensureBuffer64 but for exactly `capacity`, extending the present storage where the
    // allocator can (for large blocks it remaps pages rather than copying them) instead of
    // moving to fresh, aligned storage. For one-off growth of a large buffer in place.
    bool extendStorage64(uint64_t capacity);
    // The size becomes n (clamped to the capacity); the bytes are not touched.
    void setDataSize_CAUTION(unsigned n);

    bool append(const void* bytes, unsigned n);
    bool append(const DataBuffer& other);
    bool append(const StringBuffer& sb);
    bool appendChar(unsigned char c);
    // Appends count bytes of src from offset; false (nothing appended) when the range is not
    // all within src.
    bool appendRange(const DataBuffer& src, unsigned offset, unsigned count);
    // Drops the last n bytes (all of them when n exceeds the size).
    void shorten(unsigned n);
    // Removes n bytes at offset (clamped to the size), moving the rest down.
    void removeChunk(unsigned offset, unsigned n);

    bool equals(const DataBuffer& other) const;
    bool equals(const void* bytes, unsigned n) const;

    // First occurrence of needle in the buffer's bytes, or null (also for an empty needle).
    const unsigned char* findBytes(const unsigned char* needle, int length) const;
    // First occurrence of needle in hay[0, hayLength), or null (also for an empty needle).
    static const unsigned char* findBytes2(const unsigned char* hay, unsigned hayLength,
                                           const unsigned char* needle, unsigned needleLength);

    // Replaces every non-overlapping occurrence of find, scanning left to right, in one pass.
    // Returns the count replaced; 0 when there was none (or find is empty), -1 when the
    // result would not fit in 32 bits or memory cannot be had (the buffer is then unchanged).
    int replaceAllOccurances(const unsigned char* find, unsigned findLength,
                             const unsigned char* repl, unsigned replLength);

    // Appends the bytes' text form in the named encoding (hex, base16, hexlower, base64,
    // base64url, base32, url, quoted-printable/qp, ascii). False for an unknown name.
    bool encodeDB(const char* encoding, StringBuffer& out) const;
    // Replaces the content with the bytes that `text` encodes in the named encoding.
    // False (content unchanged) for an unknown name or text that is not valid in it.
    bool decodeDB(const char* encoding, const char* text, unsigned textLen);

    // Little-endian when littleEndian is true. False, reading nothing and leaving pos,
    // when the bytes are not all within the buffer.
    bool parseUint16(unsigned& pos, bool littleEndian, unsigned short& out) const;
    bool parseUint32(unsigned& pos, bool littleEndian, unsigned& out) const;
    // Appends the n bytes at pos to out; false (nothing read, pos unchanged) when they are
    // not all within the buffer, pos + n beyond the 32-bit range included.
    bool parseData(unsigned& pos, unsigned n, DataBuffer& out) const;
    // As parseData, appending the bytes to out in the named binary-to-text encoding.
    bool parseDataEnc(unsigned& pos, unsigned n, const char* encoding, StringBuffer& out) const;

    // Whole-file operations; defined by the file-system layer (foundation/fs).
    // Replaces the content by the whole file; false (content unchanged) on failure, with
    // the reason in the log.
    bool loadFileUtf8(const char* path, LogBase* log);
    // The file afterwards holds exactly these bytes (replaced atomically when it existed).
    bool saveToFileUtf8(const char* path, LogBase* log) const;

    // Takes over storage allocated by this class's allocator (used by the file layer to
    // read a file straight into its final storage).
    void swap(DataBuffer& other) noexcept;

  private:
    // True when [p, p + n) lies at least partly in this buffer's storage.
    bool overlapsStorage(const void* p, unsigned n) const;

    unsigned char* m_data = nullptr;
    unsigned m_size = 0;
    unsigned m_capacity = 0;
};
