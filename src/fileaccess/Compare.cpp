// Byte-for-byte comparison of two files named by path.
//
// Files of different sizes are told apart from their sizes alone. Equal-sized files are
// streamed side by side in 16384-byte chunks through two fixed buffers, so memory use does
// not grow with the file size; the data sources keep reading ahead in large blocks, which
// keeps the number of system calls low while the chunks stay small.
#include <cstring>
#include <memory>

#include "fileaccess/ClsFileAccess.h"
#include "foundation/base/MethodFrame.h"
#include "foundation/fs/DataSource.h"
#include "foundation/fs/FileSys.h"
#include "foundation/text/Charset.h"

namespace {

constexpr unsigned kChunk = 16384;

// Both sizes, or false when either cannot be got or they differ (nothing is opened then).
// Only regular files have sizes worth comparing; anything else is refused here, before any
// open could block on it.
bool sizesMatch(const XString& path1, const XString& path2, long long& size, LogBase& log) {
    bool ok = false;
    long long size1 = FileSys::regularFileSizeX_64(path1, &log, ok);
    if (!ok) return false;
    long long size2 = FileSys::regularFileSizeX_64(path2, &log, ok);
    if (!ok) return false;
    if (size1 != size2) {
        log.LogInfo("File sizes are different.");
        return false;
    }
    size = size1;
    return true;
}

// The end of a pass is good only when both files ended together, after exactly the number
// of bytes they had at the start.
bool endedTogether(bool together, LogBase& log) {
    if (together) return true;
    log.LogError("A file changed size during the comparison.");
    return false;
}

// Reads chunk pairs until a source ends, a read fails or a chunk differs. The answer is
// true only when both sources ended together after exactly `size` equal bytes: a file that
// shrinks or grows while it is read cannot pass for an equal one.
bool compareStreams(_ovDataSource& src1, _ovDataSource& src2, char* buf1, char* buf2,
                    long long size, LogBase& log) {
    long long compared = 0;
    for (;;) {
        bool end1 = src1.endOfStream();
        bool end2 = src2.endOfStream();
        if (end1 || end2) return endedTogether(end1 && end2 && compared == size, log);
        const char* bytes1 = nullptr;
        const char* bytes2 = nullptr;
        unsigned n1 = 0;
        unsigned n2 = 0;
        if (!src1.readSourceView(buf1, kChunk, bytes1, n1, log)) {
            log.LogError("Failed to read more from file 1 source.");
            return false;
        }
        if (!src2.readSourceView(buf2, kChunk, bytes2, n2, log)) {
            log.LogError("Failed to read more from file 2 source.");
            return false;
        }
        if (n1 != n2) {
            log.LogError("Failed to read equal amounts from each file.");
            return false;
        }
        // Nothing more from either file: the end, which must lie where the sizes said.
        if (n1 == 0) return endedTogether(compared == size, log);
        if (std::memcmp(bytes1, bytes2, n1) != 0) return false;
        compared += n1;
    }
}

// After a full pass, both files must still have the size they had before it.
bool sizesUnchanged(const XString& path1, const XString& path2, long long size) {
    bool ok1 = false;
    bool ok2 = false;
    long long now1 = FileSys::fileSizeX_64(path1, nullptr, ok1);
    long long now2 = FileSys::fileSizeX_64(path2, nullptr, ok2);
    return ok1 && ok2 && now1 == size && now2 == size;
}

bool fileContentsEqual(const XString& path1, const XString& path2, LogBase& log) {
    log.LogDataX("path1", path1);
    log.LogDataX("path2", path2);

    long long size = 0;
    if (!sizesMatch(path1, path2, size, log)) return false;

    _ovFileDataSource src1;
    if (!src1.openDataSourceFile(path1, log)) return false;
    _ovFileDataSource src2;
    if (!src2.openDataSourceFile(path2, log)) return false;

    std::unique_ptr<char[]> buf1(ovNewChar(kChunk));
    std::unique_ptr<char[]> buf2(ovNewChar(kChunk));
    if (!buf1 || !buf2) return false;

    if (!compareStreams(src1, src2, buf1.get(), buf2.get(), size, log)) return false;
    if (!sizesUnchanged(path1, path2, size)) {
        log.LogError("A file changed size during the comparison.");
        return false;
    }
    return true;
}

}  // namespace

bool ClsFileAccess::FileContentsEqual(XString& path1, XString& path2) {
    OlderFrame f(*this, "FileContentsEqual");
    return fileContentsEqual(path1, path2, f.log());
}
