// The program as a process: what main() does around run().
#include <unistd.h>

#include <cerrno>
#include <iostream>

#include "Cli.h"
#include "Interrupt.h"
#include "foundation/fs/FileSys.h"

namespace fatool {

namespace {

// Standard input whose descriptor was closed: every read fails (EBADF), so that it is never
// taken for an empty input.
class ClosedInput : public std::streambuf {
  protected:
    int_type underflow() override {
        errno = EBADF;
        throw std::ios_base::failure("standard input is closed");
    }
};

}  // namespace

int runProcess(int argc, const char* const* argv) {
    // Before any thread starts: signals are taken by a thread of their own.
    interrupt::install();
    bool closed[3];
    FileSys::occupyClosedStandardDescriptors(closed);
    // Records are printed through the streams alone: no need to keep them in step with stdio.
    std::ios::sync_with_stdio(false);
    ClosedInput none;
    std::istream closedInput(&none);
    // Progress lines are for a person watching: on by default only when stderr is a terminal.
    Context ctx{closed[0] ? closedInput : std::cin, std::cout, std::cerr, false,
                isatty(STDERR_FILENO) == 1};
    ctx.outTerminal = isatty(STDOUT_FILENO) == 1;
    return run(argc, argv, ctx);
}

}  // namespace fatool
