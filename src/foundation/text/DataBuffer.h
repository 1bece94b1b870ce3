/// @file
/// `DataBuffer`, the library's growable byte buffer, with binary-to-text encodings, searches
/// and whole-file loads.
#pragma once

#include "foundation/base/Api.h"

#include <cstdint>

class LogBase;
class StringBuffer;

/// A growable byte buffer with a size (the bytes held) and a capacity (the bytes reserved).
///
/// Sizes are 32-bit: a buffer holds at most 4,294,967,295 bytes, and every operation that
/// would pass that answers false (or -1) instead and leaves the buffer as it was; so does
/// one for which the buffer's memory cannot be had. Only the copy constructor and copy
/// assignment throw (`std::bad_alloc`), and the calls that write text into a `StringBuffer`
/// (`encodeDB`, `parseDataEnc`) when that string's memory cannot be had. Callers may write
/// into reserved storage directly (`getData2()` up to the capacity) and then set the size
/// with `setDataSize_CAUTION`. Storage of 2 MiB and more is mapped on 2 MiB boundaries and
/// advised for huge pages, so that its pages fault in cheaply and it grows by remapping
/// rather than copying.
///
/// A pointer into the storage (from `getData2`, `getDataAt2` or `findBytes`) stays valid
/// until the storage moves or is freed: by a call that may grow the capacity (`ensureBuffer`,
/// `ensureBuffer64`, `extendStorage64`, the `append` calls, `parseData` into this buffer,
/// copy assignment, `replaceAllOccurances` with a longer replacement), by a successful
/// `decodeDB` or `loadFileUtf8` (both always install new storage), by `releaseStorage`, move
/// assignment to the buffer, or its destruction. `clear`, `shorten`, `removeChunk` and
/// `setDataSize_CAUTION` keep the storage where it is. `swap` and the moves hand storage over
/// whole: a pointer into it then belongs to the other buffer.
///
/// Thread safety: a value type; no locks are taken. One buffer must not be changed by one
/// thread while another thread uses it; distinct buffers are independent.
class FA_API DataBuffer {
  public:
    /// An empty buffer without storage: size and capacity 0, `getData2()` null.
    DataBuffer() = default;
    /// A buffer holding a copy of `other`'s bytes (capacity at least their count). Throws
    /// `std::bad_alloc` when the memory cannot be had.
    DataBuffer(const DataBuffer& other);
    /// Replaces the content with a copy of `other`'s bytes, reusing the storage when it is
    /// large enough. Throws `std::bad_alloc` when the memory cannot be had; the buffer is then
    /// empty (size 0, its storage kept).
    DataBuffer& operator=(const DataBuffer& other);
    /// Takes over `other`'s storage and content; `other` is left empty, without storage.
    DataBuffer(DataBuffer&& other) noexcept;
    /// Frees this buffer's storage and takes over `other`'s storage and content; `other` is
    /// left empty, without storage. Assigning a buffer to itself changes nothing.
    DataBuffer& operator=(DataBuffer&& other) noexcept;
    /// Frees the storage; pointers into it become invalid.
    ~DataBuffer();

    /// Makes the size 0; the storage and capacity are kept for reuse, and pointers into the
    /// storage stay valid.
    void clear() { m_size = 0; }
    /// Makes the size and capacity 0 and frees the storage; `getData2()` is null afterwards.
    void releaseStorage();

    /// The number of bytes held.
    unsigned getSize() const { return m_size; }
    /// The number of bytes reserved: at least the size; appends up to it take no new storage.
    unsigned getCapacity() const { return m_capacity; }
    /// True when the size is 0.
    bool isEmpty() const { return m_size == 0; }
    /// Pointer to the first byte, writable up to the capacity; null while no storage is
    /// reserved (capacity 0). Bytes past the size are not initialised.
    unsigned char* getData2() { return m_data; }
    /// Read-only pointer to the first byte; null while no storage is reserved.
    const unsigned char* getData2() const { return m_data; }
    /// Pointer to the byte at `offset`; null when `offset` is at or past the size.
    unsigned char* getDataAt2(unsigned offset);
    /// Read-only pointer to the byte at `offset`; null when `offset` is at or past the size.
    const unsigned char* getDataAt2(unsigned offset) const;

