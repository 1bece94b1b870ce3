#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

#include "foundation/text/DataBuffer.h"
#include "foundation/text/StringBuffer.h"
#include "support/TestSupport.h"

namespace {

// A plain reference: `width` bits at a time from the front, each picking a symbol of
// `alphabet`; padded with '=' to whole groups of four when `pad`.
std::string bitwise(const std::string& in, unsigned width, const std::string& alphabet, bool pad) {
    std::string out;
    const size_t bits = in.size() * 8;
    for (size_t pos = 0; pos < bits; pos += width) {
        unsigned v = 0;
        for (size_t b = pos; b < pos + width; ++b)
            v = v * 2 + (b < bits && (static_cast<unsigned char>(in[b / 8]) >> (7 - b % 8) & 1));
        out.push_back(alphabet[v]);
    }
    while (pad && out.size() % 4) out.push_back('=');
    return out;
}

// The test vectors of RFC 4648, section 10 (the empty one aside): input, base64, base64url
// (unpadded), base32, base16.
const char* const kRfc4648[][5] = {
    {"f", "Zg==", "Zg", "MY======", "66"},
    {"fo", "Zm8=", "Zm8", "MZXQ====", "666F"},
    {"foo", "Zm9v", "Zm9v", "MZXW6===", "666F6F"},
    {"foob", "Zm9vYg==", "Zm9vYg", "MZXW6YQ=", "666F6F62"},
    {"fooba", "Zm9vYmE=", "Zm9vYmE", "MZXW6YTB", "666F6F6261"},
    {"foobar", "Zm9vYmFy", "Zm9vYmFy", "MZXW6YTBOI======", "666F6F626172"},
};

TEST(Encodings, KnownVectorsEncodeAndDecode) {
    std::vector<std::tuple<const char*, std::string, std::string>> cases;
    const std::pair<const char*, int> columns[] = {{"base64", 1}, {"base64url", 2}, {"base32", 3},
                                                   {"base16", 4}, {"hex", 4},       {"BASE64", 1}};
    for (const auto& v : kRfc4648)
        for (const auto& [name, column] : columns) cases.emplace_back(name, v[0], v[column]);
    // The two characters where the base64 alphabets differ, and the escaping rules.
    const std::string mixed("\x00\xFF a~-_.=\r\nZ\xC3\xA9", 14);
    cases.insert(cases.end(), {{"base64url", "\xfb\xff", "-_8"},
                               {"base64", "\xfb\xff", "+/8="},
                               {"hexlower", "\x0a\xfe", "0afe"},
                               {"url", mixed, "%00%FF%20a~-_.%3D%0D%0AZ%C3%A9"},
                               {"qp", mixed, "=00=FF a~-_.=3D\r\nZ=C3=A9"},
                               {"quoted-printable", "trailing space ", "trailing space=20"}});
    // Every byte value, twice, round trips through every encoding ("": no expected text).
    std::string all;
    for (int i = 0; i < 512; ++i) all.push_back(static_cast<char>(i));
    for (const char* name : {"hex", "hexlower", "base64", "base64url", "base32", "url", "qp"})
        cases.emplace_back(name, all, "");
    for (const auto& [name, in, text] : cases) {
        SCOPED_TRACE(std::string(name) + " " + in.substr(0, 20));
        StringBuffer out;
        ASSERT_TRUE(bufferOf(in).encodeDB(name, out));
        const std::string encoded = out.str();
        EXPECT_TRUE(text.empty() || encoded == text) << encoded;
        DataBuffer back;
        ASSERT_TRUE(back.decodeDB(name, encoded.data(), static_cast<unsigned>(encoded.size())));
        EXPECT_EQ(bytesOf(back), in);
    }
}

// The bulk encoders (several bytes per step, vector paths, block-wise output) against the
// reference, at every length around their step and block boundaries, appending to the output.
TEST(Encodings, BulkEncodersMatchTheReferenceAtEveryBoundary) {
    const std::string b64 = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    const std::tuple<const char*, unsigned, std::string, bool> kinds[] = {
        {"base64", 6, b64 + "+/", true},
        {"base64url", 6, b64 + "-_", false},
        {"hex", 4, "0123456789ABCDEF", false},
        {"hexlower", 4, "0123456789abcdef", false}};
    std::string data((size_t{1} << 20) + 64, '\0');
    uint32_t x = 2463534242u;  // xorshift: no pattern a wrong block order could hide behind
    for (char& c : data) x ^= x << 13, x ^= x >> 17, x ^= x << 5, c = static_cast<char>(x >> 24);
    // Around the output block (2048 groups, 4096 hex bytes), and a multi-MiB output.
    std::vector<size_t> lengths = {6141, 6144, 6147, 6150, 4095, 4096, 4097, 8209, 1048577};
    for (size_t n = 1; n <= 80; ++n) lengths.push_back(n);
    for (const auto& [name, width, alphabet, pad] : kinds) {
        for (size_t n : lengths) {
            for (size_t offset : {0, 1}) {  // the vector loads must not depend on alignment
                SCOPED_TRACE(std::string(name) + " length " + std::to_string(n) + " offset " +
                             std::to_string(offset));
                const std::string in = data.substr(offset, n);
                StringBuffer out("prior:");
                ASSERT_TRUE(bufferOf(in).encodeDB(name, out));
                ASSERT_EQ(std::string(out.view()), "prior:" + bitwise(in, width, alphabet, pad));
            }
        }
    }
}

TEST(Encodings, UnknownNamesAndBadTextFailWithoutChange) {
    DataBuffer db = bufferOf("keep");
    StringBuffer out("prior");
    EXPECT_FALSE(db.encodeDB("base65", out) || db.encodeDB("", out) || db.encodeDB(nullptr, out));
    EXPECT_EQ(out.str(), "prior");

    const std::pair<const char*, const char*> bad[] = {
        {"hex", "ABC"},      {"hex", "zz"},       {"base64", "Zg=a"},    {"base64", "Z"},
        {"base64", "Zm9v!"}, {"base64", "Zg==="}, {"base64url", "Zm+v"}, {"base32", "MY=====A"},
        {"base32", "M"},     {"base32", "MZX"},   {"url", "%4"},         {"url", "%G0"},
        {"qp", "=4"},        {"qp", "=XY"},       {"nonesuch", "00"},
    };
    for (const auto& [name, text] : bad) {
        SCOPED_TRACE(std::string(name) + " " + text);
        EXPECT_FALSE(db.decodeDB(name, text, static_cast<unsigned>(std::string(text).size())) ||
                     !db.equals("keep", 4));
    }
}

}  // namespace
