// The log and the three method frames, on a small object of the test's own.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "foundation/base/MethodFrame.h"

namespace {

// An object with one method per frame form, each logging a value and a result line.
class Probe : public ClsBase {
public:
    bool standard(bool ok) {
        StandardFrame f(*this, "Standard");
        if (f.verbose()) f.log().LogData("detail", "shown");
        f.log().LogDataLong("n", 7);
        return f.result(ok);
    }
    bool object(bool ok) {
        ObjectFrame f(*this, "Object");
        return f.result(ok);
    }
    bool older(bool ok) {
        OlderFrame f(*this, "Older");
        if (!ok) f.log().LogError("Older failed here.");
        return f.result(ok);
    }
    // A method that logs its thread's tag many times, for the lock test.
    void tagged(const std::string& tag) {
        StandardFrame f(*this, "Tagged");
        for (int i = 0; i < 50; ++i) f.log().LogData("tag", tag.c_str());
    }
};

std::vector<LogEntry> entries(Probe& p) { return p.lastErrorLog().entries(); }

}  // namespace

TEST(Log, TextLayoutIndentsByDepth) {
    _ovLogger log;
    log.EnterContext("Outer");
    log.LogData("path", "/a/b");
    log.EnterContext("Inner");
    log.LogError("Something went wrong.");
    log.LeaveContext();
    log.LogInfo("Back outside.");
    log.LeaveContext();
    EXPECT_EQ(log.text(),
              "Outer:\n  path: /a/b\n  Inner:\n    Something went wrong.\n  Back outside.\n");
    EXPECT_TRUE(log.hasErrors());
    EXPECT_FALSE(log.LeaveContext()) << "no context is left open";
    log.ClearLog();
    EXPECT_EQ(log.text(), "");
    EXPECT_FALSE(log.hasErrors());
}

TEST(Log, NamedValuesOfEveryType) {
    _ovLogger log;
    XString x("text");
    log.LogDataX("x", x);
    log.LogDataLong("l", -5);
    log.LogDataInt64("i", 5000000000LL);
    log.LogDataBool("b", false);
    EXPECT_EQ(log.text(), "x: text\nl: -5\ni: 5000000000\nb: false\n");
}

TEST(Frame, StandardFrameLeavesOnlyThisCallWithVersionFirst) {
    Probe p;
    p.object(true);
    p.standard(false);
    const auto e = entries(p);
    ASSERT_GE(e.size(), 4u);
    EXPECT_EQ(e[0].kind, LogKind::Context);
    EXPECT_EQ(e[0].name, "Standard");
    EXPECT_EQ(e[1].name, "Version");
    EXPECT_EQ(e[1].depth, 1);
    EXPECT_EQ(e.back().kind, LogKind::Error) << "failure line last";
    for (const auto& entry : e) EXPECT_NE(entry.name, "Object") << "earlier call's log remains";
    EXPECT_EQ(p.lastErrorLog().depth(), 0) << "context left at return";
}

TEST(Frame, VerboseGatesValues) {
    Probe p;
    p.standard(true);
    EXPECT_FALSE(p.lastErrorLog().contains("shown"));
    p.put_VerboseLogging(true);
    EXPECT_TRUE(p.get_VerboseLogging());
    p.standard(true);
    EXPECT_TRUE(p.lastErrorLog().contains("shown"));
}

TEST(Frame, ObjectAndOlderFormsStartAFreshLogAndLeaveTheirContext) {
    struct Case {
        const char* name;
        bool (Probe::*method)(bool);
    };
    for (const Case& c : {Case{"Object", &Probe::object}, Case{"Older", &Probe::older}}) {
        SCOPED_TRACE(c.name);
        Probe p;
        p.standard(true);
        (p.*c.method)(false);
        const auto e = entries(p);
        ASSERT_GE(e.size(), 3u);
        EXPECT_EQ(e[0].name, c.name);
        EXPECT_EQ(e[1].name, "Version");
        EXPECT_EQ(e.back().kind, LogKind::Error);
        EXPECT_EQ(e.back().depth, 1) << "the failure line stands inside the context";
        EXPECT_EQ(p.lastErrorLog().depth(), 0);
    }
}

TEST(FrameConcurrency, LockKeepsEachCallsLogItsOwn) {
    Probe p;
    std::vector<std::thread> threads;
    std::vector<int> mixed(4, 0);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&p, &mixed, t] {
            const std::string tag = "thread" + std::to_string(t);
            for (int i = 0; i < 200; ++i) {
                p.tagged(tag);
                // The log may already hold a later call, but never a mixture of two.
                XString text;
                p.get_LastErrorText(text);
                std::string s = text.getUtf8();
                for (int other = 0; other < 4; ++other) {
                    const std::string needle = "tag: thread" + std::to_string(other) + "\n";
                    size_t count = 0;
                    for (size_t pos = s.find(needle); pos != std::string::npos;
                         pos = s.find(needle, pos + 1))
                        ++count;
                    if (count != 0 && count != 50) ++mixed[t];
                }
            }
        });
    }
    for (auto& th : threads) th.join();
    for (int t = 0; t < 4; ++t) EXPECT_EQ(mixed[t], 0) << "thread " << t;
}
