// A regular file read from its start in blocks of one fixed size, each into the same buffer:
// the one shape of every whole-file pass that streams (encoding, decoding, searching).
#pragma once

#include <memory>

#include "foundation/base/LogBase.h"
#include "foundation/fs/DataSource.h"
#include "foundation/text/XString.h"

class BlockReader {
  public:
    explicit BlockReader(unsigned blockSize) : m_blockSize(blockSize) {}

    // Opens the file, refusing anything but a regular file, then reserves the block. On
    // failure returns false with the reason logged: the data source's own lines, or a
    // memory failure under allocTag.
    bool open(const XString& path, int allocTag, LogBase& log);
    // Reads the next block into block(): got receives its length, and last is true once it
    // is shorter than a whole block, which happens only at the end of the file. False on a
    // read error (logged), with got 0.
    bool next(unsigned& got, bool& last, LogBase& log);
    // Makes the next block start `offset` bytes from the file's start, reserving the block
    // again if it was released. False (logged as open is) on failure.
    bool restartAt(long long offset, int allocTag, LogBase& log);

    unsigned char* block() { return m_block.get(); }
    unsigned blockSize() const { return m_blockSize; }
    // The open file's size as the file system reports it (0 when it cannot say).
    long long fileSize() { return m_src.getFileSize64(nullptr); }
    // Gives the block's memory back before the reader goes out of scope.
    void releaseBlock() { m_block.reset(); }

  private:
    bool reserveBlock(int allocTag, LogBase& log);

    _ovFileDataSource m_src;
    std::unique_ptr<unsigned char[]> m_block;
    unsigned m_blockSize;
};
