// The whole-file operations of DataBuffer, on top of the file-system layer.
#include "foundation/fs/FileSys.h"
#include "foundation/text/DataBuffer.h"

bool DataBuffer::loadFileUtf8(const char* path, LogBase* log) {
    return FileSys::readFileUtf8(path, *this, log);
}

bool DataBuffer::saveToFileUtf8(const char* path, LogBase* log) const {
    return FileSys::writeFileUtf8(path, *this, log);
}
