// Whole-file jobs: split, join, compare and replace.
#include <fstream>
#include <memory>
#include <sstream>

#include "Cli.h"
#include "Progress.h"
#include "fileaccess/ClsFileAccess.h"

namespace fatool {

namespace {

const char* const kDefaultExt = "part";

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

// Where the library puts part `n` of a split set. Used only to watch the parts for progress
// and to count them, so the library stays the one authority on the names it writes.
std::string partPath(const std::string& dir, const std::string& prefix, const std::string& ext,
                     int n) {
    std::string e = ext;
    if (!e.empty() && e[0] == '.') e.erase(0, 1);
    std::string name = trimmed(prefix) + std::to_string(n) + "." + trimmed(e);
    if (dir.empty()) return name;
    return dir.back() == '/' ? dir + name : dir + "/" + name;
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
};

PartNaming partNaming(const Invocation& inv, const std::string& nameSource) {
    return {inv.get("dir", "."), inv.get("prefix", fileNameOf(nameSource) + "."),
            inv.get("ext", kDefaultExt)};
}

std::vector<OptionSpec> partOptions(const char* dirHelp) {
    return {
        {"dir", 'd', "DIR", dirHelp},
        {"prefix", 'p', "PREFIX", "part names start with PREFIX (default: FILE's name and a dot)"},
        {"ext", 'e', "EXT", "part names end in .EXT (default: part)"}};
}

// Counts the bytes that have reached the part files so far: parts before the newest are full.
class SplitWatcher {
  public:
    SplitWatcher(PartNaming naming, int64_t partSize)
        : m_naming(std::move(naming)), m_partSize(partSize) {}
    int64_t bytesWritten() {
        while (isFile(m_probe, partPath(m_naming.dir, m_naming.prefix, m_naming.ext, m_part + 1)))
            ++m_part;
        if (m_part == 0) return 0;
        std::string newest = partPath(m_naming.dir, m_naming.prefix, m_naming.ext, m_part);
        return (m_part - 1) * m_partSize + sizeOf(m_probe, newest);
    }

  private:
    PartNaming m_naming;
    int64_t m_partSize;
    int m_part = 0;
    ClsFileAccess m_probe;
};

int runSplit(Invocation& inv) {
    const std::string& file = inv.args[0];
    int64_t partSize = parseSize(inv.args[1], "part size", 1, 0x7fffffff);
    PartNaming naming = partNaming(inv, file);

    ClsFileAccess fa;
    fa.put_VerboseLogging(inv.ctx.verbose);
    int64_t total = sizeOf(fa, file);
    Progress progress(inv.ctx, "split");
    auto watcher = std::make_shared<SplitWatcher>(naming, partSize);
    progress.startPolling([watcher, total] { return fraction(watcher->bytesWritten(), total); });

    XString path(file.c_str()), prefix(naming.prefix.c_str()), ext(naming.ext.c_str()),
        dir(naming.dir.c_str());
    bool ok = fa.SplitFile(path, prefix, ext, static_cast<int>(partSize), dir);
    progress.finish();
    // The log names every part as it is finished; those are the files this call wrote.
    for (const LogEntry& e : fa.lastErrorLog().entries()) {
        if (e.kind == LogKind::Data && e.name == "nextPartPath") inv.ctx.out << e.text << '\n';
    }
    return inv.finish(fa, ok, "could not split '" + file + "'");
}

int runJoin(Invocation& inv) {
    PartNaming naming = partNaming(inv, inv.args[0]);
    const std::string& outFile = inv.args[1];

    ClsFileAccess fa;
    fa.put_VerboseLogging(inv.ctx.verbose);
    // The parts are counted up front for the progress total and the summary.
    int parts = 0;
    int64_t total = 0;
    while (isFile(fa, partPath(naming.dir, naming.prefix, naming.ext, parts + 1))) {
        total += sizeOf(fa, partPath(naming.dir, naming.prefix, naming.ext, ++parts));
    }
    Progress progress(inv.ctx, "join");
    auto probe = std::make_shared<ClsFileAccess>();
    progress.startPolling(
        [probe, outFile, total] { return fraction(sizeOf(*probe, outFile), total); });

    XString dir(naming.dir.c_str()), prefix(naming.prefix.c_str()), ext(naming.ext.c_str()),
        out(outFile.c_str());
    bool ok = fa.ReassembleFile(dir, prefix, ext, out);
    progress.finish();
    if (ok)
        inv.ctx.out << "joined " << parts << " parts (" << total << " bytes) into " << outFile
                    << '\n';
    return inv.finish(fa, ok,
                      "could not join '" + partPath(naming.dir, naming.prefix, naming.ext, 1) +
                          "'... into '" + outFile + "'");
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

int runCompare(Invocation& inv) {
    const std::string& a = inv.args[0];
    const std::string& b = inv.args[1];
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
    bool same = fa.FileContentsEqual(p1, p2);
    progress.finish();
    // A false answer is either a difference or a failure to read; only a failure logs an error.
    if (!same && logHasErrors(fa))
        return inv.finish(fa, false, "could not compare '" + a + "' and '" + b + "'");
    inv.ctx.out << (same ? "identical" : "different") << '\n';
    if (inv.ctx.verbose) inv.printLog(logText(fa));
    return same ? kExitOk : kExitFailed;
}

int runReplace(Invocation& inv) {
    ClsFileAccess fa;
    fa.put_VerboseLogging(inv.ctx.verbose);
    XString path(inv.args[0].c_str()), charset(inv.get("charset", "utf-8").c_str()),
        find(inv.args[1].c_str()), repl(inv.args[2].c_str());
    int n = fa.ReplaceStrings(path, charset, find, repl);
    if (n >= 0) inv.ctx.out << n << '\n';
    return inv.finish(fa, n >= 0, "could not replace in '" + inv.args[0] + "'");
}

}  // namespace

void addBigFileCommands(std::vector<CommandSpec>& table) {
    table.push_back({"split", "FILE PART_SIZE", "Cut a file into numbered part files",
                     "PART_SIZE is a byte count, optionally with K, M or G (binary multiples).\n"
                     "The parts are PREFIX1.EXT, PREFIX2.EXT, ...; each part written is printed.",
                     2, 2, partOptions("write the parts into DIR (default: .)"), runSplit});
    table.push_back({"join", "NAME OUTFILE", "Join the part files of a split back into one file",
                     "The parts are those that 'split NAME' wrote (PREFIX defaults to NAME's file\n"
                     "name and a dot), taken in order from part 1 up to the first one missing.",
                     2, 2, partOptions("read the parts from DIR (default: .)"), runJoin});
    table.push_back({"compare",
                     "FILE1 FILE2",
                     "Compare two files byte for byte",
                     "Prints 'identical' (exit status 0) or 'different' (exit status 1).",
                     2,
                     2,
                     {},
                     runCompare});
    table.push_back({"replace",
                     "FILE FIND REPLACEMENT",
                     "Replace every occurrence of a string inside a file",
                     "The strings are matched in the file's encoding: the one its byte-order mark\n"
                     "names, else CHARSET. Prints the number of occurrences replaced.",
                     3,
                     3,
                     {{"charset", 'c', "CHARSET", "encoding of an unmarked file (default: utf-8)"}},
                     runReplace});
}

}  // namespace fatool
