// Progress reports of long jobs on standard error.
//
// The library's whole-file calls (split, join, compare) run to their end in one call, so
// their progress is sampled from the outside: a background thread asks a callback (which looks
// at the files being written) every few hundred milliseconds and rewrites one status line.
// Loops in the program itself (the record scan) call update() instead. Nothing is printed
// unless the context asks for progress (main() does when stderr is a terminal), nothing before
// the job has run for the context's delay (half a second), and the line is wiped when the job
// ends, so that a quick job shows nothing and a long one leaves nothing behind.
//
// A job that prints on standard output while it runs (records, joined bytes) shares the
// terminal with the progress line when standard output is one too: it then shows progress
// only on --progress, and wipes the line before each thing it prints.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "Cli.h"

namespace fatool {

// "512 B", "3.5 KiB", "1.0 GiB".
std::string humanBytes(int64_t n);
// "done of total (pct%)", or just done when the total is unknown (0 or less).
std::string fraction(int64_t done, int64_t total);

class Progress {
  public:
    // `printsWhileRunning`: the job writes to the context's `out` before it ends.
    Progress(Context& ctx, std::string label, bool printsWhileRunning = false);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    bool active() const { return m_active; }
    // Calls `sample` on a background thread until finish() and prints what it returns.
    void startPolling(std::function<std::string()> sample);
    // Prints `text` unless a line was printed very recently or the job is young.
    void update(const std::string& text);
    // Called before the job prints on standard output: wipes the status line where it shares
    // the terminal (the next update() draws it again, at the usual pace).
    void beforeOutput() {
        if (m_sharesTerminal) wipe();
    }
    // Stops polling and wipes the status line; called by the destructor too.
    void finish();

  private:
    void print(const std::string& text);
    void wipe();
    void pollLoop();

    Context& m_ctx;
    std::string m_label;
    bool m_active;
    bool m_sharesTerminal;
    bool m_printed = false;  // a line was drawn at least once
    bool m_shown = false;    // a line is on the terminal now
    size_t m_lastWidth = 0;
    std::chrono::steady_clock::time_point m_start;
    std::chrono::steady_clock::time_point m_lastPrint;
    std::function<std::string()> m_sample;
    std::thread m_thread;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_stop = false;
};

}  // namespace fatool
