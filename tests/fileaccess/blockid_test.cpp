// Block identifiers (zero-filled decimal text, encoded) and whole files read as encoded text.
#include <cstdio>
#include <string>

#include "fileaccess/ClsFileAccess.h"
#include "support/TestSupport.h"

namespace {

class BlockIdTest : public TempDirTest {
  protected:
    bool genId(int index, int length, const char* encoding, std::string& out) {
        XString enc(encoding), id("stale");
        bool ok = fa.GenBlockId(index, length, enc, id);
        out = id.getUtf8();
        return ok;
    }
    bool readEncoded(const std::string& file, const char* encoding, std::string& out) {
        XString p(file.c_str()), enc(encoding), text("stale");
        bool ok = fa.ReadBinaryToEncoded(p, enc, text);
        out = text.getUtf8();
        return ok;
    }
    std::string logged(const char* name) const {
        for (auto& e : fa.lastErrorLog().entries())
            if (e.kind == LogKind::Data && e.name == name) return e.text;
        return "<none>";
    }
    ClsFileAccess fa;
};

TEST_F(BlockIdTest, EveryFourDigitIndexHasFourCharacters) {
    std::string id;
    char expect[16];
    for (int i = 0; i <= 9999; ++i) {
        ASSERT_CALL_OK(fa, genId(i, 4, "ascii", id));
        std::snprintf(expect, sizeof expect, "%04d", i);
        ASSERT_EQ(id, expect);
    }
    // Every one-digit index with length 1, and the first that no longer fits.
    for (int i = 0; i <= 9; ++i) {
        ASSERT_CALL_OK(fa, genId(i, 1, "ascii", id));
        EXPECT_EQ(id, std::to_string(i));
    }
    EXPECT_CALL_FAILS(fa, genId(10, 1, "ascii", id));
}

TEST_F(BlockIdTest, IdentifiersInEachEncoding) {
    struct Case {
        int index;
        int length;
        const char* encoding;
        bool ok;
        const char* out;
    } cases[] = {
        {0, 1, "ascii", true, "0"},
        {7, 4, "hex", true, "30303037"},
        {1234, 4, "base64", true, "MTIzNA=="},
        {12, 6, "hexlower", true, "303030303132"},
        {5, 3, "base32", true, "GAYDK==="},
        {-5, 4, "ascii", true, "00-5"},
        {-5, 2, "ascii", true, "-5"},
        {-1234, 5, "ascii", true, "-1234"},
        {-1234, 4, "ascii", false, ""},
        {12345, 4, "ascii", false, ""},
        {10, 1, "hex", false, ""},
        {1, 0, "ascii", false, ""},
        {1, -3, "ascii", false, ""},
        {0, 0, "ascii", false, ""},
        {2147483647, 10, "ascii", true, "2147483647"},
        {-2147483647 - 1, 12, "ascii", true, "0-2147483648"},
        {3, 2, "no-such-encoding", false, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.index) + " len " + std::to_string(c.length) + " " +
                     c.encoding);
        std::string id;
        EXPECT_EQ(genId(c.index, c.length, c.encoding, id), c.ok) << lastLog(fa);
        EXPECT_EQ(id, c.out);
        if (c.ok) {
            EXPECT_FALSE(fa.lastErrorLog().hasErrors());
            EXPECT_EQ(logged("index"), "<none>");
            continue;
        }
        EXPECT_TRUE(fa.lastErrorLog().contains("Failed."));
        EXPECT_EQ(logged("index"), std::to_string(c.index));
        EXPECT_EQ(logged("length"), std::to_string(c.length));
        EXPECT_EQ(logged("encoding"), c.encoding);
    }
}

TEST_F(BlockIdTest, ReadBinaryToEncodedKnownVectors) {
    struct Case {
        std::string content;
        const char* encoding;
        const char* out;
    } cases[] = {
        {"foobar", "base64", "Zm9vYmFy"},
        {"fooba", "base64", "Zm9vYmE="},
        {"foob", "BASE64", "Zm9vYg=="},
        {"foobar", "hex", "666F6F626172"},
        {std::string("\x00\xff\x10", 3), "hexlower", "00ff10"},
        {std::string("\x00\xff\x10", 3), "base16", "00FF10"},
        {"foobar", "base32", "MZXW6YTBOI======"},
        {"\xfb\xff", "base64url", "-_8"},
        {"a b/~", "url", "a%20b%2F~"},
        {"", "base64", ""},
        {"", "hex", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.encoding) + " of " + std::to_string(c.content.size()));
        std::string f = writeFile("in.bin", c.content), text;
        ASSERT_CALL_OK(fa, readEncoded(f, c.encoding, text));
        EXPECT_EQ(text, c.out);
        EXPECT_EQ(logged("fileSize"), std::to_string(c.content.size()));
        EXPECT_TRUE(fa.lastErrorLog().contains("Success."));
    }
}

TEST_F(BlockIdTest, ReadBinaryToEncodedResultFollowsTheLoadOnly) {
    std::string text;
    EXPECT_CALL_FAILS(fa, readEncoded(path("missing"), "base64", text));
    EXPECT_EQ(text, "");
    EXPECT_EQ(logged("fileSize"), "<none>");
    EXPECT_TRUE(fa.lastErrorLog().contains("Failed."));

    // An encoding the encoder does not know: the load decides, so true; nothing encoded.
    std::string f = writeFile("in.bin", "data");
    EXPECT_CALL_OK(fa, readEncoded(f, "no-such-encoding", text));
    EXPECT_EQ(text, "");
    EXPECT_EQ(logged("fileSize"), "4");
}

}  // namespace
