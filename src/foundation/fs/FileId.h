// Which file a path or descriptor reaches, whatever name it was reached by.
#pragma once

#include <sys/stat.h>

struct FileId {
    unsigned long long dev = 0;
    unsigned long long ino = 0;

    static FileId of(const struct stat& st) {
        return {static_cast<unsigned long long>(st.st_dev),
                static_cast<unsigned long long>(st.st_ino)};
    }
    bool operator==(const FileId&) const = default;
};
