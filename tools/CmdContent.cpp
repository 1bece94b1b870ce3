// Jobs on a file's contents: record scan, blocks, shortcut files, encodings and charsets.
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

#include "Cli.h"
#include "Interrupt.h"
#include "Output.h"
#include "Progress.h"
#include "TagScan.h"
#include "fileaccess/ClsFileAccess.h"
#include "foundation/fs/DataSource.h"
#include "foundation/fs/FileSys.h"
#include "foundation/text/Charset.h"
#include "foundation/text/Convert.h"

namespace fatool {

namespace {

constexpr unsigned kConvertBlock = 1u << 20;

// The bytes of a named file, read in the scanner's blocks: a regular file, or a FIFO or
// device read as a stream (the scan never seeks).
class FileBytes : public ByteSource {
  public:
    bool open(const std::string& path, std::string& why) {
        XString p(path.c_str());
        _ovLogger log;
        if (FileSys::filePathType(p, false, log) == PathType::Other) {
            int code = 0;
            m_stream.reset(FileSys::openForReadOnly(p, false, false, code, &log));
            return m_stream ? true : (why = errorLines(log), false);
        }
        if (!m_src.openDataSourceFile(p, log)) return why = errorLines(log), false;
        m_src.m_readAhead = false;  // the scanner's blocks are large already
        return true;
    }
    // The size, or 0 for a stream (unknown).
    int64_t size() { return m_stream ? 0 : m_src.getFileSize64(nullptr); }
    bool read(unsigned char* buf, size_t n, size_t& got, std::string& why) override {
        _ovLogger log;
        unsigned count = 0;
        bool eof = false;
        const bool ok =
            m_stream ? m_stream->readBytesToBuf32(buf, static_cast<unsigned>(n), count, eof, &log)
                     : m_src.readSourcePM(reinterpret_cast<char*>(buf), static_cast<unsigned>(n),
                                          count, nullptr, log);
        if (!ok) return why = errorLines(log), false;
        got = count;
        return true;
    }

  private:
    _ovFileDataSource m_src;
    std::unique_ptr<OrvaneHandle> m_stream;
};

// Standard input, streamed as it comes.
class StreamBytes : public ByteSource {
  public:
    explicit StreamBytes(std::istream& in) : m_in(in) {}
    bool read(unsigned char* buf, size_t n, size_t& got, std::string& why) override {
        errno = 0;
        m_in.read(reinterpret_cast<char*>(buf), static_cast<std::streamsize>(n));
        got = static_cast<size_t>(m_in.gcount());
        if (m_in.bad()) return why = readError(errno), false;
        return true;
    }

  private:
    std::istream& m_in;
};

// The records of a scan, printed or counted as they come, with progress on request. A record
// that cannot be printed stops the scan (run() reports the write error).
class RecordSink {
  public:
    RecordSink(Invocation& inv, int64_t limit, int64_t total)
        : m_inv(inv),
          m_countOnly(inv.has("count")),
          m_limit(limit),
          m_total(total),
          m_progress(inv.ctx, "scan", !m_countOnly) {}

    // Whether there is room for a record: false once the limit is reached.
    bool wantsMore() const { return m_limit < 0 || m_count < m_limit; }
    // Takes a record; false when the scan should stop.
    bool take(const XString& record, int64_t position) {
        ++m_count;
        if (!m_countOnly) {
            m_progress.beforeOutput();
            m_inv.ctx.out << record.view() << '\n';
        }
        if (m_progress.active())
            m_progress.update(counted(m_count, "record", "records") + ", " +
                              fraction(position, m_total));
        return m_inv.ctx.out.good() && wantsMore();
    }
    // Ends the scan; the count is printed only for a scan that went through.
    void finish(bool ok) {
        m_progress.finish();
        if (ok && m_countOnly) m_inv.ctx.out << m_count << '\n';
    }
    int64_t count() const { return m_count; }

