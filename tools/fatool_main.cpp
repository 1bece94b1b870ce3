// fatool: the file-access library's jobs from the command line. See `fatool --help`.
#include <unistd.h>

#include <iostream>

#include "Cli.h"

int main(int argc, char** argv) {
    // Progress lines are for a person watching: on by default only when stderr is a terminal.
    fatool::Context ctx{std::cout, std::cerr, false, isatty(STDERR_FILENO) == 1};
    int status = fatool::run(argc, argv, ctx);
    std::cout.flush();
    return status;
}
