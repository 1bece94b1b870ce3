// The sentence shown in FileOpenErrorMsg for an open-error code.
#pragma once

// The message for `code` (0 success, 1 to 16 the reasons a POSIX open fails); every other
// value, negative ones included, gives "Unknown file open error.". Never null.
const char* openErrorText(int code);
