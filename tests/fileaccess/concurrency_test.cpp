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

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// Empty when `text` is the account of exactly one call to one of `methods`; otherwise what
// is wrong with it. An empty log (before the first call) also passes.
std::string wholeAccountProblem(const std::string& text, const std::set<std::string>& methods) {
    const std::vector<std::string> lines = linesOf(text);
    if (lines.empty()) return "";
    const std::string& head = lines.front();
    if (head.empty() || head.back() != ':' || !methods.count(head.substr(0, head.size() - 1)))
        return "first line is not a method context: " + head;
    if (lines.size() < 2 || lines[1].rfind("  Version: ", 0) != 0)
        return "no version line after the context";
    for (size_t i = 1; i < lines.size(); ++i)
        if (lines[i].rfind("  ", 0) != 0) return "a second call's context: " + lines[i];
    return "";
}

class ConcurrencyTest : public TempDirTest {
protected:
    // What one worker writes in one round: distinct per worker and round.
    static std::string payload(int worker, int round) {
        return "worker " + std::to_string(worker) + " round " + std::to_string(round) + "\n";
    }

    ClsFileAccess fa;
    std::atomic<bool> done{false};
};

// Workers take turns for whole sequences (a test-side mutex), so each can check the exact
// result and log of its own calls, while observers read the object without taking turns.
TEST_F(ConcurrencyTest, SequencesCheckTheirOwnLogsWhileOthersObserve) {
    const std::set<std::string> methods = {"OpenForReadWrite", "FileWrite", "FileSeek",
                                           "FileRead", "FileClose", "OpenForRead"};
    std::mutex turn;
    std::atomic<int> failures{0};
    auto fail = [&](const std::string& what) {
        ++failures;
        ADD_FAILURE() << what;
    };
    auto frontName = [&] {
        const auto& entries = fa.lastErrorLog().entries();
        return entries.empty() ? std::string() : entries.front().name;
    };

    auto worker = [&](int id) {
        XString own(path("own" + std::to_string(id)).c_str());
        XString missing(path("missing" + std::to_string(id)).c_str());
        for (int round = 0; round < kRounds && failures == 0; ++round) {
            const std::string text = payload(id, round);
            DataBuffer data, back;
            data.append(text.data(), static_cast<unsigned>(text.size()));
            std::lock_guard<std::mutex> hold(turn);
            if (!fa.OpenForReadWrite(own) || frontName() != "OpenForReadWrite" ||
                !fa.lastErrorLog().contains("Success."))
                return fail("open of own file: " + lastLog(fa));
            if (!fa.FileWrite(data) || frontName() != "FileWrite" || fa.lastErrorLog().hasErrors())
                return fail("write: " + lastLog(fa));
            if (!fa.FileSeek(-static_cast<int>(text.size()), 1) || frontName() != "FileSeek")
                return fail("seek: " + lastLog(fa));
            if (!fa.FileRead(1000, back) || bytesOf(back) != text || !fa.get_EndOfFile())
                return fail("read back: " + bytesOf(back) + "\n" + lastLog(fa));
            fa.FileClose();
            if (frontName() != "FileClose" || fa.get_EndOfFile())
                return fail("close: " + lastLog(fa));
            if (fa.OpenForRead(missing) || fa.get_FileOpenError() != 2 ||
                !fa.lastErrorLog().contains("Failed."))
                return fail("open of missing file: " + lastLog(fa));
        }
    };

    auto observer = [&] {
        const std::set<std::string> messages = {"", "Success.", "File not found."};
        bool lock = false;
        while (!done && failures == 0) {
            const int code = fa.get_FileOpenError();
            if (code != 0 && code != 2) return fail("open error code " + std::to_string(code));
            XString msg;
            fa.get_FileOpenErrorMsg(msg);
            if (!messages.count(msg.getUtf8())) return fail(std::string("message ") + msg.getUtf8());
            const std::string problem = wholeAccountProblem(lastLog(fa), methods);
            if (!problem.empty()) return fail(problem);
            (void)fa.get_EndOfFile();
            fa.put_LockFileOnOpen(lock = !lock);
            (void)fa.get_LockFileOnOpen();
        }
    };

    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) threads.emplace_back(observer);
    std::vector<std::thread> workers;
    for (int i = 0; i < kWorkers; ++i) workers.emplace_back(worker, i);
    for (auto& t : workers) t.join();
    done = true;
    for (auto& t : threads) t.join();
    EXPECT_EQ(failures, 0);
    for (int i = 0; i < kWorkers; ++i)
        EXPECT_EQ(readFile(path("own" + std::to_string(i))), payload(i, kRounds - 1));
}

// With no turns taken, calls interleave freely: results depend on who ran last, but every
// log a thread reads is still the account of exactly one call.
TEST_F(ConcurrencyTest, FreeRunningCallsKeepEveryLogWhole) {
    const std::set<std::string> methods = {"OpenForReadWrite", "OpenForAppend", "FileWrite",
                                           "FileRead", "FileClose", "Truncate"};
    std::atomic<int> broken{0};
    std::vector<std::thread> threads;
    for (int id = 0; id < kWorkers; ++id) {
        threads.emplace_back([&, id] {
            XString own(path("free" + std::to_string(id)).c_str());
            DataBuffer data, back;
            data.append("0123456789", 10);
            for (int round = 0; round < kRounds * 2; ++round) {
                if (round % 2) fa.OpenForAppend(own);
                else fa.OpenForReadWrite(own);
                if (!wholeAccountProblem(lastLog(fa), methods).empty()) ++broken;
                fa.FileWrite(data);
                fa.FileRead(4, back);
                if (!wholeAccountProblem(lastLog(fa), methods).empty()) ++broken;
                fa.Truncate();
                fa.FileClose();
            }
        });
    }
    for (auto& t : threads) t.join();
    EXPECT_EQ(broken, 0);

    // The object is still fully usable afterwards.
    XString p(path("after").c_str());
    DataBuffer data, back;
    data.append("xyz", 3);
    ASSERT_CALL_OK(fa, fa.OpenForReadWrite(p));
    ASSERT_CALL_OK(fa, fa.FileWrite(data));
    ASSERT_CALL_OK(fa, fa.FileSeek(0, 0));
    ASSERT_CALL_OK(fa, fa.FileRead(3, back));
    EXPECT_EQ(bytesOf(back), "xyz");
}

}  // namespace
