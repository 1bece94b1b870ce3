// The block sizes of the whole-file passes that stream (internal). Tests make them small, so
// that the edges between blocks fall everywhere in small files.
#pragma once

namespace streamblocks {

// ReplaceStrings: the blocks its search reads, and the pieces its rewrite hands the replacer.
unsigned replaceBlock();
// ReadBinaryToEncoded: the blocks it reads and encodes one by one, whole groups of every
// encoding.
unsigned encodeBlock();

// For tests: set the sizes; 0 restores the usual ones. The replacement's block is at least
// 4 bytes, so that the first holds any byte-order mark; the encoded read's is rounded down to
// a multiple of 15 bytes (whole groups of base64 and of base32), at least 15. Not for use
// while a pass runs.
void setReplaceBlockForTest(unsigned bytes);
void setEncodeBlockForTest(unsigned bytes);

}  // namespace streamblocks
