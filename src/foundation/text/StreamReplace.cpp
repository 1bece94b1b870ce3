#include "foundation/text/StreamReplace.h"

#include "foundation/text/DataBuffer.h"

namespace {

const unsigned char* bytesOf(const std::string& s) {
    return reinterpret_cast<const unsigned char*>(s.data());
}

}  // namespace

StreamReplacer::StreamReplacer(const unsigned char* find, size_t findLength,
                               const unsigned char* repl, size_t replLength)
    : m_find(reinterpret_cast<const char*>(find), findLength),
      m_repl(reinterpret_cast<const char*>(repl), replLength) {}

bool StreamReplacer::scan(const unsigned char* data, size_t n, bool last, const Emit& emit,
                          size_t& used) {
    const size_t len = m_find.size();
    size_t pos = 0;
    while (n - pos >= len) {
        const unsigned char* hit =
            DataBuffer::findBytes2(data + pos, static_cast<unsigned>(n - pos), bytesOf(m_find),
                                   static_cast<unsigned>(len));
        if (!hit) break;
        const size_t at = static_cast<size_t>(hit - data);
        if (!emit(data + pos, at - pos) || !emit(bytesOf(m_repl), m_repl.size())) return false;
        ++m_count;
        pos = at + len;
    }
    // An occurrence not found here that starts at `pos` or later must run past the end.
    const size_t keep = last ? 0 : std::min(n - pos, len - 1);
    if (!emit(data + pos, n - pos - keep)) return false;
    used = n - keep;
    return true;
}

bool StreamReplacer::feed(const unsigned char* piece, size_t n, bool last, const Emit& emit) {
    const size_t len = m_find.size();
    size_t from = 0;
    if (!m_held.empty()) {
        if (n < len - 1 || last) {
            // A short piece, or the end: everything still open fits in a small buffer.
            m_held.append(reinterpret_cast<const char*>(piece), n);
            size_t used = 0;
            if (!scan(bytesOf(m_held), m_held.size(), last, emit, used)) return false;
            m_held.erase(0, used);
            return true;
        }
        // An occurrence that starts in the held bytes ends within the next len - 1 bytes, so
        // the held bytes and the piece's head settle it; at most one can start there.
        m_joint.assign(m_held).append(reinterpret_cast<const char*>(piece), len - 1);
        const unsigned char* hit =
            DataBuffer::findBytes2(bytesOf(m_joint), static_cast<unsigned>(m_joint.size()),
                                   bytesOf(m_find), static_cast<unsigned>(len));
        const size_t at = hit ? static_cast<size_t>(hit - bytesOf(m_joint)) : m_held.size();
        if (at < m_held.size()) {
            if (!emit(bytesOf(m_held), at) || !emit(bytesOf(m_repl), m_repl.size())) return false;
            ++m_count;
            from = at + len - m_held.size();
        } else if (!emit(bytesOf(m_held), m_held.size())) {
            return false;
        }
        m_held.clear();
    }
    size_t used = 0;
    if (!scan(piece + from, n - from, last, emit, used)) return false;
    m_held.assign(reinterpret_cast<const char*>(piece + from + used), n - from - used);
    return true;
}
