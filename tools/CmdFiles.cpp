// Files and directories by path: info, copy, move, delete, mkdir and rmtree.
#include <climits>
#include <memory>

#include "Cli.h"
#include "Interrupt.h"
#include "Output.h"
#include "fileaccess/ClsFileAccess.h"
#include "foundation/fs/FileSys.h"

namespace fatool {

namespace {

const char* typeName(int type) {
    switch (type) {
        case 1:
            return "file";
        case 2:
            return "directory";
        case 3:
            return "symlink";
        case 4:
            return "other";
        default:
            return "unknown";
    }
}

void printTime(Invocation& inv, ClsFileAccess& fa, XString& path, const char* label, int which) {
    std::unique_ptr<ClsDateTime> t(fa.GetFileTime(path, which));
    XString iso;
    if (t) t->GetAsIso8601(iso);
    inv.ctx.out << label << ": " << (t ? iso.getUtf8() : "unavailable") << '\n';
    inv.showLog(fa);
}

// A link is reported as a link, with its target; -L reports what it leads to instead.
int runInfo(Invocation& inv) {
    ClsFileAccess fa;
    fa.put_VerboseLogging(inv.ctx.verbose);
    XString path(inv.args[0].c_str());
    const bool follow = inv.has("dereference");
    _ovLogger probe;
    const int type = follow ? fa.FileType(path) : fa.fileType(path, true, probe);
    const _ovLogger& why = follow ? fa.lastErrorLog() : probe;
    if (type == 0) return inv.failFromLog("no such file or directory", why.text(), inv.args[0]);
    if (type < 0) return inv.failFromLog(errorLines(why), why.text(), inv.args[0]);
    inv.ctx.out << "path: " << inv.args[0] << '\n' << "type: " << typeName(type) << '\n';
    if (type == 3) {
        XString target;
        if (!fa.SymlinkTarget(path, target)) return inv.failFrom(fa, inv.args[0]);
        inv.ctx.out << "target: " << target.view() << '\n';
        // What the link leads to: nothing (dangling), or no end at all (a loop, say).
        const int leadsTo = fa.FileType(path);
        if (leadsTo == 0) inv.ctx.out << "dangling: yes\n";
        if (leadsTo < 0) inv.ctx.out << "unresolvable: " << errorLines(fa) << '\n';
        return kExitOk;
    }
    if (type == 1) {
        XString size;
        if (!fa.FileSizeStr(path, size)) return inv.failFrom(fa, inv.args[0]);
        inv.ctx.out << "size: " << size.view() << '\n';
    }
    printTime(inv, fa, path, "created", 2);
    printTime(inv, fa, path, "accessed", 1);
    printTime(inv, fa, path, "modified", 0);
    return kExitOk;
}

// Standard input becomes TO as `cat > TO` would make it, but whole or not at all: a new file
// has the usual permissions (narrowed by the umask), an existing one keeps its own.
int copyStandardInput(Invocation& inv) {
    const std::string& to = inv.args[1];
    const std::string copy = inv.inputFile("-");
    bool unknown = false;
    if (inv.has("no-clobber") && FileSys::fileExistsUtf8(to.c_str(), unknown, nullptr))
        return inv.fail(to, "it exists, and --no-clobber keeps it");
    // Stopped by a signal, the writing fails and the fs layer removes its temporary file.
    interrupt::Stoppable stoppable;
    std::string why;
    _ovLogger log;
    log.m_verboseLogging = inv.ctx.verbose;
    const bool ok = FileSys::writeFileStreamUtf8(
        to.c_str(), [&](const FileSys::Emit& emit) { return emitFileBytes(copy, emit, why); },
        &log);
    if (!ok && !why.empty()) return inv.fail(inv.inputName(inv.args[0]), why);
    if (!ok) return inv.failFromLog(errorLines(log), log.text(), to);
    inv.showLog(log.text());
    return kExitOk;
}

int runCopy(Invocation& inv) {
    if (inv.args[0] == "-") return copyStandardInput(inv);
    ClsFileAccess fa;
    fa.put_VerboseLogging(inv.ctx.verbose);
    XString from(inv.args[0].c_str()), to(inv.args[1].c_str());
    if (!fa.FileCopy(from, to, inv.has("no-clobber"))) {
        // The source when the library's lines name it, else the destination (or its directory).
        const std::string lines = errorLines(fa);
        return inv.failFromLog(
            lines, logText(fa),
            Invocation::namedIn(lines, {{inv.args[0], inv.args[0]}}, inv.args[1]));
    }
    inv.showLog(fa);
    return kExitOk;
}

int runMove(Invocation& inv) {
    ClsFileAccess fa;
    fa.put_VerboseLogging(inv.ctx.verbose);
    XString from(inv.args[0].c_str()), to(inv.args[1].c_str());
    if (!fa.FileRename(from, to)) return inv.failFrom(fa, inv.args[0]);
    inv.showLog(fa);
    return kExitOk;
}

// Runs `step` on every argument, going on past failures as rm and mkdir do; the status is
// 1 when any of them failed.
template <typename Step>
int forEachPath(Invocation& inv, Step step) {
    ClsFileAccess fa;
    fa.put_VerboseLogging(inv.ctx.verbose);
    int status = kExitOk;
    for (const std::string& arg : inv.args) {
        XString path(arg.c_str());
        if (step(fa, path)) {
            inv.showLog(fa);
        } else {
            inv.failFrom(fa, arg);
            status = kExitFailed;
        }
    }
    return status;
}

int runDelete(Invocation& inv) {
    return forEachPath(inv, [](ClsFileAccess& fa, XString& p) { return fa.FileDelete(p); });
}

int runMkdir(Invocation& inv) {
    const bool parents = inv.has("parents");
    return forEachPath(inv, [parents](ClsFileAccess& fa, XString& p) {
        return parents ? fa.DirEnsureExists(p) : fa.DirCreate(p);
    });
}

int runRmtree(Invocation& inv) {
    return forEachPath(inv, [](ClsFileAccess& fa, XString& p) { return fa.TreeDelete(p); });
}

}  // namespace

void addFileCommands(std::vector<CommandSpec>& table) {
    table.push_back({"info",
                     "PATH",
                     "Show the type, size and time stamps of a path",
                     "Times are in UTC; 'unavailable' where the file system keeps no such time.\n"
                     "A symbolic link is shown as a link, with its target, and whether it leads\n"
                     "nowhere (dangling) or cannot be resolved (a loop of links, say).",
                     1,
                     1,
                     {{"dereference", 'L', nullptr, "show what a symbolic link leads to"}},
                     runInfo});
    table.push_back({"copy",
                     "FROM TO",
                     "Copy a file",
                     "TO is written whole or not at all; a TO that is a symbolic link stays one.\n"
                     "A copy of standard input (FROM -) is made as the shell's > makes a file:\n"
                     "new with the usual permissions, or keeping those of the TO it replaces.",
                     2,
                     2,
                     {{"no-clobber", 'n', nullptr, "fail when TO exists"}},
                     runCopy});
    table.push_back({"move", "FROM TO", "Rename or move a file", "", 2, 2, {}, runMove});
    table.push_back({"delete", "FILE...", "Delete files", "", 1, INT_MAX, {}, runDelete});
    table.push_back(
        {"mkdir",
         "DIR...",
         "Create directories",
         "",
         1,
         INT_MAX,
         {{"parents", 'p', nullptr, "create missing parents too; no error if DIR exists"}},
         runMkdir});
    table.push_back({"rmtree",
                     "DIR...",
                     "Delete directories with everything in them",
                     "Symbolic links inside are removed as links; nothing outside is touched.\n"
                     "The root directory, and a DIR whose last part is . or .., are refused.",
                     1,
                     INT_MAX,
                     {},
                     runRmtree});
}

}  // namespace fatool
