// Block identifiers and whole files read as encoded text.
//
// Both turn bytes into text through the buffer layer's binary-to-text encoder.
#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>

#include "fileaccess/BlockReader.h"
#include "fileaccess/ClsFileAccess.h"
#include "fileaccess/StreamBlocks.h"
#include "foundation/base/MethodFrame.h"
#include "foundation/text/Encodings.h"
#include "foundation/text/LargeBlocks.h"

namespace {

// The index as decimal text left-filled with "0" to `length` characters (zeros before a
// minus sign too), encoded into out. False when the digits do not fit in `length`, when
// length is below 1, or when the encoder fails or yields nothing.
bool makeBlockId(int index, int length, const XString& encoding, XString& out) {
    StringBuffer text;
    text.append(index);
    if (length > 0 && text.getSize() < static_cast<unsigned>(length)) {
        StringBuffer zeros;
        zeros.appendCharN('0', static_cast<unsigned>(length) - text.getSize());
        text.prepend(zeros.getString());
    }
    DataBuffer bytes;
    if (!bytes.append(text.getString(), text.getSize())) return false;
    if (length < 1 || bytes.getSize() != static_cast<unsigned>(length)) return false;
    if (!bytes.encodeDB(encoding.getUtf8(), out.getUtf8Sb_rw())) return false;
    return !out.isEmpty();
}

// Empties the output, then makes the identifier; a failure names the three inputs.
bool genBlockId(int index, int length, const XString& encoding, XString& out, LogBase& log) {
    out.clear();
    if (makeBlockId(index, length, encoding, out)) return true;
    log.LogDataLong("index", index);
    log.LogDataLong("length", length);
    log.LogDataX("encoding", encoding);
    log.LogError("Failed.");
    return false;
}

// Blocks of the input: whole groups of every encoding (3 bytes for base64, 5 for base32),
// so that encoding them one by one gives the text of one encoding of the whole; small enough
// to stay in the second-level cache between the read that fills one and its encoding.
constexpr unsigned kEncodeBlock = 15u << 14;
std::atomic<unsigned> g_encodeBlock{kEncodeBlock};
// Tags identifying the block's and the output's reservations in a memory-failure log entry.
constexpr int kEncodeAllocTag = 1095;
constexpr int kOutputAllocTag = 1096;

// Encodes the reader's blocks onto `text` while `encoding` holds; it is cleared for good at
// the first NUL of an encoding that takes bytes as C text. False when a read fails; `spoiled`
// when the encoder gave up (text too long for it). The output's pages are made ready on a
// second thread, ahead of the encoder, as far as the text is sure to reach (`expected`).
bool encodeBlocks(BlockReader& reader, BlockEncoder& encoder, bool encoding, uint64_t expected,
                  StringBuffer& text, long long& total, bool& spoiled, LogBase& log) {
    std::string& room = text.str();
    const uint64_t ahead = std::min<uint64_t>(room.capacity() - room.size(), expected);
    PrefaultAhead warm(room.data() + room.size(), static_cast<size_t>(ahead));
    const unsigned char* block = reader.block();
    for (bool last = false; !last;) {
        unsigned got = 0;
        if (!reader.next(got, last, log)) return false;
        total += got;
        // The text is taken as C text: bytes given as they are end at the first NUL.
        unsigned take = got;
        if (encoding && encoder.keepsBytes()) {
            const auto* nul = static_cast<const unsigned char*>(std::memchr(block, 0, got));
            if (nul) take = static_cast<unsigned>(nul - block);
        }
        if (encoding && !encoder.append(block, take, last || take < got, text)) {
            spoiled = true;
            encoding = false;
        }
        if (take < got) encoding = false;
    }
    return true;
}

// The output's memory cannot be had: false, with the output empty and its memory given back.
bool outputMemoryFailed(XString& out, uint64_t size, LogBase& log) {
    out.clear();
    std::string().swap(out.getUtf8Sb_rw().str());
    log.MemoryAllocFailed(kOutputAllocTag,
                          static_cast<unsigned>(std::min<uint64_t>(size, UINT32_MAX)));
    return false;
}

// Reads the file block by block and encodes each block onto the output, which is reserved
// once from the file's size: the output is the only allocation that grows with the file.
// The read decides the result: an encoding the encoder does not know, or text too long for
// one string, leaves the output empty, as one encoding of the whole would, and the result
// true. A text of exact length too long for a string is given up before it is begun (the
// file is still read, for the result and its size); url and quoted-printable stop where
// they would pass the limit. Memory that cannot be had for the output fails the call.
bool readBinaryToEncoded(const XString& path, const XString& name, XString& out, LogBase& log) {
    out.clear();
    BlockReader reader(streamblocks::encodeBlock());
    if (!reader.open(path, kEncodeAllocTag, log)) return false;
    BlockEncoder encoder;
    bool encoding = encoder.select(name.getUtf8());
    StringBuffer& text = out.getUtf8Sb_rw();
    const uint64_t size = static_cast<uint64_t>(std::max(reader.fileSize(), 0LL));
    uint64_t expected = 0;
    if (encoding) {
        switch (encoder.reserve(text, size)) {
            case BlockEncoder::Room::Reserved:
                expected = encoder.exactLength() ? encoder.textBound(size) : size;
                break;
            case BlockEncoder::Room::TooLong:
                encoding = false;
                break;
            case BlockEncoder::Room::NoMemory:
                return outputMemoryFailed(out, encoder.textBound(size), log);
        }
    }
    long long total = 0;
    bool spoiled = false, read = false;
    try {
        read = encodeBlocks(reader, encoder, encoding, expected, text, total, spoiled, log);
    } catch (const std::bad_alloc&) {
        return outputMemoryFailed(out, uint64_t{text.getSize()} * 2, log);
    }
    if (!read || spoiled) out.clear();
    if (!read) return false;
    log.LogDataInt64("fileSize", total);
    return true;
}

}  // namespace

namespace streamblocks {

unsigned encodeBlock() {
    return g_encodeBlock.load(std::memory_order_relaxed);
}

void setEncodeBlockForTest(unsigned bytes) {
    g_encodeBlock.store(bytes == 0 ? kEncodeBlock : std::max(bytes / 15 * 15, 15u),
                        std::memory_order_relaxed);
}

}  // namespace streamblocks

bool ClsFileAccess::GenBlockId(int index, int length, XString& encoding, XString& out) {
    StandardFrame f(*this, "GenBlockId");
    return genBlockId(index, length, encoding, out, f.log());
}

bool ClsFileAccess::ReadBinaryToEncoded(XString& path, XString& encoding, XString& out) {
    OlderFrame f(*this, "ReadBinaryToEncoded");
    return f.result(readBinaryToEncoded(path, encoding, out, f.log()));
}
