// fatool: the file-access library's jobs from the command line. See `fatool --help`.
#include "Cli.h"

int main(int argc, char** argv) {
    return fatool::runProcess(argc, argv);
}
