#include "Output.h"

#include <cerrno>
#include <chrono>
#include <memory>
#include <new>
#include <thread>

#include "Cli.h"
#include "Interrupt.h"
#include "foundation/fs/DataSource.h"

namespace fatool {

namespace {

constexpr unsigned kBlock = 1u << 20;
// How often an open of a FIFO without a reader is tried again.
constexpr auto kReaderPoll = std::chrono::milliseconds(50);
// The open error code of ENXIO: a FIFO that no process has open for reading yet.
constexpr int kNoReader = 10;

// Opens a stream for writing, waiting for a reader as the shell's > does for a FIFO (a signal
// ends the wait); null with the reason in `log`.
std::unique_ptr<OrvaneHandle> openStream(const std::string& path, _ovLogger& log) {
    XString p(path.c_str());
    for (;;) {
        _ovLogger attempt;
        int code = 0;
        std::unique_ptr<OrvaneHandle> h(FileSys::openForWriteOnly(p, false, false, code, &attempt));
        if (h || code != kNoReader) {
            if (!h) log.LogError(errorLines(attempt).c_str());
            return h;
        }
        std::this_thread::sleep_for(kReaderPoll);
    }
}

// Hands the producer an emit that stops on a signal's request (errno EINTR).
bool produceStoppably(const FileSys::Producer& produce, const FileSys::Emit& emit) {
    return produce([&](const unsigned char* p, size_t n) {
        if (interrupt::stopRequested()) return errno = EINTR, false;
        return emit(p, n);
    });
}

}  // namespace

OutputKind outputKind(const std::string& path) {
    if (path == "-") return OutputKind::StandardOutput;
    XString p(path.c_str());
    _ovLogger log;
    return FileSys::filePathType(p, false, log) == PathType::Other ? OutputKind::Stream
                                                                   : OutputKind::File;
}

bool writeOutput(Context& ctx, const std::string& path, const FileSys::Producer& produce,
                 _ovLogger& log) {
    switch (outputKind(path)) {
        case OutputKind::StandardOutput:
            return produce([&](const unsigned char* p, size_t n) {
                ctx.out.write(reinterpret_cast<const char*>(p), static_cast<std::streamsize>(n));
                return ctx.out.good();
            });
        case OutputKind::Stream: {
            std::unique_ptr<OrvaneHandle> h = openStream(path, log);
            return h && produce([&](const unsigned char* p, size_t n) {
                       return FileSys::writeToOpenFile(*h, reinterpret_cast<const char*>(p),
                                                       static_cast<unsigned>(n), &log);
                   });
        }
        case OutputKind::File:
            break;
    }
    // Stopped by a signal, the writing fails and the fs layer removes its temporary file.
    interrupt::Stoppable stoppable;
    return FileSys::writeFileStreamUtf8(
        path.c_str(), [&](const FileSys::Emit& emit) { return produceStoppably(produce, emit); },
        &log);
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
