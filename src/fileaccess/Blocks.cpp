// Numbered fixed-size blocks of the current file.
//
// Block i of size s starts at byte i * s (an unsigned 64-bit product, so blocks past 4 GiB are
// reachable); the last block holds what remains. A block is read with one reservation and one
// positioned read straight into the output buffer's storage.
#include <algorithm>
#include <cstdint>

#include "fileaccess/ClsFileAccess.h"
#include "foundation/base/MethodFrame.h"
#include "foundation/fs/OrvaneHandle.h"
#include "foundation/text/Charset.h"

namespace {

// Spare room reserved past the block, as every read of the current file reserves.
constexpr uint64_t kBlockSpare = 32;

// The first failed precondition shared by the block operations, or null when none failed.
const char* blockGeometryError(int blockSize, const OrvaneHandle& handle) {
    if (blockSize < 1) return "Invalid blockSize (0 or negative)";
    if (!handle.isHandleOpen()) return "No file is open.";
    return nullptr;
}

}  // namespace

int ClsFileAccess::GetNumBlocks(int blockSize) {
    StandardFrame f(*this, "GetNumBlocks");
    return countBlocks(blockSize);
}

bool ClsFileAccess::ReadBlock(int blockIndex, int blockSize, DataBuffer& out) {
    // Emptied before the lock is taken: the output holds nothing after any failure but a
    // short read.
    out.clear();
    StandardFrame f(*this, "ReadBlock");
    return readBlockDb(blockIndex, blockSize, out, m_log);
}

bool ClsFileAccess::ReadBlockBd(int blockIndex, int blockSize, ClsBinData& bd) {
    StandardFrame f(*this, "ReadBlockBd");
    return readBlockDb(blockIndex, blockSize, bd.m_data, m_log);
}

int ClsFileAccess::countBlocks(int blockSize) {
    if (const char* err = blockGeometryError(blockSize, *m_handle)) {
        m_log.LogError(err);
        return -1;
    }
    const long long size = m_handle->fileSize64(&m_log);
    if (size < 0) {
        m_log.LogError("Unable to get file size.");
        return -1;
    }
    const uint64_t bytes = static_cast<uint64_t>(size);
    const uint64_t bs = static_cast<uint64_t>(blockSize);
    const uint64_t count = bytes / bs + (bytes % bs != 0 ? 1 : 0);
    // The count leaves as its low 32 bits.
    return static_cast<int>(static_cast<uint32_t>(count));
}

// The handle is first placed where a seek to the block and a read of it would leave it (just
// past the block), then the block is read with a positioned read. That is one seek and one
// read, as before, but the seek comes first so that a refused seek is reported before the
// output is touched, and the read needs no position of its own.
bool ClsFileAccess::readBlockDb(int blockIndex, int blockSize, DataBuffer& out, LogBase& log) {
    if (blockIndex < 0) {
        log.LogError("blockIndex cannot be negative.");
        return false;
    }
    if (const char* err = blockGeometryError(blockSize, *m_handle)) {
        log.LogError(err);
        return false;
    }
    const long long size = m_handle->fileSize64(&log);
    if (size < 0) {
        log.LogError("Unable to get file size.");
        return false;
    }
    const uint64_t pos = static_cast<uint64_t>(blockIndex) * static_cast<uint64_t>(blockSize);
    const uint64_t usize = static_cast<uint64_t>(size);
    if (usize <= pos) {
        log.LogError("Position beyond end of file.");
        return false;
    }
    const uint64_t toRead64 = std::min<uint64_t>(usize - pos, static_cast<uint64_t>(blockSize));
    const uint32_t toRead = ov64::toUnsignedLong(static_cast<long long>(toRead64));
    const long long blockPos = static_cast<long long>(pos);
    if (!m_handle->setFilePointerAbsolute(blockPos + toRead, &log)) {
        log.LogError("Unable to set file pointer");
        log.LogDataInt64("pos64", blockPos);
        log.LogDataInt64("sz64", size);
        return false;
    }
    if (!out.ensureBuffer64(uint64_t{out.getSize()} + toRead + kBlockSpare)) {
        log.LogError("Failed to allocate memory.");
        return false;
    }
    unsigned numRead = 0;
    bool eof = m_endOfFile;
    const bool ok = m_handle->preadBytes(out.getData2(), toRead, blockPos, numRead, eof, &log);
    m_endOfFile = eof;
    if (!ok) {
        // A read that fails leaves the position where reading from the block's start stopped.
        m_handle->setFilePointerAbsolute(blockPos + numRead, nullptr);
        return false;
    }
    if (numRead == toRead) {
        out.setDataSize_CAUTION(numRead);
        return true;
    }
    // The file shrank under us: the position belongs just past what was read.
    m_handle->setFilePointerAbsolute(blockPos + numRead, nullptr);
    log.LogDataLong("blockIndex", blockIndex);
    log.LogDataLong("blockSize", blockSize);
    log.LogDataLong("szToRead32", static_cast<long>(toRead));
    log.LogDataLong("numBytesRead", static_cast<long>(numRead));
    log.LogError("Did not read the entire block.");
    out.setDataSize_CAUTION(numRead);
    return false;
}
