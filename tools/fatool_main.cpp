// fatool: the file-access library's jobs from the command line. See `fatool --help`.
#include <unistd.h>

#include <iostream>

#include "Cli.h"

int main(int argc, char** argv) {
    // Before any thread starts: signals are taken by a thread of their own (Interrupt.h).
    fatool::interrupt::install();
    // Records are printed through the streams alone: no need to keep them in step with stdio.
    std::ios::sync_with_stdio(false);
    // Progress lines are for a person watching: on by default only when stderr is a terminal.
    fatool::Context ctx{std::cin, std::cout, std::cerr, false, isatty(STDERR_FILENO) == 1};
    ctx.outTerminal = isatty(STDOUT_FILENO) == 1;
    return fatool::run(argc, argv, ctx);
}
