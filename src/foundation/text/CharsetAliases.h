// Matching of the charset names iconv knows and the tables do not (internal).
#pragma once

// For tests: turns the matching of such names with the tables' converters off (each name then
// keeps its own converter and has no code page) or on again; either way every name resolved
// so far is forgotten.
void setCharsetAliasMatching(bool on);