  private:
    Invocation& m_inv;
    const bool m_countOnly;
    const int64_t m_limit;
    const int64_t m_total;
    Progress m_progress;
    int64_t m_count = 0;
};

// A tag marker: the program's own streaming match, which finds every form of the tag.
int scanTags(Invocation& inv, const std::string& charset, int64_t limit) {
    TagScanner scanner;
    std::string why;
    if (!scanner.prepare(inv.args[1], inv.args[2], charset, why)) throw UsageError(why);
    FileBytes file;
    StreamBytes input(inv.ctx.in);
    const bool fromStdin = inv.args[0] == "-";
    const std::string name = inv.inputName(inv.args[0]);
    if (!fromStdin && !file.open(inv.args[0], why)) return inv.fail(name, why);
    ByteSource& source = fromStdin ? static_cast<ByteSource&>(input) : file;
    RecordSink sink(inv, limit, fromStdin ? 0 : file.size());
    bool ok =
        !sink.wantsMore() ||
        scanner.scan(
            source, [&](const XString& record) { return sink.take(record, scanner.bytesRead()); },
            why);
    sink.finish(ok);
    return ok ? kExitOk : inv.fail(name, why);
}

// Other markers: the library's scanner, which reads a file (standard input is kept in one).
int scanMarkers(Invocation& inv, const std::string& charset, int64_t limit) {
    if (inv.args[1].empty() || inv.args[2].empty())
        throw UsageError("the markers must not be empty");
    const std::string file = inv.seekableInput(inv.args[0]);
    if (file.empty()) return kExitFailed;
    ClsFileAccess fa;
    fa.put_VerboseLogging(inv.ctx.verbose);
    XString path(file.c_str()), begin(inv.args[1].c_str()), end(inv.args[2].c_str()),
        cs(charset.c_str());
    const int64_t total = fa.FileSize64(path);
    if (!fa.OpenForRead(path)) return inv.failFrom(fa, inv.inputName(inv.args[0]));
    RecordSink sink(inv, limit, total);
    int64_t bytes = 0;
    int rc = 0;
    bool invalid = false;
    if (sink.wantsMore()) {
        rc = fa.ScanFragments(true, 0, begin, end, cs, [&](const XString& record) {
            // A record holds its markers: one handed over empty could not be decoded.
            if (record.isEmpty()) return invalid = true, false;
            bytes += record.getSizeUtf8();
            return sink.take(record, bytes);
        });
    }
    sink.finish(rc >= 0 && !invalid);
    if (invalid)
        return inv.fail(inv.inputName(inv.args[0]), "record " + std::to_string(sink.count() + 1) +
                                                        " is not valid " + charset + " text");
    if (rc < 0) return inv.failFrom(fa, inv.inputName(inv.args[0]));
    inv.showLog(fa);
    return kExitOk;
}

int runScan(Invocation& inv) {
    const int64_t limit =
        inv.has("limit") ? parseInt(inv.get("limit", ""), "limit", 0, INT64_MAX) : -1;
    const std::string charset = inv.get("charset", "utf-8");
    checkCharset(charset);
    if (isTagMarker(inv.args[1])) return scanTags(inv, charset, limit);
    return scanMarkers(inv, charset, limit);
}

// Opens the file for the block commands (standard input is kept in a file first); false with
// the failure reported.
bool openForBlocks(Invocation& inv, ClsFileAccess& fa) {
    fa.put_VerboseLogging(inv.ctx.verbose);
    const std::string file = inv.seekableInput(inv.args[0]);
    if (file.empty()) return false;
    XString path(file.c_str());
    if (fa.OpenForRead(path)) return true;
    inv.failFrom(fa, inv.inputName(inv.args[0]));
    return false;
}

int runBlocks(Invocation& inv) {
    const int blockSize = static_cast<int>(parseSize(inv.args[1], "block size", 1, 0x7fffffff));
    ClsFileAccess fa;
    if (!openForBlocks(inv, fa)) return kExitFailed;
    const int n = fa.GetNumBlocks(blockSize);
    if (n < 0) return inv.failFrom(fa, inv.inputName(inv.args[0]));
    inv.ctx.out << n << '\n';
    inv.showLog(fa);
    return kExitOk;
}

int runBlock(Invocation& inv) {
    const int blockSize = static_cast<int>(parseSize(inv.args[1], "block size", 1, 0x7fffffff));
    const int index = static_cast<int>(parseInt(inv.args[2], "block index", 0, 0x7fffffff));
    const std::string encoding = inv.get("encoding", "");
    if (!encoding.empty()) checkEncoding(encoding);
    ClsFileAccess fa;
    if (!openForBlocks(inv, fa)) return kExitFailed;
    DataBuffer block;
    if (!fa.ReadBlock(index, blockSize, block)) return inv.failFrom(fa, inv.inputName(inv.args[0]));
    if (encoding.empty()) {
        inv.ctx.out.write(reinterpret_cast<const char*>(block.getData2()), block.getSize());
    } else {
        StringBuffer text;
        block.encodeDB(encoding.c_str(), text);
        inv.ctx.out << text.getString() << '\n';
    }
    inv.showLog(fa);
    return kExitOk;
}

int runShortcut(Invocation& inv) {
    // The library reads NAME.lnk for a NAME without the extension: so is the copy of standard
    // input named.
    XString path(inv.inputFile(inv.args[0], ".lnk").c_str());
    _ovLogger log;
    log.m_verboseLogging = inv.ctx.verbose;
    if (inv.has("check")) {
        // As test(1): the answer is the exit status, and the line says it too.
        const bool ok = ClsFileAccess::parseableShortcut(path, log);
        inv.ctx.out << (ok ? "parseable" : "not parseable") << '\n';
        inv.showLog(log.text());
        return ok ? kExitOk : kExitFailed;
    }
    _ovShortcutInfo info;
    if (!ClsFileAccess::readShortcut(path, info, log)) {
        const std::string lines = errorLines(log);
        return inv.failFromLog(lines.empty() ? "not a readable shortcut (.lnk) file" : lines,
                               log.text(), inv.inputName(inv.args[0]));
    }
    inv.ctx.out << "name: " << info.name.view() << '\n'
                << "relativePath: " << info.relativePath.view() << '\n'
                << "workingDir: " << info.workingDir.view() << '\n'
                << "commandLineArguments: " << info.commandLineArguments.view() << '\n'
                << "iconLocation: " << info.iconLocation.view() << '\n';
    inv.showLog(log.text());
    return kExitOk;
}

int runEncode(Invocation& inv) {
    const std::string encoding = inv.get("encoding", "base64");
    checkEncoding(encoding);
    ClsFileAccess fa;
    fa.put_VerboseLogging(inv.ctx.verbose);
    XString path(inv.inputFile(inv.args[0]).c_str()), enc(encoding.c_str()), out;
    if (!fa.ReadBinaryToEncoded(path, enc, out))
        return inv.failFrom(fa, inv.inputName(inv.args[0]));
    inv.ctx.out << out.view() << '\n';
    inv.showLog(fa);
    return kExitOk;
}

int runBlockId(Invocation& inv) {
    const int64_t first = parseInt(inv.args[0], "index", INT32_MIN, INT32_MAX);
    const int64_t length = parseInt(inv.args[1], "length", 1, 4096);
    const int64_t count = parseInt(inv.get("number", "1"), "number", 1, INT32_MAX);
    const int64_t last = first + count - 1;
    if (last > INT32_MAX) throw UsageError("the last index passes 2147483647");
    // The identifier is the index in exactly LENGTH digits: every index must fit.
    for (int64_t i : {first, last}) {
        const int64_t digits = static_cast<int64_t>(std::to_string(i).size());
        if (digits > length)
            throw UsageError("index " + std::to_string(i) + " needs " + std::to_string(digits) +
                             " characters, more than the length " + std::to_string(length));
    }
    const std::string encoding = inv.get("encoding", "base64");
    checkEncoding(encoding);
    ClsFileAccess fa;
    fa.put_VerboseLogging(inv.ctx.verbose);
    XString enc(encoding.c_str()), id;
    for (int64_t i = first; i <= last && inv.ctx.out.good(); ++i) {
        if (!fa.GenBlockId(static_cast<int>(i), static_cast<int>(length), enc, id))
            return inv.failFrom(fa, "");
        inv.ctx.out << id.view() << '\n';
    }
    inv.showLog(fa);
    return kExitOk;
}

// A conversion from one charset to another, through UTF-8, so that a failure says which side
// it lies on: bytes that are not text in FROM, or text that TO cannot hold.
class Recoder {
  public:
    Recoder(const std::string& fromName, const std::string& toName)
        : m_fromName(fromName), m_toName(toName) {}

