#include "foundation/fs/DataSource.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

#include "foundation/fs/FsInternal.h"

namespace {

// Read-ahead block: large enough that a read costs little per byte (4096 reads per GiB),
// small enough that a block stays in the L2 cache until its last chunk is handed out, so
// the caller's copy and its use of the bytes (a comparison of two sources side by side: two
// blocks) read cache rather than memory. 2 MiB blocks compared 5% slower than this.
constexpr unsigned kBlockSize = 256u << 10;
// The block starts on a page boundary: the kernel copies whole pages out of the page cache
// fastest into an equally aligned destination (malloc's 16-byte offset cost about 10%).
constexpr std::align_val_t kBlockAlign{4096};
// Chunk for the generic copy that goes through readSourcePM.
constexpr unsigned kCopyChunk = 1u << 20;

// The output over a file written from empty.
class FileOutput final : public _ovOutput {
public:
    explicit FileOutput(int fd) : m_handle(fd) {}

    bool writeUBytesPM(const unsigned char* p, unsigned n, ProgressMonitor*,
                       LogBase& log) override {
        return m_handle.writeBytes(p, n, &log);
    }
    OrvaneHandle* fileHandle() override { return &m_handle; }
    void dispose() override { delete this; }

private:
    ~FileOutput() override = default;  // closes the file

    OrvaneHandle m_handle;
};

}  // namespace

bool _ovDataSource::readSourceView(char* buf, unsigned n, const char*& bytes, unsigned& numRead,
                                   LogBase& log) {
    bytes = buf;
    return readSourcePM(buf, n, numRead, nullptr, log);
}

bool _ovDataSource::copyToOutputPM(_ovOutput& out, long long& count, ProgressMonitor* pm,
                                   LogBase& log) {
    count = 0;
    std::unique_ptr<char[]> buf(new (std::nothrow) char[kCopyChunk]);
    if (!buf) {
        log.MemoryAllocFailed(1, kCopyChunk);
        return false;
    }
    while (!endOfStream()) {
        unsigned got = 0;
        if (!readSourcePM(buf.get(), kCopyChunk, got, pm, log)) return false;
        if (got == 0) break;
        if (!out.writeUBytesPM(reinterpret_cast<unsigned char*>(buf.get()), got, pm, log))
            return false;
        count += got;
    }
    return true;
}

_ovFileDataSource::~_ovFileDataSource() { ::operator delete[](m_block, kBlockAlign); }

bool _ovFileDataSource::openDataSourceFile(const XString& path, LogBase& log) {
    m_handle.closeHandle();
    m_size = -1;
    m_delivered = 0;
    m_blockPos = m_blockLen = 0;
    m_eof = false;
    m_sourceFlags = 0;
    struct stat st;
    OrvaneHandle h(fsi::openRegular(path.getUtf8(), O_RDONLY, 0, st, "read", &log));
    if (!h.isHandleOpen()) return false;
    m_id = FileId::of(st);
    m_size = static_cast<long long>(st.st_size);
    m_handle.takeHandle(h);
    return true;
}

long long _ovFileDataSource::getFileSize64(LogBase* log) { return m_handle.fileSize64(log); }

bool _ovFileDataSource::seekSource(long long offset, LogBase& log) {
    if (!m_handle.setFilePointerAbsolute(offset, &log)) return false;
    m_blockPos = m_blockLen = 0;
    m_delivered = offset;
    m_eof = false;
    m_sourceFlags = 0;
    return true;
}

bool _ovFileDataSource::endOfStream() {
    if (!m_handle.isHandleOpen()) return true;
    if (m_blockPos < m_blockLen) return false;
    return m_eof || m_delivered >= m_size;
}

bool _ovFileDataSource::fillBlock(LogBase& log) {
    if (!m_block)
        m_block = static_cast<unsigned char*>(
            ::operator new[](kBlockSize, kBlockAlign, std::nothrow));
    if (!m_block) {
        log.MemoryAllocFailed(2, kBlockSize);
        return false;
    }
    bool eof = false;
    unsigned got = 0;
    if (!m_handle.readBytesToBuf32(m_block, kBlockSize, got, eof, &log)) return false;
    m_blockPos = 0;
    m_blockLen = got;
    if (eof) m_eof = true;
    return true;
}

void _ovFileDataSource::delivered(unsigned n) {
    m_delivered += n;
    if (m_eof && m_blockPos >= m_blockLen) m_sourceFlags |= 1u;
}

