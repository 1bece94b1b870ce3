// The stream replacer and the block encoder against their whole-buffer forms: the same output
// however the input is cut.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "foundation/text/Convert.h"
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

// Cut anywhere, a stream of conversions gives the one conversion's bytes: characters cut at a
// piece's end, a stateful encoding's shifts, and the stop at a character the charset cannot
// hold (or at bytes that are not valid), with what came before it.
TEST(StreamConverter, CutAnywhereItConvertsAsOneCall) {
    std::mt19937 rng(13);
    // Each target with characters it holds and one it does not (none for the Unicode forms):
    // Latin, Greek, kana, a character outside the BMP, the euro sign.
    const struct {
        const char* name;
        std::vector<std::string> holds;
        const char* lacks;
    } targets[] = {
        {"UTF-16LE", {"a", "\xCE\xA9", "\xE3\x81\x82", "\xF0\x9F\x98\x80"}, nullptr},
        {"UTF-16BE", {"a", "\xC3\xA9", "\xF0\x9F\x98\x80", "\n"}, nullptr},
        {"UTF-32LE", {"a", "\xE3\x81\x82", "\xF0\x9F\x98\x80"}, nullptr},
        {"ISO-2022-JP", {"a", "\xCE\xA9", "\xE3\x81\x82", "\n"}, "\xC3\xA9"},
        {"WINDOWS-1252", {"a", "\xC3\xA9", "\xE2\x82\xAC", "\n"}, "\xCE\xA9"},
        {"UTF-8", {"a", "\xC3\xA9", "\xE3\x81\x82", "\xF0\x9F\x98\x80"}, nullptr},
    };
    for (int round = 0; round < 300; ++round) {
        const auto& target = targets[round % 6];
        const char* to = target.name;
        std::string text;
        for (size_t i = 0, n = rng() % 400; i < n; ++i)
            text += target.holds[rng() % target.holds.size()];
        if (target.lacks && round % 4 == 0) text.insert(text.size() / 2, target.lacks);
        if (round % 9 == 0 && !text.empty()) text[rng() % text.size()] = '\xFF';  // not UTF-8
        for (int direction = 0; direction < 2; ++direction) {
            // Decoding: from the target's bytes back to UTF-8 (when there are such bytes).
            std::string in = text;
            const char* from = "UTF-8";
            const char* into = to;
            if (direction == 1) {
                DataBuffer bytes;
                if (!convertCharset("UTF-8", to, u(text), text.size(), bytes)) continue;
                in = bytesOf(bytes);
                from = to;
                into = "UTF-8";
            }
            SCOPED_TRACE(std::to_string(round) + " " + from + " to " + into);
            DataBuffer whole;
            const bool wholeOk = convertCharset(from, into, u(in), in.size(), whole);
            StreamConverter conv;
            ASSERT_TRUE(conv.open(from, into));
            DataBuffer pieces;
            bool ok = true;
            inPieces(
                in, [&] { return rng() % 9; },
                [&](const unsigned char* p, size_t n, bool last) {
                    if (ok) ok = conv.convert(p, n, last, pieces);
                });
            ASSERT_EQ(ok, wholeOk);
            // Where the whole input converts, the bytes agree; where it stops, the pieces stop
            // at the same spot (UTF-8 to UTF-8 checks the whole before it copies anything).
            const bool utf8Both = std::string(into) == "UTF-8" && std::string(from) == "UTF-8";
            if (wholeOk || !utf8Both) {
                ASSERT_EQ(bytesOf(pieces), bytesOf(whole));
            }
        }
    }
}

}  // namespace
