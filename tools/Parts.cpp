#include "Parts.h"

#include <algorithm>

#include "foundation/fs/FileSys.h"

namespace fatool {

namespace {

const char* const kDefaultExt = "part";

std::string fileNameOf(const std::string& path) {
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string trimmed(const std::string& s) {
    const char* ws = " \t\r\n\v\f";
    size_t b = s.find_first_not_of(ws);
    if (b == std::string::npos) return "";
    return s.substr(b, s.find_last_not_of(ws) - b + 1);
}

// Whether `name` is head, a part number as the library writes it (1, 2, ...), then tail;
// the number goes to n.
bool partNumberIn(const std::string& name, const std::string& head, const std::string& tail,
                  int64_t& n) {
    if (name.size() <= head.size() + tail.size() || name.compare(0, head.size(), head) != 0 ||
        name.compare(name.size() - tail.size(), tail.size(), tail) != 0)
        return false;
    const std::string digits = name.substr(head.size(), name.size() - head.size() - tail.size());
    if (digits.size() > 18 || digits[0] < '1' || digits[0] > '9') return false;
    for (char c : digits)
        if (c < '0' || c > '9') return false;
    n = std::stoll(digits);
    return true;
}

}  // namespace

// The part names without their number and what follows it: DIR/PREFIX, and ".EXT".
static void leadAndTail(const PartNaming& naming, std::string& lead, std::string& tail) {
    std::string e = naming.ext;
    if (!e.empty() && e[0] == '.') e.erase(0, 1);
    // Built by appending: GCC 12 warns falsely (-Wrestrict) about "literal" + string.
    lead = naming.dir;
    if (!lead.empty() && lead.back() != '/') lead += '/';
    lead += trimmed(naming.prefix);
    std::string dotted(1, '.');
    dotted += trimmed(e);
    tail = std::move(dotted);
}

void PartNaming::layout(std::string& where, std::string& head, std::string& tail) const {
    std::string lead;
    leadAndTail(*this, lead, tail);
    const size_t slash = lead.rfind('/');
    where = slash == std::string::npos ? "./" : lead.substr(0, slash + 1);
    head = slash == std::string::npos ? lead : lead.substr(slash + 1);
}

std::string PartNaming::part(int64_t n) const {
    std::string lead, tail;
    leadAndTail(*this, lead, tail);
    return lead + std::to_string(n) + tail;
}

bool PartNaming::present(std::vector<int64_t>& numbers, std::string& why) const {
    std::string where, head, tail;
    layout(where, head, tail);
    numbers.clear();
    XString place(where.c_str());
    _ovLogger log;
    if (FileSys::filePathType(place, false, log) == PathType::None) return true;
    std::vector<std::string> names;
    if (!FileSys::listDirUtf8(where.c_str(), names, &log)) return why = errorLines(log), false;
    for (const std::string& name : names) {
        int64_t n = 0;
        if (partNumberIn(name, head, tail, n)) numbers.push_back(n);
    }
    std::sort(numbers.begin(), numbers.end());
    return true;
}

int64_t PartNaming::presentFromOne() const {
    int64_t n = 0;
    while (isRegularFile(part(n + 1))) ++n;
    return n;
}

PartNaming partNaming(const Invocation& inv, const std::string& nameSource) {
    return {inv.get("dir", "."), inv.get("prefix", fileNameOf(nameSource) + "."),
            inv.get("ext", kDefaultExt)};
}

std::vector<OptionSpec> partOptions(const char* dirHelp, const char* prefixHelp) {
    return {{"dir", 'd', "DIR", dirHelp},
            {"prefix", 'P', "PREFIX", prefixHelp},
            {"ext", 'x', "EXT", "part names end in .EXT (default: part)"}};
}

int64_t fileSize(const std::string& path) {
    XString p(path.c_str());
    bool ok = false;
    const long long size = FileSys::fileSizeX_64(p, nullptr, ok);
    return ok ? size : -1;
}

bool isRegularFile(const std::string& path) {
    XString p(path.c_str());
    _ovLogger log;
    return FileSys::filePathType(p, false, log) == PathType::File;
}

}  // namespace fatool
