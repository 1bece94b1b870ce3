// Jobs on a file's contents: record scan, blocks, shortcut files, encodings and charsets.
#include "Cli.h"
#include "Progress.h"
#include "fileaccess/ClsFileAccess.h"

namespace fatool {

namespace {

// An unknown encoding name is the user's mistake, so it is refused as bad usage before any
// work starts (the encoder itself would only answer with nothing).
void checkEncoding(const std::string& name) {
    DataBuffer probe;
    probe.appendChar('x');
    StringBuffer text;
    if (!probe.encodeDB(name.c_str(), text)) throw UsageError("unknown encoding '" + name + "'");
}

// The records of a scan, printed or counted as they come, with progress on request.
class RecordSink {
  public:
    RecordSink(Invocation& inv, int64_t total)
        : m_inv(inv), m_countOnly(inv.has("count")), m_total(total), m_progress(inv.ctx, "scan") {}

    void take(const XString& record) {
        ++m_count;
        m_bytes += record.getSizeUtf8();
        if (!m_countOnly) m_inv.ctx.out << record.view() << '\n';
        if (m_progress.active())
            m_progress.update(std::to_string(m_count) + " records, " + fraction(m_bytes, m_total));
    }
    int64_t count() const { return m_count; }
    void finish() { m_progress.finish(); }

