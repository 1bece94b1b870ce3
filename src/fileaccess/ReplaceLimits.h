// The most occurrences one ReplaceStrings call replaces (internal).
#pragma once

namespace replacelimits {

// As many as the method's int result can report.
long long countLimit();
// For tests: lowers the limit, so that a small file passes it; 0 restores it.
void setCountLimitForTest(long long count);

}  // namespace replacelimits
