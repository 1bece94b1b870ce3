#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>

#include "foundation/text/DataBuffer.h"
#include "foundation/text/StringBuffer.h"

namespace {

DataBuffer bufferOf(const std::string& s) {
    DataBuffer db;
    db.append(s.data(), static_cast<unsigned>(s.size()));
    return db;
}

std::string encode(const std::string& bytes, const char* encoding) {
    StringBuffer out;
    EXPECT_TRUE(bufferOf(bytes).encodeDB(encoding, out)) << encoding;
    return out.str();
}

struct Vector {
    const char* in;
    const char* base64;
    const char* base64url;
    const char* base32;
    const char* base16;
};

// The test vectors of RFC 4648, section 10 (base64url has no padding here).
const Vector kRfc4648[] = {
    {"", "", "", "", ""},
    {"f", "Zg==", "Zg", "MY======", "66"},
    {"fo", "Zm8=", "Zm8", "MZXQ====", "666F"},
    {"foo", "Zm9v", "Zm9v", "MZXW6===", "666F6F"},
    {"foob", "Zm9vYg==", "Zm9vYg", "MZXW6YQ=", "666F6F62"},
    {"fooba", "Zm9vYmE=", "Zm9vYmE", "MZXW6YTB", "666F6F6261"},
    {"foobar", "Zm9vYmFy", "Zm9vYmFy", "MZXW6YTBOI======", "666F6F626172"},
};

TEST(Encodings, Rfc4648VectorsEncodeAndDecode) {
    for (const Vector& v : kRfc4648) {
        SCOPED_TRACE(v.in);
        const std::pair<const char*, const char*> forms[] = {
            {"base64", v.base64}, {"base64url", v.base64url}, {"base32", v.base32},
            {"base16", v.base16}, {"hex", v.base16},          {"BASE64", v.base64}};
        for (const auto& [name, text] : forms) {
            SCOPED_TRACE(name);
            EXPECT_EQ(encode(v.in, name), text);
            DataBuffer back;
            ASSERT_TRUE(back.decodeDB(name, text, static_cast<unsigned>(std::string(text).size())));
            EXPECT_EQ(std::string(reinterpret_cast<const char*>(back.getData2()), back.getSize()),
                      v.in);
        }
    }
}

TEST(Encodings, OtherEncodingsAndAppending) {
    const std::string bytes("\x00\xFF a~-_.=\r\nZ\xC3\xA9", 14);
    EXPECT_EQ(encode(bytes, "hexlower"), "00ff20617e2d5f2e3d0d0a5ac3a9");
    EXPECT_EQ(encode(bytes, "url"), "%00%FF%20a~-_.%3D%0D%0AZ%C3%A9");
    EXPECT_EQ(encode(bytes, "qp"), "=00=FF a~-_.=3D\r\nZ=C3=A9");
    EXPECT_EQ(encode(bytes, "ascii"), bytes);
    EXPECT_EQ(encode("trailing space ", "quoted-printable"), "trailing space=20");
    EXPECT_EQ(encode("\xfb\xff", "base64url"), "-_8");
    EXPECT_EQ(encode("\xfb\xff", "base64"), "+/8=");

    // encodeDB appends to what the output already holds.
    StringBuffer out("x=");
    ASSERT_TRUE(bufferOf("\x01").encodeDB("hex", out));
    EXPECT_EQ(out.str(), "x=01");

    // Long quoted-printable lines are folded with soft breaks, and decode back.
    std::string longLine(200, 'q');
    std::string qp = encode(longLine, "qp");
    EXPECT_NE(qp.find("=\r\n"), std::string::npos);
    for (size_t start = 0, end; (end = qp.find("\r\n", start)) != std::string::npos;
         start = end + 2)
        EXPECT_LE(end - start, 76u);
    DataBuffer back;
    ASSERT_TRUE(back.decodeDB("qp", qp.data(), static_cast<unsigned>(qp.size())));
    EXPECT_TRUE(back.equals(longLine.data(), static_cast<unsigned>(longLine.size())));
}

TEST(Encodings, EveryByteRoundTripsThroughEveryEncoding) {
    std::string all;
    for (int i = 0; i < 256; ++i) all.push_back(static_cast<char>(i));
    all += all;
    for (const char* name :
         {"hex", "hexlower", "base64", "base64url", "base32", "url", "qp", "ascii"}) {
        SCOPED_TRACE(name);
        for (size_t len : {size_t{0}, size_t{1}, size_t{2}, size_t{3}, size_t{4}, size_t{5},
                           size_t{255}, all.size()}) {
            SCOPED_TRACE(len);
            std::string text = encode(all.substr(0, len), name);
            DataBuffer back;
            ASSERT_TRUE(back.decodeDB(name, text.data(), static_cast<unsigned>(text.size())));
            EXPECT_TRUE(back.equals(all.data(), static_cast<unsigned>(len)));
        }
    }
}

TEST(Encodings, UnknownNamesAndBadTextFailWithoutChange) {
    DataBuffer db = bufferOf("keep");
    StringBuffer out("prior");
    EXPECT_FALSE(db.encodeDB("base65", out));
    EXPECT_FALSE(db.encodeDB("", out));
    EXPECT_FALSE(db.encodeDB(nullptr, out));
    EXPECT_EQ(out.str(), "prior");

    const std::pair<const char*, const char*> bad[] = {
        {"hex", "ABC"},      {"hex", "zz"},       {"base64", "Zg=a"},    {"base64", "Z"},
        {"base64", "Zm9v!"}, {"base64", "Zg==="}, {"base64url", "Zm+v"}, {"base32", "MY=====A"},
        {"base32", "M"},     {"base32", "MZX"},   {"url", "%4"},         {"url", "%G0"},
        {"qp", "=4"},        {"qp", "=XY"},       {"nonesuch", "00"},
    };
    for (const auto& [name, text] : bad) {
        SCOPED_TRACE(std::string(name) + " " + text);
        EXPECT_FALSE(db.decodeDB(name, text, static_cast<unsigned>(std::string(text).size())));
        EXPECT_TRUE(db.equals("keep", 4));
    }
}

TEST(Encodings, ArbitraryTextDecodesOrFailsCleanly) {
    // Random text over the characters the decoders look at, in every length up to 40: each
    // decode either fails leaving the buffer as it was or yields bytes that encode back to
    // the same text once white space and padding are set aside (checked for hex only, where
    // that is exact). Run under the address sanitizer this also catches reads past the text.
    std::mt19937 rng(7);
    const std::string alphabet = "AZaz09+/-_=%. \r\n\x80~ZMYzf";
    for (const char* name : {"hex", "base64", "base64url", "base32", "url", "qp"}) {
        SCOPED_TRACE(name);
        for (int round = 0; round < 400; ++round) {
            std::string text;
            size_t len = rng() % 41;
            for (size_t i = 0; i < len; ++i) text.push_back(alphabet[rng() % alphabet.size()]);
            DataBuffer db = bufferOf("prior");
            auto* heapText = new char[len ? len : 1];
            memcpy(heapText, text.data(), len);
            bool ok = db.decodeDB(name, heapText, static_cast<unsigned>(len));
            delete[] heapText;
            if (!ok) {
                EXPECT_TRUE(db.equals("prior", 5)) << text;
            } else if (std::string(name) == "hex" &&
                       text.find_first_of(" \r\n") == std::string::npos) {
                StringBuffer back;
                ASSERT_TRUE(db.encodeDB("hex", back));
                EXPECT_EQ(back.str().size(), len);
            }
        }
    }
}

}  // namespace
