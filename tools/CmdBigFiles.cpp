// Whole-file jobs: join, compare and replace (split has a file of its own).
#include <algorithm>
#include <fstream>
#include <memory>
#include <new>

#include "Cli.h"
#include "Interrupt.h"
#include "Output.h"
#include "Parts.h"
#include "Progress.h"
#include "fileaccess/ClsFileAccess.h"
#include "foundation/fs/DataSource.h"
#include "foundation/fs/FileSys.h"

namespace fatool {

namespace {

// Writes the parts one after another through `emit`; false when one cannot be read (the
// reason in `why`, the part in `failedPart`), when emit fails, or on a stop request.
bool emitParts(const PartNaming& naming, int64_t parts, const FileSys::Emit& emit, std::string& why,
               std::string& failedPart) {
    for (int64_t n = 1; n <= parts; ++n) {
        const std::string part = naming.part(n);
        if (!emitFileBytes(part, emit, why)) {
            if (!why.empty()) failedPart = part;
            return false;
        }
    }
    return true;
}

// The output is written whole or not at all (a new file beside it, renamed over it), never
// into one of the parts, and "-" writes it to standard output.
int runJoin(Invocation& inv) {
    const PartNaming naming = partNaming(inv, inv.args[0]);
    const std::string& outFile = inv.args[1];
    const int64_t parts = naming.presentFromOne();
    if (parts == 0) return inv.fail(naming.part(1), "no such part (the first of the set)");
    int64_t total = 0;
    FileId outId;
    bool outExists = false;
    _ovLogger idLog;
    XString outPath(outFile.c_str());
    // Only a file can be one of the parts; a stream is written as it is.
    if (outputKind(outFile) == OutputKind::File &&
        !FileSys::regularFileId(outPath, outExists, outId, &idLog))
        return inv.failFromLog(errorLines(idLog), idLog.text(), outFile);
    for (int64_t n = 1; n <= parts; ++n) {
        const std::string part = naming.part(n);
        total += std::max<int64_t>(0, fileSize(part));
        FileId id;
        bool exists = false;
        XString p(part.c_str());
        if (outExists && FileSys::regularFileId(p, exists, id, nullptr) && exists && id == outId)
            return inv.fail(outFile, "is part " + std::to_string(n) + " of the set it would join");
    }
    Progress progress(inv.ctx, "join", outFile == "-");
    int64_t done = 0;
    std::string why, failedPart;
    const FileSys::Emit count = [&](const unsigned char*, size_t n) {
        done += static_cast<int64_t>(n);
        progress.update(fraction(done, total));
        return true;
    };
    _ovLogger log;
    log.m_verboseLogging = inv.ctx.verbose;
    const bool ok = writeOutput(
        inv.ctx, outFile,
        [&](const FileSys::Emit& emit) {
            return emitParts(
                naming, parts,
                [&](const unsigned char* p, size_t n) {
                    progress.beforeOutput();  // the joined bytes may share its terminal
                    return count(p, n) && emit(p, n);
                },
                why, failedPart);
        },
        log);
    progress.finish();
    // A part that cannot be read is named; a failed write names OUTFILE (run() reports the
    // failed writes to standard output).
    if (!ok && !why.empty()) return inv.failFromLog(why, log.text(), failedPart);
    if (!ok && outFile == "-") return kExitFailed;
    if (!ok) return inv.failFromLog(errorLines(log), log.text(), outFile);
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
    // A stream is the same as itself, and could not be read a second time anyway.
    if (inv.args[0] == "-" && inv.args[1] == "-") {
        inv.ctx.out << "identical\n";
        return kExitOk;
    }
    const std::string a = inv.inputFile(inv.args[0]), b = inv.inputFile(inv.args[1]);
    ClsFileAccess fa;
    fa.put_VerboseLogging(inv.ctx.verbose);
    const int64_t size = fileSize(a);
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
        const std::string lines = errorLines(fa);
        inv.failFromLog(
            lines, logText(fa),
            Invocation::namedIn(
                lines, {{a, inv.inputName(inv.args[0])}, {b, inv.inputName(inv.args[1])}}, ""));
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
    table.push_back(splitCommand());
    table.push_back({"join", "NAME OUTFILE", "Join the part files of a split back into one file",
                     "NAME is the name of the file that was split: the parts are NAME.1.part,\n"
                     "NAME.2.part, ... (or as --prefix and --ext say), taken in order from\n"
                     "part 1 up to the first one missing. OUTFILE is written whole or not at\n"
                     "all; - writes the joined bytes to standard output, and an OUTFILE that is\n"
                     "no regular file (a FIFO, /dev/stdout) is written as a stream.",
                     2, 2,
                     partOptions("read the parts from DIR (default: .)",
                                 "part names start with PREFIX (default: NAME and a dot)"),
                     runJoin, true});
    table.push_back({"compare",
                     "FILE1 FILE2",
                     "Compare two files byte for byte",
                     "Prints 'identical' (exit status 0) or 'different' (exit status 1); exit\n"
                     "status 2 when they cannot be compared or the answer cannot be written, as\n"
                     "with cmp. Standard input (- -) is identical to itself.",
                     2,
                     2,
                     {},
                     runCompare,
                     true,
                     kExitUsage});
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
