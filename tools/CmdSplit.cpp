// split: a file cut into numbered parts, all of them or none.
//
// The library writes the parts under temporary names beside their final ones (a name reserved
// in the parts' directory, then .1.EXT, .2.EXT, ...); they are renamed into place only once
// every part is whole, the last part first. A split that fails, or is stopped by a signal,
// removes what it wrote and placed; and part 1 never stands before every other part does, so
// join never takes an unfinished set for a whole one.
#include <algorithm>
#include <atomic>
#include <memory>

#include "Cli.h"
#include "Interrupt.h"
#include "Parts.h"
#include "Progress.h"
#include "fileaccess/ClsFileAccess.h"
#include "foundation/fs/DataSource.h"
#include "foundation/fs/FileSys.h"

namespace fatool {

namespace {

// Counts the bytes that have reached the part files so far: parts before the newest are full.
class SplitWatcher {
  public:
    SplitWatcher(PartNaming naming, int64_t partSize)
        : m_naming(std::move(naming)), m_partSize(partSize) {}
    int64_t bytesWritten() {
        while (isRegularFile(m_naming.part(m_part + 1))) ++m_part;
        if (m_part == 0) return 0;
        return (m_part - 1) * m_partSize + std::max<int64_t>(0, fileSize(m_naming.part(m_part)));
    }

  private:
    PartNaming m_naming;
    int64_t m_partSize;
    int64_t m_part = 0;
};

// The number of parts the last call logged as written.
int64_t partsWritten(const ClsFileAccess& fa) {
    int64_t n = 0;
    for (const LogEntry& e : fa.lastErrorLog().entries())
        if (e.kind == LogKind::Data && e.name == "nextPartPath") ++n;
    return n;
}

// The parts of one split on their way into place. removeAll() may run on another thread (a
// signal's cleanup) once reserve() has returned.
class PartSet {
  public:
    explicit PartSet(PartNaming final) : m_final(std::move(final)) {}

    // Reserves a unique name in the parts' directory for the temporary names; false with the
    // reason.
    bool reserve(std::string& why) {
        std::string head, tail;
        m_final.layout(m_where, head, tail);
        ClsFileAccess fa;
        std::string hidden = ".";
        hidden += head;
        XString dir(m_where.c_str()), prefix(hidden.c_str()), out;
        if (!fa.GetTempFilename(dir, prefix, out)) return why = errorLines(fa), false;
        m_reserved = out.getUtf8();
        m_scratchHead = m_reserved.substr(m_reserved.rfind('/') + 1) + ".";
        m_scratch = {m_where, m_scratchHead, m_final.ext};
        return true;
    }
    // Where the library writes the parts.
    const PartNaming& scratch() const { return m_scratch; }

    // Renames parts count, ..., 1 into place; false with the part that failed and the reason.
    bool place(int64_t count, std::string& part, std::string& why) {
        m_count = count;
        ClsFileAccess fa;
        for (int64_t n = count; n >= 1; --n) {
            XString from(m_scratch.part(n).c_str()), to(m_final.part(n).c_str());
            if (!fa.FileRename(from, to))
                return part = m_final.part(n), why = errorLines(fa), false;
            m_placedFrom = n;
        }
        return true;
    }
    // Drops the reserved name once the parts are in place.
    void finish() const { FileSys::deleteFileUtf8(m_reserved.c_str(), nullptr); }

    // Removes every part written or placed, and the reserved name.
    void removeAll() const {
        for (int64_t n = m_placedFrom; n <= m_count; ++n)
            FileSys::deleteFileUtf8(m_final.part(n).c_str(), nullptr);
        // Every name that starts with the reserved one is this split's.
        std::vector<std::string> names;
        if (FileSys::listDirUtf8(m_where.c_str(), names, nullptr))
            for (const std::string& name : names)
                if (name.rfind(m_scratchHead, 0) == 0)
                    FileSys::deleteFileUtf8((m_where + name).c_str(), nullptr);
        finish();
    }

  private:
    const PartNaming m_final;
    PartNaming m_scratch;
    std::string m_where, m_reserved, m_scratchHead;
    std::atomic<int64_t> m_count{0};
    std::atomic<int64_t> m_placedFrom{INT64_MAX};
};

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
    inv.failFromLog(errorLines(log), log.text(), inv.inputName(inv.args[0]));
    return false;
}

// What a failed split is reported against: the part being written when writing it failed,
// else the input.
std::string failedPath(const Invocation& inv, const ClsFileAccess& fa, const PartNaming& naming) {
    int64_t part = 0;
    bool outputFailed = false;
    for (const LogEntry& e : fa.lastErrorLog().entries()) {
        if (e.kind == LogKind::Data && e.name == "outputFile") ++part;
        if (e.kind == LogKind::Error && e.text.find("output file") != std::string::npos)
            outputFailed = true;
    }
    return outputFailed && part > 0 ? naming.part(part) : inv.inputName(inv.args[0]);
}

// The library's split into the temporary names, with its progress.
bool splitInto(Invocation& inv, ClsFileAccess& fa, const std::string& file, int64_t partSize,
               const PartNaming& scratch) {
    const int64_t total = fileSize(file);
    Progress progress(inv.ctx, "split");
    auto watcher = std::make_shared<SplitWatcher>(scratch, partSize);
    progress.startPolling([watcher, total] { return fraction(watcher->bytesWritten(), total); });
    XString path(file.c_str()), prefix(scratch.prefix.c_str()), ext(scratch.ext.c_str()),
        dir(scratch.dir.c_str());
    return fa.SplitFile(path, prefix, ext, static_cast<int>(partSize), dir);
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

    auto parts = std::make_shared<PartSet>(naming);
    std::string why, failed;
    if (!parts->reserve(why)) return inv.fail(naming.dir, why);
    interrupt::OnStop onStop([parts] { parts->removeAll(); });
    if (!splitInto(inv, fa, file, partSize, parts->scratch())) {
        const int status = inv.failFrom(fa, failedPath(inv, fa, naming));
        parts->removeAll();
        return status;
    }
    const int64_t count = partsWritten(fa);
    if (!parts->place(count, failed, why)) {
        parts->removeAll();
        return inv.fail(failed, why);
    }
    parts->finish();
    for (int64_t n = 1; n <= count; ++n) inv.ctx.out << naming.part(n) << '\n';
    inv.showLog(fa);
    return kExitOk;
}

}  // namespace

CommandSpec splitCommand() {
    std::vector<OptionSpec> options =
        partOptions("write the parts into DIR, made if missing (default: .)",
                    "part names start with PREFIX (default: FILE's name and a dot)");
    options.push_back(
        {"force", 'f', nullptr, "remove every part of the same names first (never FILE)"});
    return {"split",
            "FILE PART_SIZE",
            "Cut a file into numbered part files",
            "PART_SIZE is a byte count from 1 to 2147483647, optionally with K, M or G.\n"
            "The parts are PREFIX1.EXT, PREFIX2.EXT, ...; each part written is printed.\n"
            "Standard input (FILE -) is named stdin.\n"
            "A part of the same names already in DIR (PREFIXn.EXT for any n) is refused\n"
            "(see --force). FILE must be readable before DIR is made or anything removed.\n"
            "The parts are written under temporary names and take their own only once all\n"
            "are whole: a split that fails or is stopped leaves none of them.",
            2,
            2,
            options,
            runSplit,
            true};
}

}  // namespace fatool
