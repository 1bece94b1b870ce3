// Copy throughput of the file-system layer against cp(1) on the same file in the same run.
//
//   fs_bench [sizeMiB=1024] [rounds=3] [dir=$TMPDIR or /tmp]
//
// Makes a file of the given size, reads it once so that the page cache is warm, then in each
// round copies it with cp, with FileSys::copyFileX and with a _ovFileDataSource streamed into
// an OutputFile through copyToOutputPM. Prints the best and median time of each and the
// ratio to cp (target: 1.1 or less). Each copy starts after a sync(), untimed.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "foundation/fs/DataSource.h"
#include "foundation/fs/FileSys.h"

namespace {

double seconds(const std::function<bool()>& run) {
    // Start every copy with no dirty pages from the one before, so that none of them pays
    // for another's write-back.
    sync();
    auto start = std::chrono::steady_clock::now();
    if (!run()) {
        std::fprintf(stderr, "a copy failed\n");
        std::exit(1);
    }
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

bool makeSource(const std::string& path, long long size) {
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    std::vector<unsigned char> block(1 << 20);
    for (size_t i = 0; i < block.size(); ++i) block[i] = static_cast<unsigned char>(i * 2654435761u >> 13);
    for (long long done = 0; done < size;) {
        size_t n = static_cast<size_t>(std::min<long long>(size - done, block.size()));
        block[0] = static_cast<unsigned char>(done >> 20);  // blocks differ
        if (std::fwrite(block.data(), 1, n, f) != n) return false;
        done += static_cast<long long>(n);
    }
    return std::fclose(f) == 0;
}

struct Result {
    const char* name;
    std::vector<double> times;
    double best() const { return *std::min_element(times.begin(), times.end()); }
    double median() const {
        std::vector<double> t = times;
        std::sort(t.begin(), t.end());
        return t[t.size() / 2];
    }
};

}  // namespace

int main(int argc, char** argv) {
    long long mib = argc > 1 ? std::atoll(argv[1]) : 1024;
    int rounds = argc > 2 ? std::atoi(argv[2]) : 3;
    const char* tmp = std::getenv("TMPDIR");
    std::string dir = argc > 3 ? argv[3] : (tmp && *tmp ? tmp : "/tmp");
    dir += "/fs_bench." + std::to_string(getpid());
    if (mkdir(dir.c_str(), 0700) != 0) return 1;
    const std::string src = dir + "/src", dst = dir + "/dst";
    const long long size = mib << 20;
    if (!makeSource(src, size)) return 1;
    // Warm the page cache with the whole source.
    std::system(("cat '" + src + "' > /dev/null").c_str());

    _ovLogger log;
    Result cp{"cp", {}}, copyFile{"FileSys::copyFileX", {}}, stream{"copyToOutputPM", {}};
    for (int r = 0; r < rounds; ++r) {
        unlink(dst.c_str());
        cp.times.push_back(seconds([&] {
            return std::system(("cp '" + src + "' '" + dst + "'").c_str()) == 0;
        }));
        unlink(dst.c_str());
        copyFile.times.push_back(seconds([&] {
            return FileSys::copyFileX(XString(src.c_str()), XString(dst.c_str()), false, &log);
        }));
        unlink(dst.c_str());
        stream.times.push_back(seconds([&] {
            _ovFileDataSource source;
            if (!source.openDataSourceFile(XString(src.c_str()), log)) return false;
            _ovOutput* out = OutputFile::createFileUtf8(dst.c_str(), log);
            if (!out) return false;
            long long count = 0;
            bool ok = source.copyToOutputPM(*out, count, nullptr, log);
            out->dispose();
            return ok && count == size;
        }));
    }
    unlink(dst.c_str());
    unlink(src.c_str());
    rmdir(dir.c_str());

    std::printf("copy of %lld MiB, %d rounds (page cache warm)\n", mib, rounds);
    for (const Result* res : {&cp, &copyFile, &stream}) {
        std::printf("%-20s best %7.3f s (%6.0f MiB/s)  median %7.3f s  ratio to cp %.2f\n",
                    res->name, res->best(), static_cast<double>(mib) / res->best(),
                    res->median(), res->median() / cp.median());
    }
    return 0;
}
