// The bulk encoders (several bytes per step, vector paths, block-wise output) against a plain
// bit-by-bit encoder, at every length around their step and block boundaries.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "foundation/text/DataBuffer.h"
#include "foundation/text/StringBuffer.h"

namespace {

std::string pseudoRandomBytes(size_t n) {
    std::string s(n, '\0');
    uint32_t x = 2463534242u;
    for (char& c : s) {
        x ^= x << 13;
        x ^= x >> 17;
        x ^= x << 5;
        c = static_cast<char>(x >> 24);
    }
    return s;
}

// Six bits at a time from the front; padded to whole groups unless `pad` is false.
std::string slowBase64(const std::string& in, const char* alphabet, bool pad) {
    std::string out;
    size_t bits = in.size() * 8;
    for (size_t pos = 0; pos < bits; pos += 6) {
        unsigned v = 0;
        for (size_t b = pos; b < pos + 6; ++b) {
            unsigned bit =
                b < bits ? (static_cast<unsigned char>(in[b / 8]) >> (7 - b % 8)) & 1 : 0;
            v = v * 2 + bit;
        }
        out.push_back(alphabet[v]);
    }
    while (pad && out.size() % 4) out.push_back('=');
    return out;
}

std::string slowHex(const std::string& in, const char* digits) {
    std::string out;
    for (unsigned char c : in) {
        out.push_back(digits[c >> 4]);
        out.push_back(digits[c & 15]);
    }
    return out;
}

struct Encoding {
    const char* name;
    std::string (*reference)(const std::string&);
};

const Encoding kEncodings[] = {
    {"base64",
     [](const std::string& s) {
         return slowBase64(s, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/",
                           true);
     }},
    {"base64url",
     [](const std::string& s) {
         return slowBase64(s, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_",
                           false);
     }},
    {"hex", [](const std::string& s) { return slowHex(s, "0123456789ABCDEF"); }},
    {"hexlower", [](const std::string& s) { return slowHex(s, "0123456789abcdef"); }},
};

TEST(EncodingBulk, MatchesBitwiseEncodingAtEveryBoundary) {
    const std::string data = pseudoRandomBytes((size_t{1} << 20) + 64);
    std::vector<size_t> lengths;
    for (size_t n = 1; n <= 80; ++n) lengths.push_back(n);
    // Around the output block (2048 groups, 4096 hex bytes) and a multi-MiB output.
    for (size_t n : {6141u, 6144u, 6147u, 6150u, 4095u, 4096u, 4097u, 8209u, 1048577u})
        lengths.push_back(n);
    for (const Encoding& e : kEncodings) {
        for (size_t n : lengths) {
            // Offsets 0 and 1: the vector loads must not depend on the input's alignment.
            for (size_t offset : {size_t{0}, size_t{1}}) {
                SCOPED_TRACE(std::string(e.name) + " length " + std::to_string(n) + " offset " +
                             std::to_string(offset));
                const std::string in = data.substr(offset, n);
                DataBuffer db;
                ASSERT_TRUE(db.append(in.data(), static_cast<unsigned>(n)));
                StringBuffer out("prior:");
                ASSERT_TRUE(db.encodeDB(e.name, out));
                ASSERT_EQ(std::string(out.view()), "prior:" + e.reference(in));
            }
        }
    }
}

}  // namespace
