#include "fileaccess/BlockReader.h"

#include <new>

bool BlockReader::open(const XString& path, int allocTag, LogBase& log) {
    return m_src.openDataSourceFile(path, log) && reserveBlock(allocTag, log);
}

bool BlockReader::restartAt(long long offset, int allocTag, LogBase& log) {
    return m_src.seekSource(offset, log) && (m_block || reserveBlock(allocTag, log));
}

bool BlockReader::reserveBlock(int allocTag, LogBase& log) {
    m_block.reset(new (std::nothrow) unsigned char[m_blockSize]);
    if (m_block) return true;
    log.MemoryAllocFailed(allocTag, m_blockSize);
    return false;
}

bool BlockReader::next(unsigned& got, bool& last, LogBase& log) {
    got = 0;
    if (!m_src.readSourcePM(reinterpret_cast<char*>(m_block.get()), m_blockSize, got, nullptr,
                            log)) {
        got = 0;
        return false;
    }
    last = got < m_blockSize;
    return true;
}
