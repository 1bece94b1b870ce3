#include "Progress.h"

#include <cstdio>

namespace fatool {

namespace {
constexpr auto kInterval = std::chrono::milliseconds(250);
}

std::string humanBytes(int64_t n) {
    static const char* const units[] = {"B", "KiB", "MiB", "GiB", "TiB"};
    if (n < 1024) return std::to_string(n) + " B";
    double v = static_cast<double>(n);
    int u = 0;
    while (v >= 1024.0 && u < 4) {
        v /= 1024.0;
        ++u;
    }
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.1f %s", v, units[u]);
    return buf;
}

std::string fraction(int64_t done, int64_t total) {
    if (total <= 0) return humanBytes(done);
    int pct = static_cast<int>(done >= total ? 100 : done * 100 / total);
    return humanBytes(done) + " of " + humanBytes(total) + " (" + std::to_string(pct) + "%)";
}

Progress::Progress(Context& ctx, std::string label, bool printsWhileRunning)
    : m_ctx(ctx),
      m_label(std::move(label)),
      m_active(ctx.progress && !(printsWhileRunning && ctx.outTerminal && !ctx.progressAsked)),
      m_sharesTerminal(m_active && printsWhileRunning && ctx.outTerminal),
      m_start(std::chrono::steady_clock::now()),
      m_lastPrint(m_start) {}

Progress::~Progress() {
    finish();
}

void Progress::startPolling(std::function<std::string()> sample) {
    if (!m_active || m_thread.joinable()) return;
    m_sample = std::move(sample);
    m_thread = std::thread([this] { pollLoop(); });
}

void Progress::pollLoop() {
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_wake.wait_for(lock, kInterval, [this] { return m_stop; })) {
        print(m_sample());
    }
}

void Progress::update(const std::string& text) {
    if (!m_active) return;
    auto now = std::chrono::steady_clock::now();
    if (m_printed && now - m_lastPrint < kInterval) return;
    print(text);
}

void Progress::print(const std::string& text) {
    using namespace std::chrono;
    double secs = duration<double>(steady_clock::now() - m_start).count();
    if (secs < m_ctx.progressDelay) return;
    char elapsed[32];
    std::snprintf(elapsed, sizeof elapsed, " [%.1fs]", secs);
    std::string line = m_label + ": " + text + elapsed;
    // Blanks wipe what is left of a longer previous line.
    size_t width = line.size();
    if (m_shown && width < m_lastWidth) line.append(m_lastWidth - width, ' ');
    // What the job printed reaches the terminal before the line is drawn behind it.
    if (m_sharesTerminal) m_ctx.out.flush();
    m_ctx.err << '\r' << line << std::flush;
    m_lastWidth = width;
    m_printed = m_shown = true;
    m_lastPrint = steady_clock::now();
}

void Progress::wipe() {
    if (!m_shown) return;
    m_ctx.err << '\r' << std::string(m_lastWidth, ' ') << '\r' << std::flush;
    m_shown = false;
    m_lastWidth = 0;
}

void Progress::finish() {
    if (m_thread.joinable()) {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_stop = true;
        }
        m_wake.notify_all();
        m_thread.join();
    }
    wipe();
}

}  // namespace fatool