    // UsageError when a charset is unknown.
    void prepare() {
        if (!m_from.setByName(m_fromName.c_str()))
            throw UsageError("unknown charset '" + m_fromName + "'");
        if (!m_to.setByName(m_toName.c_str()))
            throw UsageError("unknown charset '" + m_toName + "'");
    }

    // Streams the file at `in` into `emit`, TO's byte-order mark first when `bom`; false on a
    // failure, with the reason in `why` unless emit failed.
    bool run(const std::string& in, bool bom, const FileSys::Emit& emit, std::string& why) {
        _ovFileDataSource src;
        _ovLogger log;
        XString path(in.c_str());
        if (!src.openDataSourceFile(path, log)) return why = errorLines(log), false;
        std::unique_ptr<unsigned char[]> block(new (std::nothrow) unsigned char[kConvertBlock]);
        if (!block) return why = "out of memory", false;
        if (!m_decode.open(m_from.getIconvName(), "UTF-8") ||
            !m_encode.open("UTF-8", m_to.getIconvName()))
            return why = "no converter from " + m_fromName + " to " + m_toName, false;
        unsigned markLen = 0;
        const unsigned char* mark = bom ? preambleOf(m_to.getCodePage(), markLen) : nullptr;
        if (mark && !emit(mark, markLen)) return false;
        for (bool first = true, last = false; !last; first = false) {
            unsigned got = 0;
            if (!src.readSourcePM(reinterpret_cast<char*>(block.get()), kConvertBlock, got, nullptr,
                                  log))
                return why = errorLines(log), false;
            last = got < kConvertBlock;
            const unsigned skip =
                first ? leadingMarkLength(m_from.getCodePage(), block.get(), got) : 0;
            if (!convert(block.get() + skip, got - skip, last, why)) return false;
            if (!emit(m_out.getData2(), m_out.getSize())) return false;
        }
        return true;
    }

