#include "Output.h"

#include <cerrno>
#include <memory>
#include <new>

#include "Cli.h"
#include "Interrupt.h"
#include "foundation/fs/DataSource.h"

namespace fatool {

namespace {
constexpr unsigned kBlock = 1u << 20;
}

bool emitFileBytes(const std::string& path, const FileSys::Emit& emit, std::string& why) {
    std::unique_ptr<char[]> block(new (std::nothrow) char[kBlock]);
    if (!block) return errno = ENOMEM, false;
    _ovFileDataSource src;
    _ovLogger log;
    XString p(path.c_str());
    if (!src.openDataSourceFile(p, log)) return why = errorLines(log), errno = EIO, false;
    for (unsigned got = kBlock; got == kBlock;) {
        if (interrupt::stopRequested()) return errno = EINTR, false;
        if (!src.readSourcePM(block.get(), kBlock, got, nullptr, log))
            return why = errorLines(log), errno = EIO, false;
        if (!emit(reinterpret_cast<const unsigned char*>(block.get()), got)) return false;
    }
    return true;
}

}  // namespace fatool
