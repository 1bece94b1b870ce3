#include "Cli.h"

#include <cerrno>
#include <cstdlib>
#include <iomanip>
#include <limits>

#include "fileaccess/ClsFileAccess.h"

namespace fatool {

namespace {

constexpr const char* kProgram = "fatool";

// Options every command accepts besides its own.
const std::vector<OptionSpec>& commonOptions() {
    static const std::vector<OptionSpec> opts = {
        {"help", 'h', nullptr, "show this help and exit"},
        {"verbose", 'v', nullptr, "print the library's log of every call on standard error"},
        {"progress", 0, nullptr, "report progress of long jobs even when not on a terminal"},
        {"no-progress", 0, nullptr, "never report progress"},
    };
    return opts;
}

std::vector<CommandSpec> buildTable() {
    std::vector<CommandSpec> table;
    addBigFileCommands(table);
    addContentCommands(table);
    addFileCommands(table);
    return table;
}

const CommandSpec* findCommand(const std::vector<CommandSpec>& table, const std::string& name) {
    for (const CommandSpec& c : table) {
        if (name == c.name) return &c;
    }
    return nullptr;
}

void printOptions(std::ostream& os, const std::vector<OptionSpec>& opts) {
    for (const OptionSpec& o : opts) {
        std::string left = o.shortName ? std::string("-") + o.shortName + ", " : "    ";
        left += std::string("--") + o.name;
        if (o.value) left += std::string(" ") + o.value;
        os << "  " << std::left << std::setw(26) << left << ' ' << o.help << '\n';
    }
}

void printUsageLine(std::ostream& os, const CommandSpec& c) {
    os << "Usage: " << kProgram << ' ' << c.name << (c.options.empty() ? "" : " [OPTIONS]")
       << (c.args[0] ? " " : "") << c.args << '\n';
}

void printCommandHelp(std::ostream& os, const CommandSpec& c) {
    printUsageLine(os, c);
    os << '\n' << c.summary << ".\n";
    if (c.details[0]) os << '\n' << c.details << '\n';
    os << "\nOptions:\n";
    printOptions(os, c.options);
    printOptions(os, commonOptions());
}

void printProgramHelp(std::ostream& os, const std::vector<CommandSpec>& table) {
    os << "Usage: " << kProgram << " [OPTIONS] COMMAND [ARGS...]\n"
       << "       " << kProgram << " COMMAND --help\n\n"
       << "Works with files and directories through the file-access library.\n\nCommands:\n";
    for (const CommandSpec& c : table) {
        os << "  " << std::left << std::setw(13) << c.name << ' ' << c.summary << '\n';
    }
    os << "\nOptions:\n";
    printOptions(os, commonOptions());
    os << "  " << std::left << std::setw(26) << "    --version"
       << " print the version and exit\n"
       << "\nExit status: 0 on success, 1 when the operation failed (the library's log is then\n"
       << "printed on standard error), 2 on bad usage.\n";
}

const OptionSpec* findOption(const std::vector<OptionSpec>& opts, const std::string& longName,
                             char shortName) {
    for (const OptionSpec& o : opts) {
        if (!longName.empty() ? longName == o.name : (o.shortName && o.shortName == shortName))
            return &o;
    }
    return nullptr;
}

// Applies the options that every command shares; true when `name` was one of them.
bool applyCommonOption(Context& ctx, const std::string& name) {
    if (name == "verbose")
        ctx.verbose = true;
    else if (name == "progress")
        ctx.progress = true;
    else if (name == "no-progress")
        ctx.progress = false;
    else
        return false;
    return true;
}

// Splits the command's words into options and positional arguments. A lone "--" ends the
// options, so that a file named "-x" can still be given.
void parseWords(Invocation& inv, const std::vector<std::string>& words) {
    bool optionsDone = false;
    for (size_t i = 0; i < words.size(); ++i) {
        const std::string& w = words[i];
        // A negative number such as -5 is an argument, not an option.
        bool negativeNumber = w.size() >= 2 && w[0] == '-' && w[1] >= '0' && w[1] <= '9';
        if (optionsDone || w.size() < 2 || w[0] != '-' || negativeNumber) {
            inv.args.push_back(w);
            continue;
        }
        if (w == "--") {
            optionsDone = true;
            continue;
        }
        std::string longName;
        std::string value;
        bool hasInlineValue = false;
        char shortName = 0;
        if (w[1] == '-') {
            longName = w.substr(2);
            size_t eq = longName.find('=');
            if (eq != std::string::npos) {
                value = longName.substr(eq + 1);
                longName.resize(eq);
                hasInlineValue = true;
            }
        } else if (w.size() == 2) {
            shortName = w[1];
        } else {
            throw UsageError("unknown option '" + w + "'");
        }
        const OptionSpec* o = findOption(inv.spec.options, longName, shortName);
        if (!o) o = findOption(commonOptions(), longName, shortName);
        if (!o) throw UsageError("unknown option '" + w + "'");
        if (!o->value) {
            if (hasInlineValue)
                throw UsageError(std::string("option --") + o->name + " takes no value");
            inv.opts[o->name] = "";
            continue;
        }
        if (!hasInlineValue) {
            if (i + 1 >= words.size())
                throw UsageError(std::string("option --") + o->name + " needs a value");
            value = words[++i];
        }
        inv.opts[o->name] = value;
    }
}

int runCommand(const CommandSpec& spec, const std::vector<std::string>& words, Context& ctx) {
    Invocation inv{ctx, spec, {}, {}};
    try {
        parseWords(inv, words);
        if (inv.has("help")) {
            printCommandHelp(ctx.out, spec);
            return kExitOk;
        }
        for (const auto& [name, value] : inv.opts) applyCommonOption(ctx, name);
        int n = static_cast<int>(inv.args.size());
        if (n < spec.minArgs) throw UsageError("missing arguments");
        if (n > spec.maxArgs) throw UsageError("too many arguments");
        return spec.run(inv);
    } catch (const UsageError& e) {
        ctx.err << kProgram << ' ' << spec.name << ": " << e.what() << '\n';
        printUsageLine(ctx.err, spec);
        ctx.err << "Try '" << kProgram << ' ' << spec.name << " --help' for more.\n";
        return kExitUsage;
    }
}

}  // namespace

std::string Invocation::get(const std::string& name, const std::string& fallback) const {
    auto it = opts.find(name);
    return it == opts.end() ? fallback : it->second;
}

std::string logText(ClsBase& obj) {
    XString text;
    obj.get_LastErrorText(text);
    return text.getUtf8();
}

void Invocation::printLog(const std::string& text) const {
    ctx.err << text;
    if (!text.empty() && text.back() != '\n') ctx.err << '\n';
}

int Invocation::finishLog(const std::string& text, bool ok, const std::string& failure) const {
    if (!ok) ctx.err << kProgram << ' ' << spec.name << ": " << failure << '\n';
    if (!ok || ctx.verbose) printLog(text);
    return ok ? kExitOk : kExitFailed;
}

int Invocation::finish(ClsBase& obj, bool ok, const std::string& failure) const {
    return finishLog(logText(obj), ok, failure);
}

int64_t parseInt(const std::string& text, const char* what, int64_t minValue, int64_t maxValue) {
    errno = 0;
    char* end = nullptr;
    long long v = std::strtoll(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno == ERANGE || v < minValue || v > maxValue) {
        throw UsageError(std::string("invalid ") + what + " '" + text + "' (expected " +
                         std::to_string(minValue) + " to " + std::to_string(maxValue) + ")");
    }
    return v;
}

int64_t parseSize(const std::string& text, const char* what, int64_t minValue, int64_t maxValue) {
    std::string digits = text;
    int shift = 0;
    if (!digits.empty()) {
        switch (digits.back()) {
            case 'k':
            case 'K':
                shift = 10;
                break;
            case 'm':
            case 'M':
                shift = 20;
                break;
            case 'g':
            case 'G':
                shift = 30;
                break;
            default:
                break;
        }
        if (shift) digits.pop_back();
    }
    int64_t base = parseInt(digits, what, 0, std::numeric_limits<int64_t>::max() >> 30);
    int64_t v = base << shift;
    if (digits.empty() || v < minValue || v > maxValue) {
        throw UsageError(std::string("invalid ") + what + " '" + text + "' (expected " +
                         std::to_string(minValue) + " to " + std::to_string(maxValue) + ")");
    }
    return v;
}

int run(int argc, const char* const* argv, Context& ctx) {
    static const std::vector<CommandSpec> table = buildTable();
    int i = 1;
    // Options before the command name apply to it as well.
    for (; i < argc && argv[i][0] == '-'; ++i) {
        std::string w = argv[i];
        if (w == "--help" || w == "-h") {
            printProgramHelp(ctx.out, table);
            return kExitOk;
        }
        if (w == "--version") {
            ctx.out << kProgram << ' ' << ClsBase::libraryVersion() << '\n';
            return kExitOk;
        }
        if (w == "-v") w = "--verbose";
        if (w.rfind("--", 0) != 0 || !applyCommonOption(ctx, w.substr(2))) {
            ctx.err << kProgram << ": unknown option '" << argv[i] << "'\n"
                    << "Try '" << kProgram << " --help' for more.\n";
            return kExitUsage;
        }
    }
    if (i >= argc) {
        ctx.err << kProgram << ": no command given\nTry '" << kProgram << " --help' for more.\n";
        return kExitUsage;
    }
    const CommandSpec* spec = findCommand(table, argv[i]);
    if (!spec) {
        ctx.err << kProgram << ": unknown command '" << argv[i] << "'\n"
                << "Try '" << kProgram << " --help' for the list of commands.\n";
        return kExitUsage;
    }
    std::vector<std::string> words(argv + i + 1, argv + argc);
    return runCommand(*spec, words, ctx);
}

}  // namespace fatool
