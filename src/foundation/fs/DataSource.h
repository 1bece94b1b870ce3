// Streaming byte sources and sinks.
#pragma once

#include <vector>

#include "foundation/base/LogBase.h"
#include "foundation/fs/FileId.h"
#include "foundation/fs/OrvaneHandle.h"
#include "foundation/text/XString.h"

class ProgressMonitor;
class _ovOutput;

// A sequential source of bytes.
class _ovDataSource {
public:
    virtual ~_ovDataSource() = default;

    // Delivers up to n next bytes into buf; numRead set. Fewer than n only at the end of the
    // data. False on a read error.
    virtual bool readSourcePM(char* buf, unsigned n, unsigned& numRead, ProgressMonitor* pm,
                              LogBase& log) = 0;
    // As readSourcePM, except that the bytes may be lent in place instead of copied: on
    // success `bytes` points at the numRead bytes delivered, either inside the source's own
    // storage (valid until the next call on the source) or at buf. Readers that only look
    // at the bytes save a copy this way. This default always copies into buf.
    virtual bool readSourceView(char* buf, unsigned n, const char*& bytes, unsigned& numRead,
                                LogBase& log);
    // True once every byte has been delivered.
    virtual bool endOfStream() = 0;
    // Appends the rest of the source to out; count receives the number of bytes copied.
    virtual bool copyToOutputPM(_ovOutput& out, long long& count, ProgressMonitor* pm,
                                LogBase& log);

    // Set true by the source when a read reaches the end of the data.
    unsigned m_sourceFlags = 0;
    // When true the source reads ahead in large blocks, so that many small reads cost few
    // system calls. Readers that stream a file once may leave it set; callers that need
    // exact read sizes set it false directly after opening.
    bool m_readAhead = true;
    bool m_eof = false;
};

// The source over a named file, read from its start.
class _ovFileDataSource : public _ovDataSource {
public:
    _ovFileDataSource() = default;
    ~_ovFileDataSource() override;  // closes the file

    // Opens a regular file; anything else is refused (never opened in a way that blocks).
    bool openDataSourceFile(const XString& path, LogBase& log);
    long long getFileSize64(LogBase* log);
    // Moves the next read to `offset` bytes from the file's start, dropping what was read
    // ahead. False (logged) when the file cannot seek there.
    bool seekSource(long long offset, LogBase& log);
    // The open file's identity.
    const FileId& fileId() const { return m_id; }

    bool readSourcePM(char* buf, unsigned n, unsigned& numRead, ProgressMonitor* pm,
                      LogBase& log) override;
    // Lends the bytes from the read-ahead block when it holds all n of them (or all that is
    // left of the file); otherwise copies into buf as readSourcePM does.
    bool readSourceView(char* buf, unsigned n, const char*& bytes, unsigned& numRead,
                        LogBase& log) override;
    bool endOfStream() override;
    // Lets the kernel copy when out is a file (copy_file_range), else reads and writes.
    bool copyToOutputPM(_ovOutput& out, long long& count, ProgressMonitor* pm,
                        LogBase& log) override;

    OrvaneHandle& handle() { return m_handle; }

private:
    // Reads the next read-ahead block from the handle; false on a read error.
    bool fillBlock(LogBase& log);
    // Marks n bytes as handed out.
    void delivered(unsigned n);

    OrvaneHandle m_handle;
    FileId m_id;
    long long m_size = -1;
    long long m_delivered = 0;
    // Read-ahead block (only with m_readAhead).
    unsigned char* m_block = nullptr;
    unsigned m_blockPos = 0;
    unsigned m_blockLen = 0;
};

// A sequential sink of bytes.
class _ovOutput {
public:
    // Appends n bytes.
    virtual bool writeUBytesPM(const unsigned char* p, unsigned n, ProgressMonitor* pm,
                               LogBase& log) = 0;
    // The file being written when the output is a file, else null (lets sources copy
    // through the kernel).
    virtual OrvaneHandle* fileHandle() { return nullptr; }
    // Closes the output and frees the object. Called once; the object is gone afterwards.
    virtual void dispose() = 0;

protected:
    virtual ~_ovOutput() = default;
};

class OutputFile {
public:
    // A new output writing the named regular file from empty, or null (reason in the log).
    // Anything else at the path (a FIFO, device, directory) is refused and left as it was,
    // and so is a file that is one of `notThese` (files the caller reads): such a file is
    // never emptied.
    static _ovOutput* createFileUtf8(const char* path, LogBase& log,
                                     const std::vector<FileId>* notThese = nullptr);
};
