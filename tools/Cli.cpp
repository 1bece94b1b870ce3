#include "Cli.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iomanip>
#include <limits>

#include "fileaccess/ClsFileAccess.h"
#include "foundation/fs/FileSys.h"
#include "foundation/text/Charset.h"

namespace fatool {

namespace {

constexpr const char* kProgram = "fatool";
constexpr size_t kCopyBlock = 1u << 20;

// Options every command accepts besides its own.
const std::vector<OptionSpec>& commonOptions() {
    static const std::vector<OptionSpec> opts = {
        {"help", 'h', nullptr, "show this help and exit"},
        {"verbose", 'v', nullptr, "print the log of each library call made on standard error"},
        {"version", 0, nullptr, "print the version and exit"},
    };
    return opts;
}

// Options of the commands that show progress.
const std::vector<OptionSpec>& progressOptions() {
    static const std::vector<OptionSpec> opts = {
        {"progress", 0, nullptr, "report progress even where none shows by default"},
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

const CommandSpec* findCommand(const std::string& name) {
    for (const CommandSpec& c : commandTable()) {
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
    os << "Usage: " << kProgram << ' ' << c.name << " [OPTIONS]" << (c.args[0] ? " " : "") << c.args
       << '\n';
}

void printCommandHelp(std::ostream& os, const CommandSpec& c) {
    printUsageLine(os, c);
    os << '\n' << c.summary << ".\n";
    if (c.details[0]) os << '\n' << c.details << '\n';
    os << "\nOptions:\n";
    printOptions(os, c.options);
    if (c.showsProgress) printOptions(os, progressOptions());
    printOptions(os, commonOptions());
}

void printProgramHelp(std::ostream& os) {
    os << "Usage: " << kProgram << " [OPTIONS] COMMAND [ARGS...]\n"
       << "  or:  " << kProgram << " COMMAND --help\n\n"
       << "Works with files and directories through the file-access library.\n\nCommands:\n";
    for (const CommandSpec& c : commandTable()) {
        os << "  " << std::left << std::setw(13) << c.name << ' ' << c.summary << '\n';
    }
    os << "\nOptions:\n";
    printOptions(os, commonOptions());
    os << "\nA FILE given as - is standard input, an output given as - standard output.\n"
       << "Sizes are byte counts with an optional K, M or G (binary multiples).\n"
       << "Jobs that run longer than half a second show their progress where standard error\n"
       << "is a terminal, unless what they print goes to that terminal too (--progress).\n"
       << "With --verbose the library's log of each call is printed; join, convert, copy -\n"
       << "and the scan of a <tag> do their work in the program itself and print a log\n"
       << "only where a step of the library fails. Options may come before COMMAND too.\n"
       << "Stopped by SIGINT, SIGTERM or SIGHUP, a command removes the files it made for\n"
       << "itself and ends by that signal.\n"
       << "\nExit status: 0 on success, 1 when the operation failed (one line on standard\n"
       << "error says why), 2 on bad usage. compare exits 1 when the files differ and 2 when\n"
       << "they cannot be compared, as cmp does.\n";
}

const OptionSpec* findOption(const std::vector<OptionSpec>& opts, const std::string& longName,
                             char shortName) {
    for (const OptionSpec& o : opts) {
        if (!longName.empty() ? longName == o.name : (o.shortName && o.shortName == shortName))
            return &o;
    }
    return nullptr;
}

const OptionSpec* findAnyOption(const CommandSpec& spec, const std::string& longName,
                                char shortName) {
    const OptionSpec* o = findOption(spec.options, longName, shortName);
    if (!o && spec.showsProgress) o = findOption(progressOptions(), longName, shortName);
    if (!o) o = findOption(commonOptions(), longName, shortName);
    return o;
}

// Applies the options that change the context; true when `name` was one of them.
bool applyCommonOption(Context& ctx, const std::string& name) {
    if (name == "verbose")
        ctx.verbose = true;
    else if (name == "progress")
        ctx.progress = ctx.progressAsked = true;
    else if (name == "no-progress")
        ctx.progress = ctx.progressAsked = false;
    else
        return false;
    return true;
}

// Takes the value of option `o` from the rest of a word or the next word.
void takeValue(Invocation& inv, const OptionSpec& o, const std::vector<std::string>& words,
               size_t& i, const std::string& attached, bool hasAttached) {
    if (!o.value) {
        if (hasAttached) throw UsageError(std::string("option --") + o.name + " takes no value");
        inv.opts[o.name] = "";
        return;
    }
    if (!hasAttached) {
        if (i + 1 >= words.size())
            throw UsageError(std::string("option --") + o.name + " needs a value");
        inv.opts[o.name] = words[++i];
        return;
    }
    inv.opts[o.name] = attached;
}

// Splits the command's words into options and positional arguments. Short options may be
// grouped (-cv) and take their value attached (-dparts) or as the next word; a lone "-" is an
// argument (standard input or output), and a lone "--" ends the options, so that a file
// named "-x" can still be given.
void parseWords(Invocation& inv, const std::vector<std::string>& words) {
    bool optionsDone = false;
    for (size_t i = 0; i < words.size(); ++i) {
        const std::string& w = words[i];
        // A negative number such as -5 is an argument, not an option.
        const bool negativeNumber = w.size() >= 2 && w[0] == '-' && w[1] >= '0' && w[1] <= '9';
        if (optionsDone || w.size() < 2 || w[0] != '-' || negativeNumber) {
            inv.args.push_back(w);
            continue;
        }
        if (w == "--") {
            optionsDone = true;
            continue;
        }
        if (w[1] == '-') {
            std::string name = w.substr(2), value;
            const size_t eq = name.find('=');
            if (eq != std::string::npos) {
                value = name.substr(eq + 1);
                name.resize(eq);
            }
            const OptionSpec* o = findAnyOption(inv.spec, name, 0);
            if (!o) throw UsageError("unknown option '" + w + "'");
            takeValue(inv, *o, words, i, value, eq != std::string::npos);
            continue;
        }
        for (size_t k = 1; k < w.size(); ++k) {
            const OptionSpec* o = findAnyOption(inv.spec, "", w[k]);
            if (!o) throw UsageError(std::string("unknown option '-") + w[k] + "'");
            if (o->value) {
                takeValue(inv, *o, words, i, w.substr(k + 1), k + 1 < w.size());
                break;
            }
            takeValue(inv, *o, words, i, "", false);
        }
    }
}

int runCommand(const CommandSpec& spec, const std::vector<std::string>& words, Context& ctx) {
    Invocation inv(ctx, spec);
    try {
        parseWords(inv, words);
        if (inv.has("help")) {
            printCommandHelp(ctx.out, spec);
            return kExitOk;
        }
        if (inv.has("version")) {
            ctx.out << kProgram << ' ' << ClsBase::libraryVersion() << '\n';
            return kExitOk;
        }
        for (const auto& [name, value] : inv.opts) applyCommonOption(ctx, name);
        const int n = static_cast<int>(inv.args.size());
        if (n < spec.minArgs) throw UsageError("missing arguments");
        if (n > spec.maxArgs) throw UsageError("too many arguments");
        return spec.run(inv);
    } catch (const UsageError& e) {
        ctx.err << kProgram << ": " << spec.name << ": " << e.what() << '\n';
        printUsageLine(ctx.err, spec);
        ctx.err << "Try '" << kProgram << ' ' << spec.name << " --help' for more.\n";
        return kExitUsage;
    } catch (const CommandFailure& e) {
        inv.fail(e.path, e.what());
        return spec.failureStatus;
    }
}

std::string rangeText(int64_t minValue, int64_t maxValue) {
    return std::to_string(minValue) + " to " + std::to_string(maxValue);
}

}  // namespace

const std::vector<CommandSpec>& commandTable() {
    static const std::vector<CommandSpec> table = buildTable();
    return table;
}

Invocation::~Invocation() {
    ClsFileAccess fa;
    for (const std::string& p : scratch) {
        XString path(p.c_str());
        fa.FileDelete(path);
    }
}

void Invocation::addScratch(const std::string& path) {
    scratch.push_back(path);
    scratchOnStop.push_back(std::make_unique<interrupt::OnStop>(
        [path] { FileSys::deleteFileUtf8(path.c_str(), nullptr); }));
}

std::string Invocation::get(const std::string& name, const std::string& fallback) const {
    auto it = opts.find(name);
    return it == opts.end() ? fallback : it->second;
}

std::string Invocation::inputName(const std::string& arg) {
    return arg == "-" ? "standard input" : arg;
}

std::string Invocation::outputName(const std::string& arg) {
    return arg == "-" ? "standard output" : arg;
}

std::string Invocation::namedIn(const std::string& lines, const std::vector<NamedFile>& files,
                                const std::string& fallback) {
    for (const NamedFile& f : files)
        if (lines.find('"' + f.used + '"') != std::string::npos) return f.shown;
    return fallback;
}

std::string Invocation::inputFile(const std::string& arg, const char* suffix) {
    if (arg != "-") return arg;
    ClsFileAccess fa;
    XString dir, prefix("fatool-stdin-"), path;
    if (!fa.GetTempFilename(dir, prefix, path))
        throw CommandFailure(inputName(arg), "cannot keep a copy: " + errorLines(fa));
    addScratch(path.getUtf8());
    if (!fa.OpenForWrite(path))
        throw CommandFailure(inputName(arg), "cannot keep a copy: " + errorLines(fa));
    std::vector<char> block(kCopyBlock);
    DataBuffer data;
    errno = 0;
    while (ctx.in.read(block.data(), static_cast<std::streamsize>(block.size())) ||
           ctx.in.gcount() > 0) {
        data.clear();
        data.append(block.data(), static_cast<unsigned>(ctx.in.gcount()));
        if (!fa.FileWrite(data))
            throw CommandFailure(inputName(arg), "cannot keep a copy: " + errorLines(fa));
        errno = 0;
    }
    // A stream that cannot be read (a directory, a closed descriptor) is no empty input.
    if (ctx.in.bad()) throw CommandFailure(inputName(arg), readError(errno));
    fa.FileClose();
    if (!suffix) return path.getUtf8();
    // Renamed rather than created under the longer name: the unique name is ours alone.
    XString named((path.getUtf8() + std::string(suffix)).c_str());
    if (!fa.FileRename(path, named))
        throw CommandFailure(inputName(arg), "cannot keep a copy: " + errorLines(fa));
    addScratch(named.getUtf8());
    return named.getUtf8();
}

std::string Invocation::seekableInput(const std::string& arg) {
    if (arg == "-") return inputFile(arg);
    ClsFileAccess fa;
    XString path(arg.c_str());
    // Missing files and directories are left to the open, which says what is wrong.
    if (fa.FileType(path) != 4) return arg;
    fail(arg, "not a regular file, and " + std::string(spec.name) +
                  " seeks in its input (give - to read standard input)");
    return "";
}

int Invocation::fail(const std::string& path, const std::string& reason) const {
    // A job stopped by a signal ends by that signal, without a word.
    if (interrupt::stopRequested()) return kExitFailed;
    ctx.err << kProgram << ": " << spec.name << ": " << (path.empty() ? "" : path + ": ") << reason
            << '\n';
    return kExitFailed;
}

int Invocation::failFrom(ClsBase& obj, const std::string& path) const {
    return failFromLog(errorLines(obj), logText(obj), path);
}

int Invocation::failFromLog(const std::string& lines, const std::string& log,
                            const std::string& path) const {
    if (interrupt::stopRequested()) return kExitFailed;
    fail(path, lines.empty() ? "failed" : lines);
    showLog(log);
    return kExitFailed;
}

void Invocation::showLog(ClsBase& obj) const {
    if (ctx.verbose) showLog(logText(obj));
}

void Invocation::showLog(const std::string& text) const {
    if (!ctx.verbose) return;
    ctx.err << text;
    if (!text.empty() && text.back() != '\n') ctx.err << '\n';
}

std::string logText(ClsBase& obj) {
    XString text;
    obj.get_LastErrorText(text);
    return text.getUtf8();
}

std::string errorLines(ClsBase& obj) {
    return errorLines(obj.lastErrorLog());
}

std::string errorLines(const _ovLogger& log) {
    std::string lines;
    for (const LogEntry& e : log.entries()) {
        // The outcome line says only that the call failed, which the exit status says too.
        if (e.kind != LogKind::Error || e.text == "Failed.") continue;
        if (!lines.empty()) lines += "; ";
        lines += e.text;
    }
    return lines;
}

bool sameRegularFile(const std::string& a, const std::string& b) {
    XString pa(a.c_str()), pb(b.c_str());
    FileId ia, ib;
    bool ea = false, eb = false;
    return FileSys::regularFileId(pa, ea, ia, nullptr) && ea &&
           FileSys::regularFileId(pb, eb, ib, nullptr) && eb && ia == ib;
}

std::string readError(int err) {
    return err ? std::string("read error: ") + std::strerror(err) : std::string("read error");
}

std::string counted(int64_t n, const char* singular, const char* plural) {
    return std::to_string(n) + " " + (n == 1 ? singular : plural);
}

// Whether text is decimal digits, with a minus sign first when `signedOk`: strtoll alone would
// also take leading white space and a plus sign.
static bool plainDigits(const std::string& text, bool signedOk) {
    const size_t first = signedOk && !text.empty() && text[0] == '-' ? 1 : 0;
    if (text.size() <= first) return false;
    for (size_t i = first; i < text.size(); ++i)
        if (text[i] < '0' || text[i] > '9') return false;
    return true;
}

int64_t parseInt(const std::string& text, const char* what, int64_t minValue, int64_t maxValue) {
    errno = 0;
    char* end = nullptr;
    long long v = std::strtoll(text.c_str(), &end, 10);
    if (!plainDigits(text, minValue < 0) || *end != '\0' || errno == ERANGE || v < minValue ||
        v > maxValue) {
        throw UsageError(std::string("invalid ") + what + " '" + text + "': expected " +
                         rangeText(minValue, maxValue));
    }
    return v;
}

int64_t parseSize(const std::string& text, const char* what, int64_t minValue, int64_t maxValue) {
    std::string digits = text;
    int shift = 0;
    if (!digits.empty()) {
        switch (digits.back()) {
            case 'K':
                shift = 10;
                break;
            case 'M':
                shift = 20;
                break;
            case 'G':
                shift = 30;
                break;
            default:
                break;
        }
        if (shift) digits.pop_back();
    }
    errno = 0;
    char* end = nullptr;
    const long long base = std::strtoll(digits.c_str(), &end, 10);
    const bool number = plainDigits(digits, false) && *end == '\0' && errno != ERANGE &&
                        base >= 0 && base <= (std::numeric_limits<int64_t>::max() >> shift);
    const int64_t v = number ? base << shift : -1;
    if (!number || v < minValue || v > maxValue) {
        throw UsageError(std::string("invalid ") + what + " '" + text +
                         "': expected a byte count from " + rangeText(minValue, maxValue) +
                         ", with an optional K, M or G");
    }
    return v;
}

void checkCharset(const std::string& name) {
    _ovCharset cs;
    if (!cs.setByName(name.c_str())) throw UsageError("unknown charset '" + name + "'");
}

void checkEncoding(const std::string& name) {
    DataBuffer probe;
    probe.appendChar('x');
    StringBuffer text;
    if (!probe.encodeDB(name.c_str(), text)) throw UsageError("unknown encoding '" + name + "'");
}

namespace {

// Without a command, only the options every command takes make sense: help and version
// answer, anything else is bad usage.
int withoutCommand(const std::vector<std::string>& words, Context& ctx) {
    bool help = false, version = false;
    for (const std::string& w : words) {
        // A long option (its value left out), or a group of short ones.
        std::vector<const OptionSpec*> named;
        if (w.rfind("--", 0) == 0)
            named.push_back(findOption(commonOptions(), w.substr(2, w.find('=') - 2), 0));
        else
            for (size_t k = 1; k < w.size(); ++k)
                named.push_back(findOption(commonOptions(), "", w[k]));
        for (const OptionSpec* o : named) {
            if (!o) {
                ctx.err << kProgram << ": unknown option '" << w << "'\n"
                        << "Try '" << kProgram << " --help' for more.\n";
                return kExitUsage;
            }
            help = help || std::string(o->name) == "help";
            version = version || std::string(o->name) == "version";
        }
    }
    if (help) printProgramHelp(ctx.out);
    if (version && !help) ctx.out << kProgram << ' ' << ClsBase::libraryVersion() << '\n';
    if (help || version) return kExitOk;
    ctx.err << kProgram << ": no command given\nTry '" << kProgram << " --help' for more.\n";
    return kExitUsage;
}

// Runs the command named on the command line; `name` receives its name. Options before the
// command are its own, parsed as if they followed it, so they mean there what they mean after
// it (and a command without --progress refuses it in both places).
int dispatch(int argc, const char* const* argv, Context& ctx, std::string& name) {
    int i = 1;
    std::vector<std::string> words;
    for (; i < argc && argv[i][0] == '-' && argv[i][1] != '\0'; ++i) words.push_back(argv[i]);
    if (i >= argc) return withoutCommand(words, ctx);
    const CommandSpec* spec = findCommand(argv[i]);
    if (!spec) {
        ctx.err << kProgram << ": unknown command '" << argv[i] << "'\n"
                << "Try '" << kProgram << " --help' for the list of commands.\n";
        return kExitUsage;
    }
    name = spec->name;
    words.insert(words.end(), argv + i + 1, argv + argc);
    return runCommand(*spec, words, ctx);
}

// Stands between the commands and standard output, and keeps the reason (errno) of the first
// write that failed: by the time the failure is reported, errno tells of later calls.
class KeepsWriteError : public std::streambuf {
  public:
    explicit KeepsWriteError(std::streambuf* to) : m_to(to) { setp(m_buf, m_buf + sizeof m_buf); }
    std::streambuf* target() const { return m_to; }
    // The reason of the first failed write, or "" when none failed.
    std::string reason() const {
        if (!m_failed) return "";
        return m_error ? std::strerror(m_error) : "the output was not written in full";
    }

  protected:
    int_type overflow(int_type c) override {
        if (!drain()) return traits_type::eof();
        if (!traits_type::eq_int_type(c, traits_type::eof())) {
            *pptr() = traits_type::to_char_type(c);
            pbump(1);
        }
        return traits_type::not_eof(c);
    }
    int sync() override {
        if (!drain()) return -1;
        errno = 0;
        if (m_to->pubsync() == 0) return 0;
        noteFailure();
        return -1;
    }

  private:
    bool drain() {
        const std::streamsize n = pptr() - pbase();
        errno = 0;
        if (n > 0 && m_to->sputn(pbase(), n) != n) return noteFailure(), false;
        setp(m_buf, m_buf + sizeof m_buf);
        return true;
    }
    void noteFailure() {
        if (m_failed) return;
        m_failed = true;
        m_error = errno;
    }

    std::streambuf* m_to;
    char m_buf[1 << 16];
    bool m_failed = false;
    int m_error = 0;
};

}  // namespace

int run(int argc, const char* const* argv, Context& ctx) {
    KeepsWriteError out(ctx.out.rdbuf());
    ctx.out.rdbuf(&out);
    std::string name;
    int status = dispatch(argc, argv, ctx, name);
    // A job stopped by a signal has wound down and removed what it made: the program ends by
    // that signal.
    interrupt::stopIfRequested();
    // What was printed must have arrived: a full disk or a closed pipe is a failure.
    ctx.out.flush();
    const bool failed = !ctx.out;
    ctx.out.rdbuf(out.target());
    if (failed) {
        const std::string reason = out.reason();
        ctx.err << kProgram << ": " << (name.empty() ? "" : name + ": ")
                << "standard output: write error: "
                << (reason.empty() ? "the output was not written in full" : reason) << '\n';
        const CommandSpec* spec = name.empty() ? nullptr : findCommand(name);
        status = spec ? spec->failureStatus : kExitFailed;
    }
    return status;
}

}  // namespace fatool
