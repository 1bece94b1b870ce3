// The command-line program's framework: how a command is described, parsed and run.
//
// Every subcommand is a CommandSpec (name, arguments, options, help text and the function
// that runs it). run() parses the command line against the table, prints help, turns bad
// usage into exit status 2, and hands a parsed Invocation to the command, whose result is 0
// (done) or 1 (the operation failed). Output goes to the streams of the Context, so the whole
// program can run inside a test.
#pragma once

#include <cstdint>
#include <map>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

class ClsBase;
class XString;

namespace fatool {

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

struct Context {
    std::ostream& out;
    std::ostream& err;
    bool verbose = false;
    // Whether long jobs report their progress on `err`.
    bool progress = false;
};

// Thrown by a command that finds its arguments unusable; run() prints it with the usage line.
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

struct OptionSpec {
    const char* name;   // long name without the dashes
    char shortName;     // 0 when there is none
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
};

struct Invocation {
    Context& ctx;
    const CommandSpec& spec;
    std::vector<std::string> args;
    std::map<std::string, std::string> opts;

    bool has(const std::string& name) const { return opts.count(name) != 0; }
    std::string get(const std::string& name, const std::string& fallback) const;

    // Prints the object's last-error log when the call failed or --verbose is on, and a
    // one-line diagnosis on failure; returns the exit status for the outcome.
    int finish(ClsBase& obj, bool ok, const std::string& failure) const;
    // As finish, for a log that is not an object's own.
    int finishLog(const std::string& logText, bool ok, const std::string& failure) const;
    void printLog(const std::string& logText) const;
};

// A byte count such as 4096, 64K, 100M or 2G (binary multiples); UsageError when it is not one
// or lies outside [minValue, maxValue].
int64_t parseSize(const std::string& text, const char* what, int64_t minValue, int64_t maxValue);
// A plain decimal integer within [minValue, maxValue]; UsageError otherwise.
int64_t parseInt(const std::string& text, const char* what, int64_t minValue, int64_t maxValue);
// The object's last-error log as text.
std::string logText(ClsBase& obj);

// The command tables of each family, joined by run().
void addFileCommands(std::vector<CommandSpec>& table);
void addBigFileCommands(std::vector<CommandSpec>& table);
void addContentCommands(std::vector<CommandSpec>& table);

// Runs the program on argv (argv[0] is the program's name) and returns its exit status.
int run(int argc, const char* const* argv, Context& ctx);

}  // namespace fatool