bool _ovFileDataSource::readSourcePM(char* buf, unsigned n, unsigned& numRead, ProgressMonitor*,
                                     LogBase& log) {
    numRead = 0;
    if (!m_handle.isHandleOpen()) {
        fsi::logFailure(&log, "read", nullptr, "no file is open");
        return false;
    }
    while (numRead < n) {
        // Serve what the read-ahead block still holds.
        if (m_blockPos < m_blockLen) {
            unsigned take = std::min(n - numRead, m_blockLen - m_blockPos);
            std::memcpy(buf + numRead, m_block + m_blockPos, take);
            m_blockPos += take;
            numRead += take;
            continue;
        }
        if (m_eof) break;
        unsigned want = n - numRead;
        // Large requests, and every request without read-ahead, go straight to the caller.
        if (!m_readAhead || want >= kBlockSize) {
            bool eof = false;
            unsigned got = 0;
            if (!m_handle.readBytesToBuf32(buf + numRead, want, got, eof, &log)) return false;
            numRead += got;
            if (eof) m_eof = true;
        } else if (!fillBlock(log)) {
            return false;
        }
    }
    delivered(numRead);
    return true;
}

bool _ovFileDataSource::readSourceView(char* buf, unsigned n, const char*& bytes,
                                       unsigned& numRead, LogBase& log) {
    numRead = 0;
    bytes = buf;
    if (!m_handle.isHandleOpen()) return readSourcePM(buf, n, numRead, nullptr, log);
    bool wantsBlock = m_readAhead && n < kBlockSize;
    if (wantsBlock && m_blockPos >= m_blockLen && !m_eof && !fillBlock(log)) return false;
    unsigned held = m_blockLen - m_blockPos;
    // Lend only what readSourcePM would have delivered: n bytes, or fewer at the end.
    if (!wantsBlock || held == 0 || (held < n && !m_eof))
        return readSourcePM(buf, n, numRead, nullptr, log);
    bytes = reinterpret_cast<const char*>(m_block + m_blockPos);
    numRead = std::min(n, held);
    m_blockPos += numRead;
    delivered(numRead);
    return true;
}

bool _ovFileDataSource::copyToOutputPM(_ovOutput& out, long long& count, ProgressMonitor* pm,
                                       LogBase& log) {
    count = 0;
    OrvaneHandle* dest = out.fileHandle();
    if (!dest || !dest->isHandleOpen() || !m_handle.isHandleOpen())
        return _ovDataSource::copyToOutputPM(out, count, pm, log);
    // First what was read ahead but not yet delivered, then the rest of the file from the
    // handle's position (which lies just past the read-ahead block).
    if (m_blockPos < m_blockLen) {
        unsigned pending = m_blockLen - m_blockPos;
        if (!out.writeUBytesPM(m_block + m_blockPos, pending, pm, log)) return false;
        m_blockPos = m_blockLen;
        count += pending;
    }
    long long copied = 0;
    const char* failedOp = nullptr;
    bool ok = fsi::copyFdToFd(m_handle.fd(), dest->fd(), copied, failedOp);
    count += copied;
    m_delivered += count;
    if (!ok) {
        fsi::logSysFailure(&log, failedOp, nullptr, errno);
        return false;
    }
    m_eof = true;
    m_sourceFlags |= 1u;
    return true;
}

_ovOutput* OutputFile::createFileUtf8(const char* path, LogBase& log,
                                      const std::vector<FileId>* notThese) {
    const char* p = path ? path : "";
    // Emptied only after the checks on the open descriptor.
    struct stat st;
    int fd = fsi::openRegular(p, O_WRONLY | O_CREAT, 0666, st, "write", &log);
    if (fd < 0) return nullptr;
    const bool readByCaller =
        notThese && std::find(notThese->begin(), notThese->end(), FileId::of(st)) != notThese->end();
    if (readByCaller) {
        fsi::closeFd(fd);
        fsi::logFailure(&log, "write", p, "it is one of the files being read");
        return nullptr;
    }
    // An empty file is not truncated: on ext4 that forces its data to disk at close.
    if (st.st_size > 0 && fsi::ftruncateRetry(fd, 0) != 0) {
        int err = errno;
        fsi::closeFd(fd);
        fsi::logSysFailure(&log, "ftruncate", p, err);
        return nullptr;
    }
    _ovOutput* out = new (std::nothrow) FileOutput(fd);
    if (!out) {
        fsi::closeFd(fd);
        log.MemoryAllocFailed(3, sizeof(FileOutput));
        return nullptr;
    }
    return out;
}
