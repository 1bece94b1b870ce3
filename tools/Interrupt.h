// Stopping on a signal. SIGINT, SIGTERM and SIGHUP stop the job, remove what it made for
// itself (copies of standard input, temporary outputs, the parts of an unfinished split) and
// end the process by the same signal, so that whoever started it sees how it ended. SIGPIPE
// is ignored: a closed pipe is then a write error like any other, reported and cleaned up as
// one (exit status 1).
//
// Nothing runs in a signal handler. The signals are blocked in every thread and taken by a
// watcher thread. When one arrives:
//   - a job inside a Stoppable section (one writing a file through the library's
//     whole-or-nothing writer, which removes its temporary file when the writing fails)
//     notices stopRequested() within one block and fails; run() ends the process once the
//     job has returned. A second signal, or a job that has not returned within two seconds,
//     cuts this short;
//   - any other job is cut short at once: the watcher runs the registered cleanups and ends
//     the process itself.
#pragma once

#include <functional>

namespace fatool::interrupt {

// Called once by main() before any other thread starts. Signals that were ignored when the
// program started (nohup, a background job) stay ignored.
void install();

// The signal that asked the program to stop, or 0.
int stopRequested();

// Ends the process by the signal that asked it to stop, after the registered cleanups; returns
// at once when none did.
void stopIfRequested();

// A cleanup run if the process is stopped by a signal while the object lives (on the watcher
// thread, at any moment of the job: it must only use what it captured by value or what is
// safe to read from another thread).
class OnStop {
  public:
    explicit OnStop(std::function<void()> cleanup);
    ~OnStop();
    OnStop(const OnStop&) = delete;
    OnStop& operator=(const OnStop&) = delete;

  private:
    int m_id;
};

// Marks a job that stops by itself once stopRequested() is set, so that the watcher leaves it
// the time to wind down.
class Stoppable {
  public:
    Stoppable();
    ~Stoppable();
    Stoppable(const Stoppable&) = delete;
    Stoppable& operator=(const Stoppable&) = delete;
};

}  // namespace fatool::interrupt
