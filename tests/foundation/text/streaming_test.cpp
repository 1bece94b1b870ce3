// The stream replacer and the block encoder against their whole-buffer forms: the same output
// however the input is cut.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "foundation/text/DataBuffer.h"
#include "foundation/text/Encodings.h"
#include "foundation/text/StreamReplace.h"
#include "foundation/text/StringBuffer.h"
#include "support/TestSupport.h"

namespace {

const unsigned char* u(const std::string& s) {
    return reinterpret_cast<const unsigned char*>(s.data());
}

// Pieces of `in` whose sizes `cut` chooses, the last marked as such.
template <class Cut, class Take>
void inPieces(const std::string& in, Cut cut, Take take) {
    for (size_t at = 0;;) {
        const size_t n = std::min(in.size() - at, cut());
        const bool last = at + n == in.size();
        take(u(in) + at, n, last);
        if (last) return;
        at += n;
    }
}

TEST(StreamReplacer, CutAnywhereItReplacesAsTheWholeBuffer) {
    std::mt19937 rng(11);
    // Search strings from one byte to longer than most pieces, some overlapping themselves.
    const std::string finds[] = {
        "a", "aa", "aba", "abab", "ba", std::string(40, 'a') + "b", std::string(300, 'b')};
    for (int round = 0; round < 400; ++round) {
        const std::string& find = finds[rng() % 7];
        const std::string repl = std::string(rng() % 4 == 0 ? 0 : rng() % 9, 'X');
        std::string in(rng() % 3000, 'a');
        for (char& c : in) c = "aab"[rng() % 3];
        SCOPED_TRACE(std::to_string(round) + ": " + find.substr(0, 8) + " by '" + repl + "'");
        DataBuffer whole = bufferOf(in);
        const int want = whole.replaceAllOccurances(u(find), find.size(), u(repl), repl.size());
        StreamReplacer r(u(find), find.size(), u(repl), repl.size());
        std::string out;
        const size_t maxPiece = 1 + rng() % (rng() % 2 ? 8 : 600);
        inPieces(
            in, [&] { return rng() % (maxPiece + 1); },
            [&](const unsigned char* p, size_t n, bool last) {
                ASSERT_TRUE(r.feed(p, n, last, [&](const unsigned char* b, size_t k) {
                    out.append(reinterpret_cast<const char*>(b), k);
                    return true;
                }));
            });
        ASSERT_EQ(out, bytesOf(whole));
        ASSERT_EQ(r.count(), static_cast<uint64_t>(want));
    }
}

// Pieces of whole groups, quoted-printable's line breaks and trailing blanks falling on every
// piece edge.
TEST(BlockEncoder, PiecesOfWholeGroupsEncodeAsTheWhole) {
    std::mt19937 rng(5);
    for (const char* name : {"hex", "base64", "base64url", "base32", "url", "qp", "ascii"}) {
        for (int round = 0; round < 60; ++round) {
            SCOPED_TRACE(std::string(name) + " round " + std::to_string(round));
            std::string in(rng() % 2000, '\0');
            for (char& c : in) c = " \t\r\nA=\xE9z"[rng() % 8];
            StringBuffer whole;
            ASSERT_TRUE(bufferOf(in).encodeDB(name, whole));
            BlockEncoder enc;
            ASSERT_TRUE(enc.select(name));
            StringBuffer pieces;
            const unsigned group = enc.groupBytes();
            inPieces(
                in, [&] { return group * (rng() % 5); },
                [&](const unsigned char* p, size_t n, bool last) {
                    ASSERT_TRUE(enc.append(p, static_cast<unsigned>(n), last, pieces));
                });
            ASSERT_EQ(pieces.str(), whole.str());
            EXPECT_LE(whole.getSize(), enc.textBound(in.size()));
        }
    }
}

}  // namespace
