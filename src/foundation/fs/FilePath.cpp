#include "foundation/fs/FilePath.h"

#include <string>

void _ovFilePath::CombineDirAndFilename(const XString& dir, const XString& name, XString& out) {
    std::string joined(dir.view());
    if (!joined.empty() && joined.back() != '/') joined += '/';
    joined += name.view();
    out.setFromUtf8(joined.c_str());
}

void _ovFilePath::GetFinalFilenamePart(const XString& path, XString& out) {
    std::string_view p = path.view();
    size_t slash = p.rfind('/');
    // Copied first: out may be path itself.
    std::string name(slash == std::string_view::npos ? p : p.substr(slash + 1));
    out.clear();
    out.setFromUtf8(name.c_str());
}

void _ovFilePath::RemoveFilenamePart(XString& path) {
    std::string_view p = path.view();
    size_t slash = p.rfind('/');
    if (slash == std::string_view::npos) {
        path.clear();
        return;
    }
    // The separators before the name go with it ("a//b" is in "a"); the root keeps one.
    size_t end = slash;
    while (end > 0 && p[end - 1] == '/') --end;
    std::string dir(p.substr(0, end == 0 ? 1 : end));
    path.setFromUtf8(dir.c_str());
}
