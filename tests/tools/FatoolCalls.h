// Runs the command-line program in-process against real files in a temporary directory, call
// by call from a table: exit status, standard output, standard error.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "Cli.h"
#include "support/TestSupport.h"

namespace fatool_test {

// One call and what it must give: the exit status, the whole standard output (or a part of it
// when `outPart` is set), and parts of standard error, which must be empty when none is given.
// The command line is split at spaces; "@name" stands for a file of the test directory, "@"
// for the directory itself, "%name" for a file under tests/data and '' for an empty argument.
// `in` is what standard input holds.
struct Call {
    std::string line;
    int status;
    std::string out;
    std::vector<std::string> err = {};
    bool outPart = false;
    std::string in = {};
};

// The lines of a text that ends each with '\n'.
inline size_t lineCount(const std::string& text) {
    size_t n = 0;
    for (char c : text) n += c == '\n';
    return n;
}

// Makes a directory the current one while it lives, for calls that name relative paths (such
// as a file called "-"), so that nothing outside the test's directory is ever touched.
class CurrentDirectory {
  public:
    explicit CurrentDirectory(const std::string& dir) : m_before(std::filesystem::current_path()) {
        std::filesystem::current_path(dir);
    }
    ~CurrentDirectory() { std::filesystem::current_path(m_before); }
    CurrentDirectory(const CurrentDirectory&) = delete;
    CurrentDirectory& operator=(const CurrentDirectory&) = delete;

  private:
    std::filesystem::path m_before;
};

class FatoolTest : public TempDirTest {
  protected:
    // A word of a command line; "@" and "%" also work after an option ("-d@parts").
    std::string argument(const std::string& w) const {
        if (w == "''") return "";
        if (w[0] == '%') return testDataPath(w.substr(1));
        if (w[0] == '@') return w == "@" ? dir() : path(w.substr(1));
        const size_t at = w.find_first_of("@%");
        if (w[0] == '-' && at != std::string::npos) return w.substr(0, at) + argument(w.substr(at));
        return w;
    }

    // Runs one command line with the given streams; returns the exit status. `terminal` stands
    // for standard error being a terminal, `outTerminal` for standard output being one.
    int runLine(const std::string& line, std::istream& in, std::ostream& out, std::ostream& err,
                bool terminal = false, double progressDelay = 0.5, bool outTerminal = false) const {
        std::deque<std::string> args;  // keeps its strings in place as it grows
        std::vector<const char*> argv{"fatool"};
        std::istringstream words(line);
        for (std::string w; words >> w;) argv.push_back(args.emplace_back(argument(w)).c_str());
        fatool::Context ctx{in, out, err, false, terminal, progressDelay};
        ctx.outTerminal = outTerminal;
        return fatool::run(static_cast<int>(argv.size()), argv.data(), ctx);
    }

    // Every entry under the test directory (or one of its subdirectories), as paths relative
    // to it, sorted; hidden names included.
    std::vector<std::string> entries(const std::string& sub = "") const {
        namespace fs = std::filesystem;
        const fs::path root = sub.empty() ? fs::path(dir()) : fs::path(path(sub));
        std::vector<std::string> found;
        for (const auto& e : fs::recursive_directory_iterator(root))
            found.push_back(fs::relative(e.path(), root).string());
        std::sort(found.begin(), found.end());
        return found;
    }

    // Runs the calls in order, so later calls can use the files earlier ones made. `terminal`
    // stands for standard error being a terminal, where progress is shown by default.
    void runCalls(const std::vector<Call>& calls, bool terminal = false) const {
        for (const Call& c : calls) {
            SCOPED_TRACE(c.line);
            std::istringstream in(c.in);
            std::ostringstream out, err;
            EXPECT_EQ(runLine(c.line, in, out, err, terminal), c.status) << err.str();
            const std::string o = out.str(), e = err.str();
            EXPECT_TRUE(c.outPart ? o.find(c.out) != o.npos : o == c.out) << o;
            EXPECT_TRUE(!c.err.empty() || e.empty()) << e;
            for (const std::string& part : c.err) EXPECT_NE(e.find(part), e.npos) << e;
        }
    }
};

}  // namespace fatool_test
