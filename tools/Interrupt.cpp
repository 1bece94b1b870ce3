#include "Interrupt.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <map>
#include <mutex>
#include <thread>

namespace fatool::interrupt {

namespace {

constexpr int kStopSignals[] = {SIGINT, SIGTERM, SIGHUP};
// How long a stoppable job has to wind down before it is cut short.
constexpr auto kGrace = std::chrono::seconds(2);
constexpr auto kLookAgain = std::chrono::milliseconds(50);

// Never destroyed: the watcher may still use it while the process exits.
struct State {
    std::atomic<int> requested{0};
    std::mutex mutex;  // guards the members below
    std::map<int, std::function<void()>> cleanups;
    int nextId = 0;
    int stoppable = 0;  // Stoppable sections alive
    sigset_t handled;   // the stop signals the watcher takes
};

State& state() {
    static State* s = new State;
    return *s;
}

// Runs the cleanups and ends the process by `sig`, from whichever thread calls it. Called with
// the mutex held, which it never gives back: no cleanup or section starts meanwhile.
[[noreturn]] void dieLocked(int sig) {
    for (auto& entry : state().cleanups) entry.second();
    struct sigaction dfl = {};
    dfl.sa_handler = SIG_DFL;
    sigemptyset(&dfl.sa_mask);
    sigaction(sig, &dfl, nullptr);
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, sig);
    pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
    raise(sig);
    _exit(128 + sig);  // not reached: the default action of every stop signal ends the process
}

bool anotherSignalPending() {
    sigset_t pending;
    if (sigpending(&pending) != 0) return false;
    for (int sig : kStopSignals)
        if (sigismember(&state().handled, sig) && sigismember(&pending, sig)) return true;
    return false;
}

void watch() {
    State& s = state();
    int sig = 0;
    while (sigwait(&s.handled, &sig) != 0) {
    }
    {
        std::unique_lock<std::mutex> lock(s.mutex);
        s.requested = sig;
        if (s.stoppable == 0) dieLocked(sig);
    }
    // The job winds down and run() ends the process; a second signal, or a job that has not
    // returned in time, is cut short here.
    const auto until = std::chrono::steady_clock::now() + kGrace;
    while (std::chrono::steady_clock::now() < until && !anotherSignalPending())
        std::this_thread::sleep_for(kLookAgain);
    std::unique_lock<std::mutex> lock(s.mutex);
    dieLocked(sig);
}

}  // namespace

void install() {
    State& s = state();
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;
    sigemptyset(&ignore.sa_mask);
    sigaction(SIGPIPE, &ignore, nullptr);
    sigemptyset(&s.handled);
    bool any = false;
    for (int sig : kStopSignals) {
        struct sigaction old = {};
        if (sigaction(sig, nullptr, &old) == 0 && old.sa_handler == SIG_IGN) continue;
        sigaddset(&s.handled, sig);
        any = true;
    }
    if (!any) return;
    pthread_sigmask(SIG_BLOCK, &s.handled, nullptr);
    std::thread(watch).detach();
}

int stopRequested() {
    return state().requested.load();
}

void stopIfRequested() {
    State& s = state();
    if (s.requested.load() == 0) return;
    std::unique_lock<std::mutex> lock(s.mutex);
    dieLocked(s.requested.load());
}

OnStop::OnStop(std::function<void()> cleanup) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    m_id = s.nextId++;
    s.cleanups.emplace(m_id, std::move(cleanup));
}

OnStop::~OnStop() {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.cleanups.erase(m_id);
}

Stoppable::Stoppable() {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    ++s.stoppable;
}

Stoppable::~Stoppable() {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    --s.stoppable;
}

}  // namespace fatool::interrupt
