// Cutting a file into numbered part files and joining such a set again.
//
// Both directions stream: the split moves data through one heap buffer of at most 200000
// bytes, the join lets the data source copy each part (through the kernel when it can), so
// memory use does not depend on the file's size. Only one part file is open at a time.
#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "fileaccess/ClsFileAccess.h"
#include "foundation/base/MethodFrame.h"
#include "foundation/fs/DataSource.h"
#include "foundation/fs/FilePath.h"
#include "foundation/fs/FileSys.h"
#include "foundation/text/Charset.h"

namespace {

// Disposes of an output object (closing its file) when the holder goes out of scope.
struct OutputDisposer {
    void operator()(_ovOutput* out) const { out->dispose(); }
};
using OutputPtr = std::unique_ptr<_ovOutput, OutputDisposer>;

// A leading "." is dropped before the trim, so " .dat" keeps its dot and gives "..dat" names.
StringBuffer normaliseExtension(const XString& extension) {
    StringBuffer ext(extension.getUtf8());
    if (ext.beginsWith(".")) ext.replaceFirstOccurance(".", "", false);
    ext.trim2();
    return ext;
}

// dir / <trimmed prefix><partNum>.<ext>
void buildPartPath(const XString& dir, const XString& prefix, int partNum, const StringBuffer& ext,
                   XString& out) {
    StringBuffer name(prefix.getUtf8());
    name.trim2();
    name.append(partNum);
    name.appendChar('.');
    name.append(ext);
    XString fileName;
    fileName.setFromUtf8(name.view());
    out.clear();
    _ovFilePath::CombineDirAndFilename(dir, fileName, out);
}

// The copy buffer: the first of three sizes whose allocation succeeds, each asked for with
// a little slack beyond its usable size.
std::unique_ptr<unsigned char[]> allocCopyBuffer(unsigned& bufSize) {
    for (unsigned size : {200000u, 50000u, 20000u}) {
        if (unsigned char* p = ovNewUnsignedChar(size + 32)) {
            bufSize = size;
            return std::unique_ptr<unsigned char[]>(p);
        }
    }
    bufSize = 0;
    return nullptr;
}

// Copies up to partSize bytes (no more than bytesLeft) from the source into the part.
// A short delivery is written as delivered and only what was delivered is counted; a
// delivery of nothing while bytes are still expected means the input shrank and ends the
// copy as a failure, so no byte is ever invented.
bool copyPart(_ovDataSource& src, _ovOutput& out, unsigned char* buf, unsigned bufSize,
              long long partSize, long long& bytesLeft, long long& written, LogBase& log) {
    long long inPart = partSize;
    while (inPart >= 1 && bytesLeft >= 1) {
        auto chunk =
            static_cast<unsigned>(std::min({inPart, static_cast<long long>(bufSize), bytesLeft}));
        unsigned got = 0;
        if (!src.readSourcePM(reinterpret_cast<char*>(buf), chunk, got, nullptr, log)) return false;
        if (got == 0) {
            log.LogError("Input file ended before its expected size.");
            return false;
        }
        if (!out.writeUBytesPM(buf, got, nullptr, log)) {
            log.LogError("Failed to write output file.");
            return false;
        }
        inPart -= got;
        bytesLeft -= got;
        written += got;
    }
    return true;
}

// Before anything is written: every part the split will make may be written, and none is
// the input under another name (it would be emptied before it was read).
bool partsAreWritable(const XString& destDir, const XString& prefix, const StringBuffer& ext,
                      long long partSize, long long fileSize, const FileId& input, LogBase& log) {
    if (fileSize < 1) return true;
    const long long numParts = (fileSize - 1) / partSize + 1;
    XString partPath;
    for (long long partNum = 1; partNum <= numParts; ++partNum) {
        buildPartPath(destDir, prefix, static_cast<int>(partNum), ext, partPath);
        bool exists = false;
        FileId id;
        if (!FileSys::regularFileId(partPath, exists, id, &log)) {
            log.LogError("Failed to open output file.");
            return false;
        }
        if (exists && id == input) {
            std::string line =
                std::string("Part file \"") + partPath.getUtf8() + "\" is the file being split.";
            log.LogError(line.c_str());
            return false;
        }
    }
    return true;
}

// Writes the parts one after another until the input's bytes are used up.
bool writeParts(_ovFileDataSource& src, const XString& prefix, const StringBuffer& ext,
                long long partSize, const XString& destDir, unsigned char* buf, unsigned bufSize,
                long long bytesLeft, LogBase& log) {
    const std::vector<FileId> input{src.fileId()};
    XString partPath;
    for (int partNum = 1; bytesLeft >= 1; ++partNum) {
        buildPartPath(destDir, prefix, partNum, ext, partPath);
        log.LogDataX("outputFile", partPath);
        OutputPtr out(OutputFile::createFileUtf8(partPath.getUtf8(), log, &input));
        if (!out) {
            log.LogError("Failed to open output file.");
            return false;
        }
        log.LogDataX("nextPartPath", partPath);
        long long written = 0;
        bool ok = copyPart(src, *out, buf, bufSize, partSize, bytesLeft, written, log);
        log.LogDataInt64("numBytesWritten", written);
        if (!ok) return false;
    }
    return true;
}

bool splitFile(const XString& path, const XString& prefix, const XString& extension, int partSize,
               const XString& destDir, LogBase& log) {
    StringBuffer ext = normaliseExtension(extension);
    log.LogDataX("path", path);
    log.LogDataX("prefix", prefix);
    log.LogDataX("extension", extension);
    log.LogDataLong("partSize", partSize);

    unsigned bufSize = 0;
    std::unique_ptr<unsigned char[]> buf = allocCopyBuffer(bufSize);
    if (!buf) {
        log.MemoryAllocFailed(1110, 20000);
        return false;
    }
    log.LogDataLong("bufSize", bufSize);

    _ovFileDataSource src;
    if (!src.openDataSourceFile(path, log)) {
        log.LogError("Failed to open input file.");
        return false;
    }
    // Reads must deliver exactly what is asked, so no byte is taken ahead of its part.
    src.m_readAhead = false;

    long long fileSize = src.getFileSize64(&log);
    log.LogDataInt64("fileSize", fileSize);
    if (fileSize < 0) {
        log.LogError("Failed to get the size of the input file.");
        return false;
    }
    // With a part size below 1 the copy could never make progress.
    if (fileSize >= 1 && partSize < 1) {
        log.LogError("The part size must be at least 1 byte.");
        return false;
    }
    if (!partsAreWritable(destDir, prefix, ext, partSize, fileSize, src.fileId(), log))
        return false;
    return writeParts(src, prefix, ext, partSize, destDir, buf.get(), bufSize, fileSize, log);
}

void logOutputIsPart(const XString& partPath, LogBase& log) {
    std::string line =
        std::string("The output file is part file \"") + partPath.getUtf8() + "\" itself.";
    log.LogError(line.c_str());
}

// Before the output is emptied: every part of the set is a regular file, and none is the
// output under another name (it would be emptied, or joined into itself without end). An
// output that does not exist yet must not be where the next part number would be: made
// there, it would join the set, and the next join of the set would take it in.
bool partsAreReadable(const XString& srcDir, const XString& prefix, const StringBuffer& ext,
                      const XString& outFilePath, std::vector<FileId>& parts, LogBase& log) {
    bool outExists = false;
    FileId out;
    if (!FileSys::regularFileId(outFilePath, outExists, out, &log)) return false;
    XString partPath;
    for (int partNum = 1;; ++partNum) {
        buildPartPath(srcDir, prefix, partNum, ext, partPath);
        bool exists = false;
        FileId id;
        if (!FileSys::regularFileId(partPath, exists, id, &log)) return false;
        if (!exists) {
            if (outExists || !FileSys::sameDirectoryEntry(outFilePath, partPath)) return true;
            logOutputIsPart(partPath, log);
            return false;
        }
        if (outExists && id == out) {
            logOutputIsPart(partPath, log);
            return false;
        }
        parts.push_back(id);
    }
}

// Appends the parts counted by the check above to the output, each only if it is still the
// file that was checked. Without any part, the open of part 1 reports why.
bool joinParts(const XString& srcDir, const XString& prefix, const StringBuffer& ext,
               const std::vector<FileId>& parts, _ovOutput& out, LogBase& log) {
    XString partPath;
    for (size_t i = 0; i < parts.size() || i == 0; ++i) {
        buildPartPath(srcDir, prefix, static_cast<int>(i + 1), ext, partPath);
        _ovFileDataSource part;
        if (!part.openDataSourceFile(partPath, log)) return false;
        if (i >= parts.size() || part.fileId() != parts[i]) {
            std::string line = std::string("Part file \"") + partPath.getUtf8() +
                               "\" changed while the parts were joined.";
            log.LogError(line.c_str());
            return false;
        }
        part.m_readAhead = false;
        long long count = 0;
        if (!part.copyToOutputPM(out, count, nullptr, log)) return false;
    }
    return true;
}

bool reassembleFile(const XString& srcDirPath, const XString& prefix, const XString& splitExtension,
                    const XString& outFilePath, LogBase& log) {
    log.LogDataX("srcDirPath", srcDirPath);
    log.LogDataX("prefix", prefix);
    log.LogDataX("splitExtension", splitExtension);
    log.LogDataX("outFilePath", outFilePath);
    StringBuffer ext = normaliseExtension(splitExtension);

    std::vector<FileId> parts;
    if (!partsAreReadable(srcDirPath, prefix, ext, outFilePath, parts, log)) return false;
    // The output is never one of the parts: the open refuses a file that is one, so that a
    // part swapped in after the check is not emptied either.
    OutputPtr out(OutputFile::createFileUtf8(outFilePath.getUtf8(), log, &parts));
    if (!out) return false;
    return joinParts(srcDirPath, prefix, ext, parts, *out, log);
}

}  // namespace

bool ClsFileAccess::SplitFile(XString& path, XString& prefix, XString& extension, int partSize,
                              XString& destDir) {
    OlderFrame f(*this, "SplitFile");
    return f.result(splitFile(path, prefix, extension, partSize, destDir, f.log()));
}

bool ClsFileAccess::ReassembleFile(XString& srcDirPath, XString& prefix, XString& splitExtension,
                                   XString& outFilePath) {
    OlderFrame f(*this, "ReassembleFile");
    return f.result(reassembleFile(srcDirPath, prefix, splitExtension, outFilePath, f.log()));
}
