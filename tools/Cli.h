// The command-line program's framework: how a command is described, parsed and run.
//
// Every subcommand is a CommandSpec (name, arguments, options, help text and the function
// that runs it). run() parses the command line against the table, prints help, turns bad
// usage into exit status 2, and hands a parsed Invocation to the command. A command's result
// is its exit status: 0 done, 1 the operation failed. Every failure is one line on standard
// error, "fatool: COMMAND: PATH: reason"; --verbose adds the library's whole log. Output goes
// to the streams of the Context, so the whole program can run inside a test; a failed write
// to standard output fails the command.
#pragma once

#include <cstdint>
#include <istream>
#include <map>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "Interrupt.h"

class ClsBase;
class XString;
class _ovLogger;

namespace fatool {

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

struct Context {
    std::istream& in;
    std::ostream& out;
    std::ostream& err;
    bool verbose = false;
    // Whether long jobs may report their progress on `err` (a terminal, or --progress).
    bool progress = false;
    // How long a job runs before its progress shows (seconds).
    double progressDelay = 0.5;
    // Whether `out` is a terminal, where a progress line would run into what is printed.
    bool outTerminal = false;
    // Whether --progress asked for progress (rather than a terminal on `err`).
    bool progressAsked = false;
};

// Thrown by a command that finds its arguments unusable; run() prints it with the usage line.
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Thrown where a command cannot go on (standard input cannot be read, say); run() prints it as
// the command's one-line failure about `path`.
class CommandFailure : public std::runtime_error {
  public:
    CommandFailure(std::string failedPath, const std::string& reason)
        : std::runtime_error(reason), path(std::move(failedPath)) {}
    const std::string path;
};

struct OptionSpec {
    const char* name;   // long name without the dashes
    char shortName;     // 0 when there is none; a letter means the same in every command
    const char* value;  // placeholder of the option's value, or null for a flag
    const char* help;
};

struct Invocation;
using CommandFn = int (*)(Invocation&);

struct CommandSpec {
    const char* name;
    const char* args;     // usage of the positional arguments, e.g. "FILE PART_SIZE"
    const char* summary;  // one line for the command list
    const char* details;  // the rest of the command's help, may be empty
    int minArgs;
    int maxArgs;
    std::vector<OptionSpec> options;
    CommandFn run;
    bool showsProgress = false;  // offers --progress and --no-progress
    // The exit status of a failure: 1, or 2 where 1 is an answer (compare, as cmp).
    int failureStatus = kExitFailed;
};

struct Invocation {
    Context& ctx;
    const CommandSpec& spec;
    std::vector<std::string> args;
    std::map<std::string, std::string> opts;
    // Files made for the call (standard input copied to a file); removed when it ends, or
    // when a signal stops the program.
    std::vector<std::string> scratch;
    std::vector<std::unique_ptr<interrupt::OnStop>> scratchOnStop;

    Invocation(Context& c, const CommandSpec& s) : ctx(c), spec(s) {}
    ~Invocation();
    Invocation(const Invocation&) = delete;
    Invocation& operator=(const Invocation&) = delete;

    bool has(const std::string& name) const { return opts.count(name) != 0; }
    std::string get(const std::string& name, const std::string& fallback) const;

    // A file to read for the argument: "-" is standard input, copied to a private file first
    // (the library works on files that can be read more than once), whose name ends in
    // `suffix` when one is given. Throws CommandFailure when standard input cannot be read or
    // copied.
    std::string inputFile(const std::string& arg, const char* suffix = nullptr);
    // A file for a command that seeks in it: as inputFile, except that a pipe, socket or
    // device is refused with one line (and "" returned), since it cannot be read twice.
    std::string seekableInput(const std::string& arg);
    // Keeps a file made for the call as scratch (see `scratch`).
    void addScratch(const std::string& path);
    // How an argument is named in messages where "-" stands for standard input, or output;
    // elsewhere "-" is a file's name and shown as it is.
    static std::string inputName(const std::string& arg);
    static std::string outputName(const std::string& arg);
    // A file a library call was given: the path it used, and how messages name it.
    struct NamedFile {
        std::string used, shown;
    };
    // The file whose path the error lines quote ("open \"p\" failed"), as messages name it;
    // `fallback` when they quote none.
    static std::string namedIn(const std::string& lines, const std::vector<NamedFile>& files,
                               const std::string& fallback);

    // The one-line failure report: "fatool: COMMAND: PATH: reason" (no PATH when empty). The
    // path is shown as given: callers name standard input and output (inputName()).
    int fail(const std::string& path, const std::string& reason) const;
    // A failure whose reason is what the library's log says went wrong (its error lines);
    // with --verbose the whole log follows.
    int failFrom(ClsBase& obj, const std::string& path) const;
    int failFromLog(const std::string& errorLines, const std::string& logText,
                    const std::string& path) const;
    // With --verbose, the library's whole log of the call.
    void showLog(ClsBase& obj) const;
    void showLog(const std::string& logText) const;
};

// A byte count such as 4096, 64K, 100M or 2G (binary multiples); UsageError, with the range
// accepted, when it is not one or lies outside [minValue, maxValue].
int64_t parseSize(const std::string& text, const char* what, int64_t minValue, int64_t maxValue);
// A plain decimal integer within [minValue, maxValue]; UsageError otherwise.
int64_t parseInt(const std::string& text, const char* what, int64_t minValue, int64_t maxValue);
// UsageError unless the library knows the charset, or the encoding.
void checkCharset(const std::string& name);
void checkEncoding(const std::string& name);
// The object's last-error log as text, and only its error lines (joined by "; ").
std::string logText(ClsBase& obj);
std::string errorLines(ClsBase& obj);
std::string errorLines(const _ovLogger& log);
// Whether the two paths reach one existing regular file (by device and inode, whatever the
// names, links or hard links): such a pair cannot be one command's input and output.
bool sameRegularFile(const std::string& a, const std::string& b);
// "read error: " and the system's reason for errno `err` ("read error" when it is 0).
std::string readError(int err);
// "1 part", "2 parts".
std::string counted(int64_t n, const char* singular, const char* plural);

// The command tables of each family, joined by run().
void addFileCommands(std::vector<CommandSpec>& table);
void addBigFileCommands(std::vector<CommandSpec>& table);
void addContentCommands(std::vector<CommandSpec>& table);
// The whole table.
const std::vector<CommandSpec>& commandTable();

// Runs the program on argv (argv[0] is the program's name) and returns its exit status.
int run(int argc, const char* const* argv, Context& ctx);
// The whole process, as main() runs it: signals taken (Interrupt.h), closed standard
// descriptors kept from being reused (a closed standard input reads as an error), the
// terminals found, then run() on the standard streams.
int runProcess(int argc, const char* const* argv);

}  // namespace fatool
