// The log and the three method frames, on a small object of the test's own.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "foundation/base/MethodFrame.h"

namespace {

// An object with one method per frame form; each logs a value and its outcome line.
class Probe : public ClsBase {
public:
    bool standard(bool ok) {
        StandardFrame f(*this, "Standard");
        if (f.verbose()) f.log().LogData("detail", "shown");
        return f.result(ok);
    }
    bool object(bool ok) {
        ObjectFrame f(*this, "Object");
        return f.result(ok);
    }
    bool older(bool ok) {
        OlderFrame f(*this, "Older");
        return f.result(ok);
    }
    void tagged(const std::string& tag) {
        StandardFrame f(*this, "Tagged");
        for (int i = 0; i < 50; ++i) f.log().LogData("tag", tag.c_str());
    }
};

}  // namespace

TEST(Log, TextLayoutIndentsByDepth) {
    _ovLogger log;
    log.EnterContext("Outer");
    log.LogDataInt64("size", 5000000000LL);
    log.EnterContext("Inner");
    log.LogError("Something went wrong.");
    log.LeaveContext();
    log.LogInfo("Back outside.");
    log.LeaveContext();
    EXPECT_EQ(log.text(),
              "Outer:\n  size: 5000000000\n  Inner:\n    Something went wrong.\n  Back outside.\n");
    EXPECT_FALSE(log.LeaveContext()) << "no context is left open";
}

// Whatever the form, a call leaves only its own account: its context, the version line, its
// values and its outcome line inside the context, and no context left open.
TEST(Frame, EveryFormLeavesOnlyThisCallsAccount) {
    struct Case {
        const char* name;
        bool (Probe::*method)(bool);
    };
    for (const Case& c : {Case{"Standard", &Probe::standard}, Case{"Object", &Probe::object},
                          Case{"Older", &Probe::older}}) {
        SCOPED_TRACE(c.name);
        Probe p;
        p.tagged("earlier");
        (p.*c.method)(false);
        const auto& e = p.lastErrorLog().entries();
        ASSERT_EQ(e.size(), 3u) << p.lastErrorLog().text();
        EXPECT_EQ(e[0].name, c.name);
        EXPECT_EQ(e[1].name, "Version");
        EXPECT_EQ(e[2].kind, LogKind::Error);
        EXPECT_EQ(e[2].depth, 1) << "the failure line stands inside the context";
        EXPECT_EQ(p.lastErrorLog().depth(), 0);
        (p.*c.method)(true);
        EXPECT_EQ(p.lastErrorLog().entries().back().kind, LogKind::Info);
    }
}

TEST(Frame, VerboseGatesValues) {
    Probe p;
    p.standard(true);
    EXPECT_FALSE(p.lastErrorLog().contains("shown"));
    p.put_VerboseLogging(true);
    p.standard(true);
    EXPECT_TRUE(p.lastErrorLog().contains("shown"));
}

// Threads calling framed methods on one object never see two calls' lines mixed in one log.
TEST(FrameConcurrency, LockKeepsEachCallsLogItsOwn) {
    Probe p;
    std::vector<std::thread> threads;
    std::vector<int> mixed(4, 0);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&p, &mixed, t] {
            const std::string tag = "thread" + std::to_string(t);
            for (int i = 0; i < 200; ++i) {
                p.tagged(tag);
                XString text;
                p.get_LastErrorText(text);
                const std::string s = text.getUtf8();
                size_t lines = 0;
                for (size_t pos = s.find("tag: "); pos != std::string::npos;
                     pos = s.find("tag: ", pos + 1))
                    ++lines;
                const size_t first = s.find("tag: ");
                const std::string own = s.substr(first, s.find('\n', first) - first + 1);
                size_t same = 0;
                for (size_t pos = s.find(own); pos != std::string::npos; pos = s.find(own, pos + 1))
                    ++same;
                if (lines != 50 || same != 50) ++mixed[t];
            }
        });
    }
    for (auto& th : threads) th.join();
    for (int t = 0; t < 4; ++t) EXPECT_EQ(mixed[t], 0) << "thread " << t;
}
