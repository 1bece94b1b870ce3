// Several threads sharing one object: every call holds the object's lock, so each call's log
// is its own and whole, and the lock-free accessors never see a torn value.
#include <atomic>
#include <mutex>
#include <thread>

#include "fileaccess/LogProbe.h"

namespace {

class ConcurrencyTest : public FileAccessTest {};

// Workers take turns for whole sequences (a test-side mutex), so each can check the exact
// result and log of its own calls, while observers read and set the object without turns.
TEST_F(ConcurrencyTest, SequencesCheckTheirOwnLogsWhileOthersObserve) {
    std::mutex turn;
    std::atomic<bool> done{false};
    std::atomic<int> failures{0};
    auto fail = [&](const std::string& what) { return ++failures, ADD_FAILURE() << what, false; };
    // A call (or a check right after it) must succeed, and its log must be its own.
    auto step = [&](bool ok, const char* name) {
        const auto& entries = fa.lastErrorLog().entries();
        return (ok && !entries.empty() && entries.front().name == name) ||
               fail(name + (":\n" + lastLog(fa)));
    };
    auto worker = [&](int id) {
        XString own(path("own" + std::to_string(id)).c_str()), missing(path("none").c_str());
        for (int round = 0; round < 40 && failures == 0; ++round) {
            const std::string text = std::to_string(id) + " in round " + std::to_string(round);
            DataBuffer data, back;
            data.append(text.data(), text.size());
            std::lock_guard<std::mutex> hold(turn);
            if (!step(fa.OpenForReadWrite(own), "OpenForReadWrite") ||
                !step(fa.FileWrite(data), "FileWrite") || !step(fa.FileSeek(0, 0), "FileSeek") ||
                !step(fa.FileRead(1000, back) && bytesOf(back) == text && fa.get_EndOfFile(),
                      "FileRead") ||
                !step((fa.FileClose(), !fa.get_EndOfFile()), "FileClose") ||
                !step(!fa.OpenForRead(missing) && fa.get_FileOpenError() == 2, "OpenForRead"))
                return;
        }
    };
    auto observer = [&] {
        // A log holds one call's account: only its context line starts at the left margin.
        auto twoAccounts = [](const std::string& log) {
            for (size_t i = log.find('\n'); i != std::string::npos && i + 1 < log.size();
                 i = log.find('\n', i + 1))
                if (log[i + 1] != ' ' && log[i + 1] != '\n') return true;
            return false;
        };
        for (bool lock = false; !done && failures == 0; lock = !lock) {
            const int code = fa.get_FileOpenError();
            XString msg;
            fa.get_FileOpenErrorMsg(msg);
            const std::string m = msg.getUtf8(), log = lastLog(fa);
            const bool known = m.empty() || m == "Success." || m == "File not found.";
            if ((code != 0 && code != 2) || !known || twoAccounts(log))
                return (void)fail(std::to_string(code) + " " + m + "\n" + log);
            (void)fa.get_EndOfFile();
            fa.put_LockFileOnOpen(lock);
        }
    };
    std::vector<std::thread> workers, observers;
    for (int i = 0; i < 4; ++i) workers.emplace_back(worker, i);
    for (int i = 0; i < 2; ++i) observers.emplace_back(observer);
    for (auto& t : workers) t.join();
    done = true;
    for (auto& t : observers) t.join();
    EXPECT_EQ(failures, 0);
}

}  // namespace
