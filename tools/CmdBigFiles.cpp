// Whole-file jobs: split, join, compare and replace.
#include <algorithm>
#include <fstream>
#include <memory>
#include <new>

#include "Cli.h"
#include "Progress.h"
#include "fileaccess/ClsFileAccess.h"
#include "foundation/fs/DataSource.h"
#include "foundation/fs/FileSys.h"

namespace fatool {

namespace {

const char* const kDefaultExt = "part";
constexpr unsigned kJoinBlock = 1u << 20;

std::string fileNameOf(const std::string& path) {
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string trimmed(const std::string& s) {
    const char* ws = " \t\r\n\v\f";
    size_t b = s.find_first_not_of(ws);
    if (b == std::string::npos) return "";
    return s.substr(b, s.find_last_not_of(ws) - b + 1);
}

// Where the library puts part `n` of a split set, lead + n + tail: the program reads and
// checks the parts under the names the library gives them.
struct PartPattern {
    std::string lead, tail;
};

PartPattern partPattern(const std::string& dir, const std::string& prefix, const std::string& ext) {
    std::string e = ext;
    if (!e.empty() && e[0] == '.') e.erase(0, 1);
    // Built by appending: GCC 12 warns falsely (-Wrestrict) about "literal" + string.
    std::string lead = dir;
    if (!lead.empty() && lead.back() != '/') lead += '/';
    lead += trimmed(prefix);
    std::string tail = ".";
    tail += trimmed(e);
    return {lead, tail};
}

// Whether `name` is head, a part number as the library writes it (1, 2, ...), then tail;
// the number goes to n.
bool partNumberIn(const std::string& name, const std::string& head, const std::string& tail,
                  int64_t& n) {
    if (name.size() <= head.size() + tail.size() || name.compare(0, head.size(), head) != 0 ||
        name.compare(name.size() - tail.size(), tail.size(), tail) != 0)
        return false;
    const std::string digits = name.substr(head.size(), name.size() - head.size() - tail.size());
    if (digits.size() > 18 || digits[0] < '1' || digits[0] > '9') return false;
    for (char c : digits)
        if (c < '0' || c > '9') return false;
    n = std::stoll(digits);
    return true;
}

int64_t sizeOf(ClsFileAccess& fa, const std::string& path) {
    XString p(path.c_str());
    return fa.FileSize64(p);
}

bool isFile(ClsFileAccess& fa, const std::string& path) {
    XString p(path.c_str());
    return fa.FileType(p) == 1;
}

// Part names of a split or join: directory, prefix and extension, from options or defaults.
struct PartNaming {
    std::string dir, prefix, ext;
    std::string part(int64_t n) const {
        const PartPattern p = partPattern(dir, prefix, ext);
        return p.lead + std::to_string(n) + p.tail;
    }
    // The numbers of every part present, whatever the gaps between them, in ascending order;
    // false with the reason when the directory cannot be listed.
    bool present(std::vector<int64_t>& numbers, std::string& why) const;
};

bool PartNaming::present(std::vector<int64_t>& numbers, std::string& why) const {
    const PartPattern p = partPattern(dir, prefix, ext);
    const size_t slash = p.lead.rfind('/');
    const std::string where = slash == std::string::npos ? "." : p.lead.substr(0, slash + 1);
    const std::string head = slash == std::string::npos ? p.lead : p.lead.substr(slash + 1);
    numbers.clear();
    XString place(where.c_str());
    _ovLogger log;
    if (FileSys::filePathType(place, false, log) == PathType::None) return true;  // no parts
    std::vector<std::string> names;
    if (!FileSys::listDirUtf8(where.c_str(), names, &log)) return why = errorLines(log), false;
    for (const std::string& name : names) {
        int64_t n = 0;
        if (partNumberIn(name, head, p.tail, n)) numbers.push_back(n);
    }
    std::sort(numbers.begin(), numbers.end());
    return true;
}

PartNaming partNaming(const Invocation& inv, const std::string& nameSource) {
    return {inv.get("dir", "."), inv.get("prefix", fileNameOf(nameSource) + "."),
            inv.get("ext", kDefaultExt)};
}

// The options that name the parts; each command says what its defaults come from.
std::vector<OptionSpec> partOptions(const char* dirHelp, const char* prefixHelp) {
    return {{"dir", 'd', "DIR", dirHelp},
            {"prefix", 'P', "PREFIX", prefixHelp},
            {"ext", 'x', "EXT", "part names end in .EXT (default: part)"}};
}

// The number of parts 1, 2, ... that exist, up to the first missing one.
int64_t partsPresent(ClsFileAccess& fa, const PartNaming& naming) {
    int64_t n = 0;
    while (isFile(fa, naming.part(n + 1))) ++n;
    return n;
}

// Counts the bytes that have reached the part files so far: parts before the newest are full.
class SplitWatcher {
  public:
    SplitWatcher(PartNaming naming, int64_t partSize)
        : m_naming(std::move(naming)), m_partSize(partSize) {}
    int64_t bytesWritten() {
        while (isFile(m_probe, m_naming.part(m_part + 1))) ++m_part;
        if (m_part == 0) return 0;
        return (m_part - 1) * m_partSize + sizeOf(m_probe, m_naming.part(m_part));
    }

  private:
    PartNaming m_naming;
    int64_t m_partSize;
    int64_t m_part = 0;
    ClsFileAccess m_probe;
};

// The parts the last call logged as written.
std::vector<std::string> partsWritten(const ClsFileAccess& fa) {
    std::vector<std::string> parts;
    for (const LogEntry& e : fa.lastErrorLog().entries())
        if (e.kind == LogKind::Data && e.name == "nextPartPath") parts.push_back(e.text);
    return parts;
}

// A destination holding any part of the same names (an earlier split's, whatever its
// numbers) is refused: join would glue stale ones on. --force removes them all first, unless
// one of them is the file being split.
int clearStaleParts(Invocation& inv, const std::string& input, const PartNaming& naming) {
    std::vector<int64_t> stale;
    std::string why;
    if (!naming.present(stale, why)) return inv.fail(naming.dir, why);
    if (stale.empty()) return kExitOk;
    if (!inv.has("force")) {
        return inv.fail(naming.part(stale.front()),
                        "already there, with " + counted(stale.size(), "part", "parts") +
                            " of an earlier split (--force removes them)");
    }
    for (int64_t n : stale)
        if (sameRegularFile(naming.part(n), input))
            return inv.fail(naming.part(n), "is the file being split, which --force keeps");
    ClsFileAccess fa;
    fa.put_VerboseLogging(inv.ctx.verbose);
    for (int64_t n : stale) {
        XString p(naming.part(n).c_str());
        if (!fa.FileDelete(p)) return inv.failFrom(fa, naming.part(n));
        inv.showLog(fa);
    }
    return kExitOk;
}

// Whether the input can be read, checked before anything is made or removed; false with the
// failure reported.
bool inputReadable(Invocation& inv, const std::string& file) {
    _ovFileDataSource src;
    _ovLogger log;
    XString path(file.c_str());
    if (src.openDataSourceFile(path, log)) return true;
    inv.failFromLog(errorLines(log), log.text(), inv.args[0]);
    return false;
}

int runSplit(Invocation& inv) {
    const int64_t partSize = parseSize(inv.args[1], "part size", 1, 0x7fffffff);
    const std::string file = inv.inputFile(inv.args[0]);
    const PartNaming naming = partNaming(inv, inv.args[0] == "-" ? "stdin" : inv.args[0]);

    if (!inputReadable(inv, file)) return kExitFailed;
    ClsFileAccess fa;
    fa.put_VerboseLogging(inv.ctx.verbose);
    XString dir(naming.dir.c_str());
    if (!fa.DirEnsureExists(dir)) return inv.failFrom(fa, naming.dir);
    if (int status = clearStaleParts(inv, file, naming)) return status;
    const int64_t total = sizeOf(fa, file);
    Progress progress(inv.ctx, "split");
    auto watcher = std::make_shared<SplitWatcher>(naming, partSize);
    progress.startPolling([watcher, total] { return fraction(watcher->bytesWritten(), total); });

    XString path(file.c_str()), prefix(naming.prefix.c_str()), ext(naming.ext.c_str());
    const bool ok = fa.SplitFile(path, prefix, ext, static_cast<int>(partSize), dir);
    progress.finish();
    const std::vector<std::string> parts = partsWritten(fa);
    if (!ok) {
        // All the parts or none: what this call wrote goes again.
        const int status = inv.failFrom(fa, inv.args[0]);
        ClsFileAccess cleaner;
        for (const std::string& p : parts) {
            XString part(p.c_str());
            cleaner.FileDelete(part);
        }
        return status;
    }
    for (const std::string& p : parts) inv.ctx.out << p << '\n';
    inv.showLog(fa);
    return kExitOk;
}

// Writes the parts one after another through `emit`; false (errno set) when one cannot be read.
bool emitParts(const PartNaming& naming, int64_t parts, const FileSys::Emit& emit,
               std::string& why) {
    std::unique_ptr<char[]> block(new (std::nothrow) char[kJoinBlock]);
    if (!block) return errno = ENOMEM, false;
    for (int64_t n = 1; n <= parts; ++n) {
        _ovFileDataSource src;
        _ovLogger log;
        XString path(naming.part(n).c_str());
        if (!src.openDataSourceFile(path, log)) return why = errorLines(log), errno = EIO, false;
        for (unsigned got = kJoinBlock; got == kJoinBlock;) {
            if (!src.readSourcePM(block.get(), kJoinBlock, got, nullptr, log))
                return why = errorLines(log), errno = EIO, false;
            if (!emit(reinterpret_cast<const unsigned char*>(block.get()), got)) return false;
        }
    }
    return true;
}

// The output is written whole or not at all (a new file beside it, renamed over it), never
// into one of the parts, and "-" writes it to standard output.
int runJoin(Invocation& inv) {
    const PartNaming naming = partNaming(inv, inv.args[0]);
    const std::string& outFile = inv.args[1];
    ClsFileAccess fa;
    fa.put_VerboseLogging(inv.ctx.verbose);
    const int64_t parts = partsPresent(fa, naming);
    if (parts == 0) return inv.fail(naming.part(1), "no such part (the first of the set)");
    int64_t total = 0;
    FileId outId;
    bool outExists = false;
    _ovLogger idLog;
    XString outPath(outFile.c_str());
    if (outFile != "-" && !FileSys::regularFileId(outPath, outExists, outId, &idLog))
        return inv.failFromLog(errorLines(idLog), idLog.text(), outFile);
    for (int64_t n = 1; n <= parts; ++n) {
        total += sizeOf(fa, naming.part(n));
        FileId id;
        bool exists = false;
        XString p(naming.part(n).c_str());
        if (outExists && FileSys::regularFileId(p, exists, id, nullptr) && exists && id == outId)
            return inv.fail(outFile, "is part " + std::to_string(n) + " of the set it would join");
    }
    Progress progress(inv.ctx, "join", outFile == "-");
    int64_t done = 0;
    std::string why;
    const FileSys::Emit count = [&](const unsigned char*, size_t n) {
        done += static_cast<int64_t>(n);
        progress.update(fraction(done, total));
        return true;
    };
    _ovLogger log;
    bool ok;
    if (outFile == "-") {
        ok = emitParts(
            naming, parts,
            [&](const unsigned char* p, size_t n) {
                progress.beforeOutput();
                inv.ctx.out.write(reinterpret_cast<const char*>(p),
                                  static_cast<std::streamsize>(n));
                return count(p, n) && inv.ctx.out.good();
            },
            why);
    } else {
        ok = FileSys::writeFileStreamUtf8(
            outFile.c_str(),
            [&](const FileSys::Emit& emit) {
                return emitParts(
                    naming, parts,
                    [&](const unsigned char* p, size_t n) { return count(p, n) && emit(p, n); },
                    why);
            },
            &log);
    }
    progress.finish();
    if (!ok && outFile == "-" && why.empty()) return kExitFailed;  // run() reports the write error
    if (!ok) return inv.failFromLog(why.empty() ? errorLines(log) : why, log.text(), outFile);
    if (outFile != "-")
        inv.ctx.out << "joined " << counted(parts, "part", "parts") << " ("
                    << counted(total, "byte", "bytes") << ") into " << outFile << '\n';
    inv.showLog(log.text());
    return kExitOk;
}

// Bytes this process has read so far, where the system tells (Linux); -1 elsewhere.
int64_t bytesReadByProcess() {
    std::ifstream io("/proc/self/io");
    std::string key;
    int64_t value = 0;
    while (io >> key >> value) {
        if (key == "rchar:") return value;
    }
    return -1;
}

bool logHasErrors(const ClsBase& obj) {
    for (const LogEntry& e : obj.lastErrorLog().entries()) {
        if (e.kind == LogKind::Error) return true;
    }
    return false;
}

// As cmp: 0 identical, 1 different, 2 when the files cannot be compared.
int runCompare(Invocation& inv) {
    const std::string a = inv.inputFile(inv.args[0]), b = inv.inputFile(inv.args[1]);
    ClsFileAccess fa;
    fa.put_VerboseLogging(inv.ctx.verbose);
    int64_t size = sizeOf(fa, a);
    Progress progress(inv.ctx, "compare");
    int64_t readBefore = bytesReadByProcess();
    progress.startPolling([readBefore, size] {
        int64_t now = bytesReadByProcess();
        // Both files are read side by side: half of what was read is the position in each.
        return readBefore < 0 ? std::string("comparing") : fraction((now - readBefore) / 2, size);
    });
    XString p1(a.c_str()), p2(b.c_str());
    const bool same = fa.FileContentsEqual(p1, p2);
    progress.finish();
    // A false answer is either a difference or a failure to read; only a failure logs an error.
    if (!same && logHasErrors(fa)) {
        inv.failFrom(fa, "");
        return kExitUsage;
    }
    inv.ctx.out << (same ? "identical" : "different") << '\n';
    inv.showLog(fa);
    return same ? kExitOk : kExitFailed;
}

int runReplace(Invocation& inv) {
    if (inv.args[0] == "-")
        throw UsageError("replace rewrites FILE in place, so it must be a file, not '-'");
    const std::string charset = inv.get("charset", "utf-8");
    checkCharset(charset);
    ClsFileAccess fa;
    fa.put_VerboseLogging(inv.ctx.verbose);
    XString path(inv.args[0].c_str()), cs(charset.c_str()), find(inv.args[1].c_str()),
        repl(inv.args[2].c_str());
    const int n = fa.ReplaceStrings(path, cs, find, repl);
    if (n < 0) return inv.failFrom(fa, inv.args[0]);
    inv.ctx.out << n << '\n';
    inv.showLog(fa);
    return kExitOk;
}

}  // namespace

void addBigFileCommands(std::vector<CommandSpec>& table) {
    std::vector<OptionSpec> splitOptions =
        partOptions("write the parts into DIR, made if missing (default: .)",
                    "part names start with PREFIX (default: FILE's name and a dot)");
    splitOptions.push_back(
        {"force", 'f', nullptr, "remove every part of the same names first (never FILE)"});
    table.push_back(
        {"split", "FILE PART_SIZE", "Cut a file into numbered part files",
         "PART_SIZE is a byte count from 1 to 2147483647, optionally with K, M or G.\n"
         "The parts are PREFIX1.EXT, PREFIX2.EXT, ...; each part written is printed.\n"
         "Standard input (FILE -) is named stdin.\n"
         "A part of the same names already in DIR (PREFIXn.EXT for any n) is refused\n"
         "(see --force). FILE must be readable before DIR is made or anything removed.\n"
         "If the split fails, the parts it wrote are removed.",
         2, 2, splitOptions, runSplit, true});
    table.push_back({"join", "NAME OUTFILE", "Join the part files of a split back into one file",
                     "NAME is the name of the file that was split: the parts are NAME.1.part,\n"
                     "NAME.2.part, ... (or as --prefix and --ext say), taken in order from\n"
                     "part 1 up to the first one missing. OUTFILE is written whole or not at\n"
                     "all; - writes the joined bytes to standard output.",
                     2, 2,
                     partOptions("read the parts from DIR (default: .)",
                                 "part names start with PREFIX (default: NAME and a dot)"),
                     runJoin, true});
    table.push_back({"compare",
                     "FILE1 FILE2",
                     "Compare two files byte for byte",
                     "Prints 'identical' (exit status 0) or 'different' (exit status 1); exit\n"
                     "status 2 when they cannot be compared, as with cmp.",
                     2,
                     2,
                     {},
                     runCompare,
                     true});
    table.push_back({"replace",
                     "FILE FIND REPLACEMENT",
                     "Replace every occurrence of a string inside a file",
                     "The strings are matched in the file's encoding: the one its byte-order mark\n"
                     "names, else CHARSET. Prints the number of occurrences replaced.",
                     3,
                     3,
                     {{"charset", 'C', "CHARSET", "encoding of an unmarked file (default: utf-8)"}},
                     runReplace});
}

}  // namespace fatool
