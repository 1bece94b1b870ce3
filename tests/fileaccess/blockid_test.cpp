// Block identifiers (zero-filled decimal text, encoded) and whole files read as encoded text.
// The encoders have their own suite; here the methods' contracts are checked.
#include <random>
#include <string>

#include "LogProbe.h"

namespace {

class BlockIdTest : public FileAccessTest {
  protected:
    // The identifier made, or "failed:" and what was left in the output on a false result.
    std::string genId(int index, int length, const char* encoding) {
        XString enc(encoding), id("stale");
        bool ok = fa.GenBlockId(index, length, enc, id);
        return std::string(ok ? "" : "failed:") + id.getUtf8();
    }
};

TEST_F(BlockIdTest, EveryIndexOfALengthFillsItExactly) {
    for (int length = 1, end = 10; length <= 4; ++length, end *= 10) {
        // end + i has one digit more than the length: drop it for i filled with zeros.
        for (int i = 0; i < end; ++i)
            ASSERT_EQ(genId(i, length, "ascii"), std::to_string(end + i).substr(1)) << lastLog(fa);
        EXPECT_EQ(genId(end, length, "ascii"), "failed:") << length;
    }
}

TEST_F(BlockIdTest, NegativeIndexesEncodingsAndRefusals) {
    struct Case {
        int index, length;
        const char *encoding, *out;
    } cases[] = {
        {-5, 4, "ascii", "00-5"},        {-1234, 5, "ascii", "-1234"},
        {-1234, 4, "ascii", "failed:"},  {-2147483647 - 1, 12, "ascii", "0-2147483648"},
        {1, 0, "ascii", "failed:"},      {1, -3, "ascii", "failed:"},
        {1234, 4, "base64", "MTIzNA=="}, {3, 2, "no-such", "failed:"},
    };
    for (const Case& c : cases) {
        std::string args =
            std::to_string(c.index) + " " + std::to_string(c.length) + " " + c.encoding;
        SCOPED_TRACE(args);
        std::string id = genId(c.index, c.length, c.encoding);
        EXPECT_EQ(id, c.out) << lastLog(fa);
        // A refusal logs the arguments and "Failed."; a success logs nothing.
        EXPECT_EQ(value("index") + " " + value("length") + " " + value("encoding") + " " +
                      std::to_string(errorCount()),
                  id == "failed:" ? args + " 1" : "<absent> <absent> <absent> 0");
    }
}

TEST_F(BlockIdTest, EncodedReadsFollowTheLoad) {
    struct Case {
        std::string file;  // "<missing>": no such file
        const char *encoding, *out, *fileSize;
    } cases[] = {
        {"foobar", "base64", "Zm9vYmFy", "6"},
        {std::string("\0\xff", 2), "HEX", "00FF", "2"},
        {"", "base64", "", "0"},
        // The bytes as they are, taken as C text: up to the first NUL.
        {std::string("ab\0cd", 5), "ascii", "ab", "5"},
        // The load decides the result: an unknown encoding gives true and nothing encoded.
        {"data", "no-such", "", "4"},
        {"<missing>", "base64", "", "<absent>"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.encoding) + " of " + c.file);
        std::string f = c.file == "<missing>" ? path("missing") : writeFile("in.bin", c.file);
        XString p(f.c_str()), enc(c.encoding), text("stale");
        EXPECT_EQ(fa.ReadBinaryToEncoded(p, enc, text), c.file != "<missing>") << lastLog(fa);
        EXPECT_EQ(std::string(text.view()), c.out);
        EXPECT_EQ(value("fileSize"), c.fileSize);
        EXPECT_EQ(lastLine(), c.file != "<missing>" ? "Success." : "Failed.");
    }
}

// Files that end around the read's block edges (15 << 14 bytes, whole groups of every
// encoding) and around each encoding's group: the text of one encoding of the whole file.
// Line breaks and blanks are strewn so that quoted-printable's look-ahead crosses the edges.
TEST_F(BlockIdTest, EncodedReadsAtEveryBlockAndGroupEdge) {
    constexpr size_t kBlock = 15u << 14;
    std::mt19937 rng(9);
    std::string bytes(2 * kBlock + 8, '\0');
    for (char& c : bytes) c = rng() % 4 ? static_cast<char>(rng()) : " \r\n\t"[rng() % 4];
    // A blank that stays one across the first edge, a line break split by the second.
    bytes.replace(kBlock - 1, 2, " x");
    bytes.replace(2 * kBlock - 1, 2, "\r\n");
    for (size_t size : {size_t{0}, size_t{1}, size_t{2}, size_t{4}, size_t{5}, size_t{7},
                        kBlock - 1, kBlock, kBlock + 1, kBlock + 4, 2 * kBlock - 2, 2 * kBlock,
                        2 * kBlock + 3}) {
        const std::string content = bytes.substr(0, size);
        XString p = X(writeFile("in.bin", content));
        for (const char* name : {"hex", "base64", "base64url", "base32", "qp", "url", "ascii"}) {
            SCOPED_TRACE(std::string(name) + " of " + std::to_string(size) + " bytes");
            StringBuffer whole;
            ASSERT_TRUE(bufferOf(content).encodeDB(name, whole));
            // The bytes as they are end at the first NUL.
            const std::string want = std::string(name) == "ascii"
                                         ? whole.str().substr(0, whole.str().find('\0'))
                                         : whole.str();
            XString enc(name), text;
            ASSERT_CALL_OK(fa, fa.ReadBinaryToEncoded(p, enc, text));
            ASSERT_TRUE(text.getUtf8Sb().str() == want);
            ASSERT_EQ(value("fileSize"), std::to_string(size));
        }
    }
}

}  // namespace

