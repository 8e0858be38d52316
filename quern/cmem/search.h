// Searching, comparing and rewriting counted blocks of bytes.
//
// A block is an address and a length in bytes; a hit is an address inside the block, or null.
// Nothing is allocated and nothing is raised: a null or empty argument has no hit. Pure functions
// over the caller's memory, safe from any thread while nobody changes the blocks.
//
// Some rules look like slips and are meant; callers rely on them. They are named with each
// function, and so are the calls that never return.
#pragma once

#include <cstdint>

namespace quern {

// Flags. Bits that a function does not know are ignored.
inline constexpr uint32_t MEM_NOTINSET = 0x02000000;  // MemFindAny: a byte that is not in the set
inline constexpr uint32_t MEM_WILDCARD = 0x08000000;  // MemFind: '*' and '?' in the pattern
inline constexpr uint32_t MEM_BACKWARD = 0x10000000;  // MemFind, MemFindAny: from the end downwards
inline constexpr uint32_t MEM_NOCASE =
    0x40000000;  // compare in the lower case of the C locale in force

// Compares `count` bytes as unsigned numbers: negative, zero or positive. With MEM_NOCASE both
// sides are in lower case, so that '_' comes before the letters. A null block is less than any
// other.
int32_t MemCmp(const void* a, const void* b, uint32_t count, uint32_t flags);

// Finds a pattern: the address where it begins, or null.
//
// Forwards the first occurrence in the block. The time is linear in the length of the block.
//
// MEM_BACKWARD: the last one. Compat: the places tested are one higher than forwards. The highest
// of them ends with the byte just behind the block, and the first byte is never tested. To include
// it, pass a length that is one more. The caller owns that one byte behind the block; it is read
// only when all bytes before it match.
//
// MEM_WILDCARD: the pattern is cut into segments at '*' and '?', and each is tested on its own, all
// of them from the block's start: the position is not carried from one to the next.
//   literal bytes  must be those that the block begins with;
//   '?'            takes any block that does not begin with a zero byte;
//   '*' and bytes  searches these in the whole block (backwards too); without bytes there is no
//   hit.
// All must match; the result is the first segment's: the start, or where a star's bytes were found.
// Three consequences are kept:
//   - a star is not counted as a part of the pattern, so that the walk goes on behind the pattern
//     for a byte or more. There it reads no further than the first zero byte, which ends a
//     pattern that is not followed by other text: the zero byte matches no block but one that
//     begins with a zero byte itself. So "*cd" alone does not match "abcd", while "*cd" followed by
//     "?" does;
//   - a segment, its star included, is cut off at as many bytes as the one before it had without
//   its
//     star (the first: as the pattern has), so that behind a '?' every segment is a single byte;
//   - a zero byte ends a segment.
// A pattern with a star, or with a zero byte in it, must be followed by a zero byte that the caller
// owns. Of any other pattern no byte behind it is read, and the literal bytes are read only as far
// as they match. A literal that is longer than the block does not match.
const char* MemFind(const void* block, uint32_t length, const void* pattern, uint32_t patternLength,
                    uint32_t flags);

// The offset of MemFind's hit in the block. 0 is both a hit at the start and no hit.
uint32_t MemFindOfs(const void* block, uint32_t length, const void* pattern, uint32_t patternLength,
                    uint32_t flags);

// Finds a byte that is in the set, or with MEM_NOTINSET one that is not: the first one, or with
// MEM_BACKWARD the last one. A zero byte is a member like any other.
//
// A negative length means the bytes that end at `block`, that byte included: -3 is the byte and the
// two before it. It also turns the direction round: without MEM_BACKWARD they are scanned downwards
// from `block`, with it upwards to it.
const char* MemFindAny(const void* block, int32_t length, const void* set, uint32_t setLength,
                       uint32_t flags);

// The offset of MemFindAny's hit from `block` as passed; below it (a negative length) the offset
// wraps around. 0 is both a hit there and no hit.
uint32_t MemFindAnyOfs(const void* block, int32_t length, const void* set, uint32_t setLength,
                       uint32_t flags);

// Replaces a pattern wherever the scan meets it, in place. Returns by how many bytes the contents
// shrank (wrapped around when they grew): the new length is length less the result. Of the flags
// only MEM_NOCASE counts. A null replacement leaves the bytes as the move left them.
//
// The caller's block can hold what the contents grow to. Nothing behind that, and behind the
// block's length, is read or written.
//
// After each replacement the scan runs on by the replacement's length and one byte past the data
// that is left, over bytes that the move left behind; hits there are replaced and counted as well,
// so the result can exceed the length.
//
// NEVER RETURNS when a pattern of one byte is deleted and the block's last byte is that byte: it is
// found there again after every move.
uint32_t MemReplaceAll(void* block, uint32_t length, const void* pattern, uint32_t patternLength,
                       const void* replacement, uint32_t replacementLength, uint32_t flags);

// Replaces each byte that MemFindAny finds, in place. Returns by how many bytes the contents grew
// (wrapped around when they shrank): the new length is length plus the result. The caller's block
// can hold that. The length is unsigned here and in MemCountAny: none is negative.
//
// After a copy the scan goes on at the replacement's second byte, so members in the replacement are
// replaced in turn. It does not count the bytes that were added: it stops so much before the end,
// and later moves leave out, and can write over, as many of the last bytes. A null replacement
// copies nothing, and the same byte is found again until the length is used up.
uint32_t MemReplaceAny(void* block, uint32_t length, const void* set, uint32_t setLength,
                       const void* replacement, uint32_t replacementLength, uint32_t flags);

// Counts how often MemFind's hit fits into the block: every search begins at the same start, and
// each hit shortens the length by its offset and the pattern's length. A hit that leaves less than
// nothing (backwards, with wildcards) is the last one.
uint32_t MemCount(const void* block, uint32_t length, const void* pattern, uint32_t patternLength,
                  uint32_t flags);

// Counts in the same way with MemFindAny, each hit shortening the length by its offset alone.
//
// NEVER RETURNS when the hit is the block's first byte: nothing is shortened then. Backwards this
// comes about as soon as no other hit is left before it.
uint32_t MemCountAny(const void* block, uint32_t length, const void* set, uint32_t setLength,
                     uint32_t flags);

}  // namespace quern
