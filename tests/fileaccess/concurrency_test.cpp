// Several threads sharing one object: every call holds the object's lock, so each call's log
// is its own and whole, and the lock-free accessors never see a torn value.
#include <atomic>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "fileaccess/ClsFileAccess.h"
#include "support/TestSupport.h"

namespace {

constexpr int kWorkers = 4;
constexpr int kRounds = 40;

// True when `text` is the account of at most one call: only its context line starts at the
// left margin, every line below it is indented.
bool isOneAccount(const std::string& text) {
    std::istringstream in(text);
    int heads = 0;
    for (std::string line; std::getline(in, line);) heads += line.rfind("  ", 0) != 0;
    return heads <= 1;
}

std::string payload(int worker, int round) {
    return "worker " + std::to_string(worker) + " round " + std::to_string(round) + "\n";
}

class ConcurrencyTest : public TempDirTest {};

// Workers take turns for whole sequences (a test-side mutex), so each can check the exact
// result and log of its own calls, while observers read and set the object without turns.
TEST_F(ConcurrencyTest, SequencesCheckTheirOwnLogsWhileOthersObserve) {
    ClsFileAccess fa;
    std::mutex turn;
    std::atomic<bool> done{false};
    std::atomic<int> failures{0};
    auto fail = [&](const std::string& what) { ++failures, ADD_FAILURE() << what; };
    // One call of the sequence: it must succeed (or fail, for `fails`) and its log must be
    // its own, an account of `name` alone.
    auto step = [&](bool ok, const char* name, bool fails = false) {
        const auto& entries = fa.lastErrorLog().entries();
        if (ok != fails && !entries.empty() && entries.front().name == name) return true;
        fail(std::string(name) + ":\n" + lastLog(fa));
        return false;
    };
    auto worker = [&](int id) {
        XString own(path("own" + std::to_string(id)).c_str());
        XString missing(path("missing" + std::to_string(id)).c_str());
        for (int round = 0; round < kRounds && failures == 0; ++round) {
            const std::string text = payload(id, round);
            DataBuffer data, back;
            data.append(text.data(), static_cast<unsigned>(text.size()));
            std::lock_guard<std::mutex> hold(turn);
            if (!step(fa.OpenForReadWrite(own), "OpenForReadWrite") ||
                !step(fa.FileWrite(data), "FileWrite") ||
                !step(fa.FileSeek(-static_cast<int>(text.size()), 1), "FileSeek") ||
                !step(fa.FileRead(1000, back), "FileRead"))
                return;
            if (bytesOf(back) != text || !fa.get_EndOfFile()) return fail("read " + bytesOf(back));
            fa.FileClose();
            if (!step(!fa.get_EndOfFile(), "FileClose") ||
                !step(fa.OpenForRead(missing), "OpenForRead", true) || fa.get_FileOpenError() != 2)
                return fail("state after close and failed open");
        }
    };
    auto observer = [&] {
        const std::set<std::string> messages = {"", "Success.", "File not found."};
        for (bool lock = false; !done && failures == 0; lock = !lock) {
            const int code = fa.get_FileOpenError();
            if (code != 0 && code != 2) return fail("open error code " + std::to_string(code));
            XString msg;
            fa.get_FileOpenErrorMsg(msg);
            if (!messages.count(msg.getUtf8()))
                return fail(std::string("message ") + msg.getUtf8());
            if (!isOneAccount(lastLog(fa))) return fail("torn log:\n" + lastLog(fa));
            (void)fa.get_EndOfFile();
            fa.put_LockFileOnOpen(lock);
        }
    };
    std::vector<std::thread> observers, workers;
    for (int i = 0; i < 2; ++i) observers.emplace_back(observer);
    for (int i = 0; i < kWorkers; ++i) workers.emplace_back(worker, i);
    for (auto& t : workers) t.join();
    done = true;
    for (auto& t : observers) t.join();
    EXPECT_EQ(failures, 0);
    for (int i = 0; i < kWorkers; ++i)
        EXPECT_EQ(readFile(path("own" + std::to_string(i))), payload(i, kRounds - 1));
}

}  // namespace