    /// Makes the capacity at least `capacity` (a total, not an increase); the bytes held stay.
    /// Growth reserves at least 1.5 times the old capacity and 64 bytes (within the 32-bit
    /// limit), falling back to the exact amount when that much cannot be had. True when the
    /// capacity suffices; false, with the buffer unchanged, when the memory cannot be had.
    bool ensureBuffer(unsigned capacity);
    /// As `ensureBuffer`, for totals computed in 64 bits: false (buffer unchanged) beyond
    /// 4,294,967,295.
    bool ensureBuffer64(uint64_t capacity);
    /// As `ensureBuffer64`, but a capacity that grows becomes exactly `capacity`, and the
    /// present storage is extended where it lies (large storage by remapping its pages, not
    /// copying them) rather than moved to fresh storage; only where neither works are the
    /// bytes copied. For one-off growth of a large buffer. False (unchanged) as there.
    bool extendStorage64(uint64_t capacity);
    /// Sets the size to `n`, clamped to the capacity, without touching any byte: the bytes
    /// between the old size and `n` are what was written there through `getData2()`, or
    /// uninitialised.
    void setDataSize_CAUTION(unsigned n);

    /// Appends the `n` bytes at `bytes`, which may lie in this buffer's own storage. True for
    /// `n` 0 whatever `bytes` is; false, with the buffer unchanged, when `bytes` is null, the
    /// size would pass 4,294,967,295 or the memory cannot be had.
    bool append(const void* bytes, unsigned n);
    /// Appends `other`'s bytes (`other` may be this buffer); false (unchanged) when the size
    /// would pass 4,294,967,295 or the memory cannot be had.
    bool append(const DataBuffer& other);
    /// Appends `sb`'s bytes, without its terminating NUL; false (unchanged) when the size
    /// would pass 4,294,967,295 or the memory cannot be had.
    bool append(const StringBuffer& sb);
    /// Appends the byte `c`; false (unchanged) when the buffer already holds 4,294,967,295
    /// bytes or the memory cannot be had.
    bool appendChar(unsigned char c);
    /// Appends `count` bytes of `src` from `offset` (`src` may be this buffer); false, with
    /// nothing appended, when the range is not all within `src`'s size or the append fails.
    bool appendRange(const DataBuffer& src, unsigned offset, unsigned count);
    /// Drops the last `n` bytes (all of them when `n` exceeds the size); the storage is kept.
    void shorten(unsigned n);
    /// Removes up to `n` bytes at `offset`, as far as the size reaches, moving the rest down;
    /// nothing when `offset` is at or past the size. The storage is kept.
    void removeChunk(unsigned offset, unsigned n);

    /// True when `other` holds the same bytes (two empty buffers are equal).
    bool equals(const DataBuffer& other) const;
    /// True when the buffer holds exactly the `n` bytes at `bytes` (which may be null for
    /// `n` 0, equal to an empty buffer only).
    bool equals(const void* bytes, unsigned n) const;

    /// First occurrence of the `length` bytes at `needle` in the bytes held, as a pointer
    /// into this buffer's storage (valid as a `getData2()` pointer is); null when there is
    /// none, when `length` is 0 or negative, or when `needle` is null.
    const unsigned char* findBytes(const unsigned char* needle, int length) const;
    /// First occurrence of needle[0, needleLength) in hay[0, hayLength), as a pointer into
    /// `hay`; null when there is none, when either pointer is null, or when `needleLength` is
    /// 0 or greater than `hayLength`. Reads nothing but its arguments.
    static const unsigned char* findBytes2(const unsigned char* hay, unsigned hayLength,
                                           const unsigned char* needle, unsigned needleLength);

    /// Replaces every non-overlapping occurrence of `find`, found scanning left to right, by
    /// `repl`, in one pass; both may lie in this buffer's storage. Returns the count replaced
    /// (capped at 2,147,483,647); 0, nothing changed, when there is none or `find` is null,
    /// empty or longer than the content; -1, with the buffer unchanged, when `repl` is null
    /// with `replLength` > 0, the result would pass 4,294,967,295 bytes, or the memory cannot
    /// be had. Only a longer replacement may move the storage.
    int replaceAllOccurances(const unsigned char* find, unsigned findLength,
                             const unsigned char* repl, unsigned replLength);

