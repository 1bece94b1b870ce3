// The part files of split and join: their names, which are the library's (DIR/PREFIX<n>.EXT,
// the prefix and extension trimmed, a leading dot of the extension dropped), the options that
// choose them, and the parts present in a directory.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Cli.h"

namespace fatool {

struct PartNaming {
    std::string dir, prefix, ext;

    // Where part n lies.
    std::string part(int64_t n) const;
    // The directory the parts lie in (ending in '/') and how their names start: part(n) is
    // where + head + n + tail.
    void layout(std::string& where, std::string& head, std::string& tail) const;
    // The numbers of every part present, whatever the gaps between them, in ascending order
    // (none when the directory is missing); false with the reason when it cannot be listed.
    bool present(std::vector<int64_t>& numbers, std::string& why) const;
    // The number of parts 1, 2, ... present, up to the first missing one.
    int64_t presentFromOne() const;
};

// From --dir, --prefix and --ext, or the defaults: the current directory, the file's name
// (`nameSource`) and a dot, "part".
PartNaming partNaming(const Invocation& inv, const std::string& nameSource);

// The options that name the parts; each command says what its defaults come from.
std::vector<OptionSpec> partOptions(const char* dirHelp, const char* prefixHelp);

// The size of a file, or -1.
int64_t fileSize(const std::string& path);
// Whether a regular file is at the path (links followed).
bool isRegularFile(const std::string& path);

// The split command, listed first among the whole-file jobs.
CommandSpec splitCommand();

}  // namespace fatool