  private:
    bool convert(const unsigned char* in, size_t n, bool last, std::string& why) {
        m_text.clear();
        if (!m_decode.convert(in, n, last, m_text))
            return why = "not valid " + m_fromName + " text", false;
        m_out.clear();
        if (!m_encode.convert(m_text.getData2(), m_text.getSize(), last, m_out))
            return why = "holds characters that " + m_toName + " cannot hold", false;
        return true;
    }

    const std::string m_fromName, m_toName;
    _ovCharset m_from, m_to;
    StreamConverter m_decode, m_encode;
    DataBuffer m_text, m_out;
};

// OUT is written whole or not at all (a new file renamed over it); "-" is standard output, and
// an OUT that is no regular file a stream (Output.h).
int runConvert(Invocation& inv) {
    const std::string& outFile = inv.args[2];
    Recoder recoder(inv.args[1], inv.args[3]);
    recoder.prepare();
    const std::string in = inv.inputFile(inv.args[0]);
    // OUT may be rewritten in place (several hard links, another owner), emptied before IN is
    // read: the same file at both ends would be lost.
    if (outFile != "-" && sameRegularFile(in, outFile))
        return inv.fail(outFile, "is the input file itself (convert into another file)");
    const bool bom = inv.has("bom");
    std::string why;
    _ovLogger log;
    log.m_verboseLogging = inv.ctx.verbose;
    const bool ok = writeOutput(
        inv.ctx, outFile,
        [&](const FileSys::Emit& emit) { return recoder.run(in, bom, emit, why); }, log);
    if (!ok && !why.empty()) return inv.fail(inv.inputName(inv.args[0]), why);
    if (!ok && outFile != "-")
        return inv.failFromLog(errorLines(log), log.text(), inv.outputName(outFile));
    if (!ok) return kExitFailed;  // standard output failed; run() says so
    inv.showLog(log.text());
    return kExitOk;
}

}  // namespace

void addContentCommands(std::vector<CommandSpec>& table) {
    table.push_back(
        {"scan",
         "FILE BEGIN END",
         "Print the records of a file that lie between two markers",
         "Each record runs from a BEGIN marker through the next END marker and is\n"
         "printed on a line of its own, in file order.\n"
         "\n"
         "A BEGIN of the form <name> is a tag: it matches <name followed by white\n"
         "space, '>' or '/', so <rec>, <rec id=\"1\"> and <rec/> all begin a record and\n"
         "<record> does not. The record ends with the first END after the tag's\n"
         "closing '>' (quoted attribute values may hold '>'); a tag closed by '/>' is\n"
         "a record by itself. Any other BEGIN is matched exactly, and the END is\n"
         "sought from the byte after BEGIN's first byte. Markers are matched as\n"
         "bytes in CHARSET; records are decoded from it, and one that is not valid\n"
         "CHARSET text fails the scan after the records before it are printed. A\n"
         "byte-order mark is not read: CHARSET alone says how the file is written.\n"
         "With a tag, FILE may be a pipe, read as it comes; other markers need a\n"
         "regular file (or -, which is kept in one).",
         3,
         3,
         {{"charset", 'C', "CHARSET", "the file's charset (default: utf-8)"},
          {"count", 'c', nullptr, "print only the number of records"},
          {"limit", 'l', "N", "stop after N records"}},
         runScan,
         true});
    table.push_back({"blocks",
                     "FILE BLOCK_SIZE",
                     "Count the blocks of a file",
                     "BLOCK_SIZE is a byte count from 1 to 2147483647, optionally with K, M or G;\n"
                     "the last block may be short.",
                     2,
                     2,
                     {},
                     runBlocks});
    table.push_back(
        {"block",
         "FILE BLOCK_SIZE INDEX",
         "Write one block of a file to standard output",
         "Blocks are numbered from 0. Without --encoding the bytes are written as they are.",
         3,
         3,
         {{"encoding", 'e', "ENC", "write the block as text in ENC"}},
         runBlock});
    table.push_back(
        {"shortcut",
         "FILE",
         "Read the strings of a Windows shortcut (.lnk) file",
         "A FILE whose name does not end in .lnk is read as FILE.lnk.",
         1,
         1,
         {{"check", 0, nullptr,
           "only tell whether the file can be read as a shortcut (exit status 0 or 1)"}},
         runShortcut});
    table.push_back({"encode",
                     "FILE",
                     "Print a file's bytes as text in an encoding",
                     "Encodings: hex, hexlower, base16, base32, base64, base64url, url, qp, ascii.",
                     1,
                     1,
                     {{"encoding", 'e', "ENC", "the encoding (default: base64)"}},
                     runEncode});
    table.push_back(
        {"blockid",
         "INDEX LENGTH",
         "Print block identifiers",
         "The identifier of a block is its index as LENGTH decimal characters\n"
         "(zero-filled; LENGTH from 1 to 4096), encoded. With --number, the identifiers\n"
         "of N blocks from INDEX on.",
         2,
         2,
         {{"encoding", 'e', "ENC", "the encoding (default: base64)"},
          {"number", 0, "N", "number of identifiers (default: 1)"}},
         runBlockId});
    table.push_back({"convert",
                     "IN FROM OUT TO",
                     "Rewrite a text file from one charset into another",
                     "OUT is written whole or not at all; - writes to standard output, and an OUT\n"
                     "that is no regular file (a FIFO, /dev/stdout) is written as a stream. Input\n"
                     "that is not valid in FROM, or text that TO cannot hold, fails the command\n"
                     "and leaves OUT as it was. A byte-order mark of FROM at IN's start is\n"
                     "dropped. OUT must be another file than IN (under any name or link).",
                     4,
                     4,
                     {{"bom", 0, nullptr, "start OUT with TO's byte-order mark"}},
                     runConvert});
}

}  // namespace fatool