    /// Appends the bytes' text form in the named encoding to `out`; names are matched without
    /// regard to case. `hex` and `base16` write uppercase digits, `hexlower` lowercase ones;
    /// `base64` uses `+` `/` and `=` padding, `base64url` uses `-` `_` and no padding (neither
    /// breaks lines); `base32` uses A-Z 2-7 and `=` padding; `url` keeps A-Z a-z 0-9 `-_.~`
    /// and writes every other byte as `%` and two uppercase hex digits; `quoted-printable` (or
    /// `qp`) keeps CRLF line breaks, writes `=`, bytes outside printable ASCII and a space or
    /// tab before a line end as `=XX`, and keeps lines within 76 characters by soft breaks
    /// (`=` CRLF); `ascii` appends the bytes as they are. False, with `out` unchanged, for an
    /// unknown name or when `out` would pass 4,294,967,295 bytes. The text is built in
    /// `std::string`, which throws `std::bad_alloc` when its memory cannot be had.
    bool encodeDB(const char* encoding, StringBuffer& out) const;
    /// Replaces the content with the bytes that text[0, textLen) encodes in the named encoding
    /// (names as for `encodeDB`). Hex digits and base32 letters may be in either case; space,
    /// tab, CR and LF are skipped between hex pairs and anywhere in base64 and base32; padding
    /// is optional for base64, base64url and base32; `url` decodes only `%` with two hex
    /// digits (`+` stays); quoted-printable drops soft breaks (`=` LF or `=` CRLF). Empty text
    /// empties the buffer and frees its storage. False, with the content unchanged, for an
    /// unknown name, a null `text` with `textLen` > 0, text not valid in the encoding (a
    /// foreign character, a lone hex digit, a `%` or `=` without two hex digits after it,
    /// misplaced padding, a final group holding no whole byte), or when the memory cannot be
    /// had. On success the storage is new.
    bool decodeDB(const char* encoding, const char* text, unsigned textLen);

    /// Reads the 16-bit value at `pos` into `out`, little-endian when `littleEndian` is true
    /// and big-endian otherwise, and advances `pos` by 2. False, with `pos` and `out`
    /// unchanged, when the two bytes are not all within the size.
    bool parseUint16(unsigned& pos, bool littleEndian, unsigned short& out) const;
    /// Reads the 32-bit value at `pos` into `out`, little-endian when `littleEndian` is true
    /// and big-endian otherwise, and advances `pos` by 4. False, with `pos` and `out`
    /// unchanged, when the four bytes are not all within the size.
    bool parseUint32(unsigned& pos, bool littleEndian, unsigned& out) const;
    /// Appends the `n` bytes at `pos` to `out` (which may be this buffer) and advances `pos`
    /// by `n`. False, with `pos` and `out` unchanged, when they are not all within the size
    /// (pos + n beyond the 32-bit range included) or the append fails.
    bool parseData(unsigned& pos, unsigned n, DataBuffer& out) const;
    /// As `parseData`, appending the bytes' text in the named encoding (as `encodeDB` writes
    /// it) to `out`. False, with `pos` and `out` unchanged, also for an unknown name or when
    /// `out` would pass 4,294,967,295 bytes.
    bool parseDataEnc(unsigned& pos, unsigned n, const char* encoding, StringBuffer& out) const;

    // Whole-file operations; defined by the file-system layer (foundation/fs).

    /// Replaces the content with the whole regular file at the UTF-8 `path` (links followed),
    /// read straight into new storage; a file that grows meanwhile is read to its end.
    /// Nothing is logged on success. False, with the content unchanged and an error line in
    /// `log` (when not null), when the file cannot be opened (`open "PATH" failed: No such
    /// file or directory`), is no regular file (`read "PATH" failed: it is a directory, not a
    /// regular file`; special files are refused without blocking), holds 4,294,967,295 bytes
    /// or more, or cannot be read (`read "PATH" failed: ` and the system's reason).
    bool loadFileUtf8(const char* path, LogBase* log);
    /// Makes the file at the UTF-8 `path` hold exactly these bytes. An existing file is
    /// replaced atomically (a new file beside it, flushed and renamed over it, with its owner,
    /// group and permission bits), or rewritten in place behind a backup where those cannot
    /// be kept, its directory takes no new file or it has several hard links; a symbolic link
    /// is written through to its file; a new file gets mode 0666 less the umask. False, with
    /// an error line in `log` (when not null) such as `open "PATH" failed: Permission denied`
    /// or `write "PATH" failed: Is a directory`, when the path is a directory or special file
    /// or a step fails; an existing file then keeps its old content and no scratch file
    /// remains, unless an in-place rewrite cannot even be undone: a last error line then
    /// names the backup file that holds the old content.
    bool saveToFileUtf8(const char* path, LogBase* log) const;

    /// Exchanges the two buffers' bytes, sizes, capacities and storage without copying;
    /// pointers into either storage stay valid and now belong to the other buffer.
    void swap(DataBuffer& other) noexcept;

  private:
    // True when [p, p + n) lies at least partly in this buffer's storage.
    bool overlapsStorage(const void* p, unsigned n) const;

    unsigned char* m_data = nullptr;
    unsigned m_size = 0;
    unsigned m_capacity = 0;
};
