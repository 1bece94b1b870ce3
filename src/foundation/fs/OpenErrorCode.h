// The codes an open failure is reported with.
#pragma once

// 0 success, 1 EACCES/EPERM, 2 ENOENT, 3 anything not listed, 4 EEXIST, 5 EISDIR, 6 ELOOP,
// 7 EMFILE, 8 ENAMETOOLONG, 9 ENFILE, 10 ENODEV/ENXIO, 11 ENOMEM, 12 ENOSPC, 13 ENOTDIR,
// 14 EOVERFLOW/EFBIG, 15 EROFS, 16 ETXTBSY. A file locked by another holder gives 1.
int openErrorCodeFromErrno(int err);
