// Replacing every occurrence of a byte string in a stream, piece by piece.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

// Replaces left to right and without overlaps, exactly as DataBuffer::replaceAllOccurances does
// on a whole buffer, however the input is cut into pieces: the output, and the count, are the
// same. Holds back at most the search string's length less one byte between pieces, so its
// memory does not depend on the input's size.
class StreamReplacer {
  public:
    // Receives finished output; false stops the replacement.
    using Emit = std::function<bool(const unsigned char* bytes, size_t n)>;

    // The search string must not be empty. Both strings are copied.
    StreamReplacer(const unsigned char* find, size_t findLength, const unsigned char* repl,
                   size_t replLength);

    // Takes the next piece. `last` marks the end of the input (the piece may be empty then).
    // False when emit refused output.
    bool feed(const unsigned char* piece, size_t n, bool last, const Emit& emit);
    // Occurrences replaced so far.
    uint64_t count() const { return m_count; }

  private:
    // Replaces within data[0, n), emitting all but the bytes that could still begin an
    // occurrence (none when `last`); returns how many bytes it emitted or replaced.
    bool scan(const unsigned char* data, size_t n, bool last, const Emit& emit, size_t& used);

    std::string m_find, m_repl;
    std::string m_held;   // the end of the input so far that could begin an occurrence
    std::string m_joint;  // scratch: the held bytes and the head of the next piece
    uint64_t m_count = 0;
};
