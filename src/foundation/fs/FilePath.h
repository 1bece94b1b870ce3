// Path names taken apart and put together. '/' is the only separator.
#pragma once

#include "foundation/text/XString.h"

class _ovFilePath {
public:
    // out = dir + "/" + name, with no '/' added when dir is empty or already ends in '/'.
    static void CombineDirAndFilename(const XString& dir, const XString& name, XString& out);
    // out (emptied first) = what follows the last '/' (the whole path without one; empty
    // when the path ends in '/').
    static void GetFinalFilenamePart(const XString& path, XString& out);
    // Cuts path back to what precedes its last '/', without a trailing separator except for
    // the root itself ("/a/b/c.txt" -> "/a/b", "/c.txt" -> "/", "c.txt" -> "").
    static void RemoveFilenamePart(XString& path);
};
