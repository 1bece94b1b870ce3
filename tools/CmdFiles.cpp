// Files and directories by path: info, copy, move, delete, mkdir and rmtree.
#include <climits>
#include <memory>

#include "Cli.h"
#include "fileaccess/ClsFileAccess.h"

namespace fatool {

namespace {

const char* typeName(int type) {
    switch (type) {
        case 0:
            return "none";
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
    if (inv.ctx.verbose) inv.printLog(logText(fa));
}

int runInfo(Invocation& inv) {
    ClsFileAccess fa;
    fa.put_VerboseLogging(inv.ctx.verbose);
    XString path(inv.args[0].c_str());
    int type = fa.FileType(path);
    if (type <= 0) {
        std::string why = type == 0 ? "' does not exist" : "' cannot be examined";
        return inv.finish(fa, false, "'" + inv.args[0] + why);
    }
    inv.ctx.out << "path: " << inv.args[0] << '\n' << "type: " << typeName(type) << '\n';
    if (type == 1) {
        XString size;
        if (!fa.FileSizeStr(path, size)) return inv.finish(fa, false, "could not read the size");
        inv.ctx.out << "size: " << size.view() << '\n';
    }
    printTime(inv, fa, path, "created", 2);
    printTime(inv, fa, path, "accessed", 1);
    printTime(inv, fa, path, "modified", 0);
    return kExitOk;
}

int runCopy(Invocation& inv) {
    ClsFileAccess fa;
    fa.put_VerboseLogging(inv.ctx.verbose);
    XString from(inv.args[0].c_str()), to(inv.args[1].c_str());
    bool ok = fa.FileCopy(from, to, inv.has("no-clobber"));
    return inv.finish(fa, ok, "could not copy '" + inv.args[0] + "' to '" + inv.args[1] + "'");
}

int runMove(Invocation& inv) {
    ClsFileAccess fa;
    fa.put_VerboseLogging(inv.ctx.verbose);
    XString from(inv.args[0].c_str()), to(inv.args[1].c_str());
    bool ok = fa.FileRename(from, to);
    return inv.finish(fa, ok, "could not move '" + inv.args[0] + "' to '" + inv.args[1] + "'");
}

// Runs `step` on every argument, going on past failures as rm and mkdir do; the status is
// 1 when any of them failed.
template <typename Step>
int forEachPath(Invocation& inv, const char* verb, Step step) {
    ClsFileAccess fa;
    fa.put_VerboseLogging(inv.ctx.verbose);
    int status = kExitOk;
    for (const std::string& arg : inv.args) {
        XString path(arg.c_str());
        bool ok = step(fa, path);
        if (inv.finish(fa, ok, std::string("could not ") + verb + " '" + arg + "'") != kExitOk)
            status = kExitFailed;
    }
    return status;
}

int runDelete(Invocation& inv) {
    return forEachPath(inv, "delete",
                       [](ClsFileAccess& fa, XString& p) { return fa.FileDelete(p); });
}

int runMkdir(Invocation& inv) {
    bool parents = inv.has("parents");
    return forEachPath(inv, "create", [parents](ClsFileAccess& fa, XString& p) {
        return parents ? fa.DirEnsureExists(p) : fa.DirCreate(p);
    });
}

int runRmtree(Invocation& inv) {
    return forEachPath(inv, "delete the tree",
                       [](ClsFileAccess& fa, XString& p) { return fa.TreeDelete(p); });
}

}  // namespace

void addFileCommands(std::vector<CommandSpec>& table) {
    table.push_back({"info",
                     "PATH",
                     "Show the type, size and time stamps of a path",
                     "Times are in UTC; 'unavailable' where the file system keeps no such time.",
                     1,
                     1,
                     {},
                     runInfo});
    table.push_back({"copy",
                     "FROM TO",
                     "Copy a file",
                     "",
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
                     "Symbolic links inside are removed as links; nothing outside is touched.",
                     1,
                     INT_MAX,
                     {},
                     runRmtree});
}

}  // namespace fatool