  private:
    Invocation& m_inv;
    const bool m_countOnly;
    const int64_t m_total;
    Progress m_progress;
    int64_t m_count = 0;
    int64_t m_bytes = 0;
};

int runScan(Invocation& inv) {
    int64_t limit = inv.has("limit") ? parseInt(inv.get("limit", ""), "limit", 0, INT64_MAX) : -1;
    ClsFileAccess fa;
    fa.put_VerboseLogging(inv.ctx.verbose);
    XString path(inv.args[0].c_str()), begin(inv.args[1].c_str()), end(inv.args[2].c_str()),
        charset(inv.get("charset", "utf-8").c_str());
    if (begin.isEmpty() || end.isEmpty()) throw UsageError("the markers must not be empty");
    int64_t total = fa.FileSize64(path);
    if (!fa.OpenForRead(path)) return inv.finish(fa, false, "could not open '" + inv.args[0] + "'");

    RecordSink sink(inv, total);
    int rc = 1;
    std::string log;
    const bool tag = begin.beginsWithUtf8("<", false) && begin.endsWithUtf8(">", false);
    if (!tag && limit != 0) {
        // One call for the whole file; the consumer stops it at the limit.
        rc = fa.ScanFragments(true, 0, begin, end, charset, [&](const XString& record) {
            sink.take(record);
            return limit < 0 || sink.count() < limit;
        });
        if (inv.ctx.verbose) log = logText(fa);
    }
    while (tag && (limit < 0 || sink.count() < limit)) {
        ClsStringBuilder sb;
        rc = fa.ReadNextFragment(sink.count() == 0, begin, end, charset, sb);
        // The reader does not clear the log between calls; keep only what --verbose needs.
        if (inv.ctx.verbose) log += logText(fa);
        if (rc != 1) break;
        sink.take(sb.m_str);
    }
    sink.finish();
    if (rc < 0) {
        inv.ctx.err << "fatool scan: could not read record " << sink.count() + 1 << " of '"
                    << inv.args[0] << "'\n";
        inv.printLog(logText(fa));
        return kExitFailed;
    }
    if (inv.has("count")) inv.ctx.out << sink.count() << '\n';
    if (inv.ctx.verbose) inv.printLog(log);
    return kExitOk;
}

int runBlocks(Invocation& inv) {
    int blockSize = static_cast<int>(parseSize(inv.args[1], "block size", 1, 0x7fffffff));
    ClsFileAccess fa;
    fa.put_VerboseLogging(inv.ctx.verbose);
    XString path(inv.args[0].c_str());
    if (!fa.OpenForRead(path)) return inv.finish(fa, false, "could not open '" + inv.args[0] + "'");
    int n = fa.GetNumBlocks(blockSize);
    if (n >= 0) inv.ctx.out << n << '\n';
    return inv.finish(fa, n >= 0, "could not count the blocks of '" + inv.args[0] + "'");
}

int runBlock(Invocation& inv) {
    int blockSize = static_cast<int>(parseSize(inv.args[1], "block size", 1, 0x7fffffff));
    int index = static_cast<int>(parseInt(inv.args[2], "block index", 0, 0x7fffffff));
    std::string encoding = inv.get("encoding", "");
    if (!encoding.empty()) checkEncoding(encoding);
    ClsFileAccess fa;
    fa.put_VerboseLogging(inv.ctx.verbose);
    XString path(inv.args[0].c_str());
    if (!fa.OpenForRead(path)) return inv.finish(fa, false, "could not open '" + inv.args[0] + "'");
    DataBuffer block;
    bool ok = fa.ReadBlock(index, blockSize, block);
    if (ok && encoding.empty()) {
        inv.ctx.out.write(reinterpret_cast<const char*>(block.getData2()), block.getSize());
    } else if (ok) {
        StringBuffer text;
        block.encodeDB(encoding.c_str(), text);
        inv.ctx.out << text.getString() << '\n';
    }
    return inv.finish(fa, ok, "could not read block " + inv.args[2] + " of '" + inv.args[0] + "'");
}

int runShortcut(Invocation& inv) {
    XString path(inv.args[0].c_str());
    _ovLogger log;
    log.m_verboseLogging = inv.ctx.verbose;
    if (inv.has("check")) {
        bool ok = ClsFileAccess::parseableShortcut(path, log);
        inv.ctx.out << (ok ? "parseable" : "not parseable") << '\n';
        return inv.finishLog(log.text(), ok, "'" + inv.args[0] + "' is not a readable shortcut");
    }
    _ovShortcutInfo info;
    bool ok = ClsFileAccess::readShortcut(path, info, log);
    if (ok) {
        inv.ctx.out << "name: " << info.name.view() << '\n'
                    << "relativePath: " << info.relativePath.view() << '\n'
                    << "workingDir: " << info.workingDir.view() << '\n'
                    << "commandLineArguments: " << info.commandLineArguments.view() << '\n'
                    << "iconLocation: " << info.iconLocation.view() << '\n';
    }
    return inv.finishLog(log.text(), ok, "could not read the shortcut '" + inv.args[0] + "'");
}

int runEncode(Invocation& inv) {
    std::string encoding = inv.get("encoding", "base64");
    checkEncoding(encoding);
    ClsFileAccess fa;
    fa.put_VerboseLogging(inv.ctx.verbose);
    XString path(inv.args[0].c_str()), enc(encoding.c_str()), out;
    bool ok = fa.ReadBinaryToEncoded(path, enc, out);
    if (ok) inv.ctx.out << out.view() << '\n';
    return inv.finish(fa, ok, "could not read '" + inv.args[0] + "'");
}

int runBlockId(Invocation& inv) {
    int64_t first = parseInt(inv.args[0], "index", INT32_MIN, INT32_MAX);
    int length = static_cast<int>(parseInt(inv.args[1], "length", INT32_MIN, INT32_MAX));
    int64_t count = parseInt(inv.get("count", "1"), "count", 1, INT32_MAX);
    if (first + count - 1 > INT32_MAX) throw UsageError("the last index passes 2147483647");
    std::string encoding = inv.get("encoding", "base64");
    checkEncoding(encoding);
    ClsFileAccess fa;
    fa.put_VerboseLogging(inv.ctx.verbose);
    XString enc(encoding.c_str()), id;
    for (int64_t i = first; i < first + count; ++i) {
        if (!fa.GenBlockId(static_cast<int>(i), length, enc, id))
            return inv.finish(fa, false,
                              "could not make the identifier of block " + std::to_string(i));
        inv.ctx.out << id.view() << '\n';
    }
    return inv.finish(fa, true, "");
}

int runConvert(Invocation& inv) {
    ClsFileAccess fa;
    fa.put_VerboseLogging(inv.ctx.verbose);
    XString in(inv.args[0].c_str()), from(inv.args[1].c_str()), out(inv.args[2].c_str()),
        to(inv.args[3].c_str()), text;
    if (!fa.ReadEntireTextFile(in, from, text))
        return inv.finish(fa, false, "could not read '" + inv.args[0] + "' as " + inv.args[1]);
    std::string readLog = logText(fa);
    // The library writes whatever part of the text converts; refuse instead of losing text.
    DataBuffer converted;
    if (!text.getConverted(to.getUtf8(), converted)) {
        if (inv.ctx.verbose) inv.printLog(readLog);
        return inv.finishLog("", false,
                             "'" + inv.args[0] + "' holds text that " + inv.args[3] +
                                 " cannot hold (or " + inv.args[3] + " is unknown)");
    }
    bool ok = fa.WriteEntireTextFile(out, text, to, inv.has("bom"));
    if (inv.ctx.verbose) inv.printLog(readLog);
    return inv.finish(fa, ok, "could not write '" + inv.args[2] + "' as " + inv.args[3]);
}

}  // namespace

void addContentCommands(std::vector<CommandSpec>& table) {
    table.push_back(
        {"scan",
         "FILE BEGIN END",
         "Print the records of a file that lie between two markers",
         "Each record runs from a BEGIN marker through the next END marker and is\n"
         "printed on a line of its own. A BEGIN of the form <tag> also matches the tag\n"
         "with attributes, as in <rec id=\"1\">.",
         3,
         3,
         {{"charset", 'c', "CHARSET", "the file's charset (default: utf-8)"},
          {"count", 'n', nullptr, "print only the number of records"},
          {"limit", 0, "N", "stop after N records"}},
         runScan});
    table.push_back(
        {"blocks",
         "FILE BLOCK_SIZE",
         "Count the blocks of a file",
         "BLOCK_SIZE is a byte count, optionally with K, M or G; the last block may be short.",
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
         "",
         1,
         1,
         {{"check", 0, nullptr, "only tell whether the file can be read as a shortcut"}},
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
         "The identifier of a block is its index as LENGTH decimal digits (zero-filled),\n"
         "encoded. With --count, the identifiers of COUNT blocks from INDEX on.",
         2,
         2,
         {{"encoding", 'e', "ENC", "the encoding (default: base64)"},
          {"count", 'n', "COUNT", "number of identifiers (default: 1)"}},
         runBlockId});
    table.push_back({"convert",
                     "IN FROM OUT TO",
                     "Rewrite a text file from one charset into another",
                     "",
                     4,
                     4,
                     {{"bom", 0, nullptr, "start OUT with TO's byte-order mark"}},
                     runConvert});
}

}  // namespace fatool
