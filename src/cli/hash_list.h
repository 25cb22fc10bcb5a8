// The hash list file and the two file-integrity modes.
//
// A list is: a header line, then one entry "#<name>$<64 hex digits>\r\n" per
// file, then "*" and the 64 hex digits of the digest of every byte up to and
// including that "*". Digests are GOST R 34.11-2012 256-bit, upper-case hex,
// in the order hashFinal(direct = 1) delivers them.
#pragma once

#include <cstdint>

#include "base/hex.h"  // print_hex and print_hex_str, part of this interface

// Largest list the checker accepts and the maker writes (entries part).
constexpr unsigned kHashListMaxBytes = 131071;
// A list's digests: GOST R 34.11-2012 256-bit, as 64 hex digits.
constexpr unsigned kDigestBytes = 32;
constexpr unsigned kDigestHexChars = 2 * kDigestBytes;
// Files are hashed in chunks of this size.
constexpr unsigned kHashChunkBytes = 65536;

extern const char strOk[];     // "Ok!"
extern const char strError[];  // "error!"

// Check file hash mode. 1: list and all files check out; 0: a listed file failed
// or the entries are malformed; -1: list cannot be opened; -2: list empty or
// 131072 bytes or longer; -3: no "*" in it; -4: the list's own digest differs.
int DoParsingFile(const char* listPath);

// 1 if the digest of [begin, hexDigest) equals the 64 hex digits at hexDigest,
// -1 if not, 0 for a null pointer. Stops at the first differing byte, so a
// zero-terminated text shorter than 64 digits is never read past its end.
int fCheckMemHash(const char* begin, const char* hexDigest);

// The same test for a whole file: 1, -1, or 0 when path is null or unreadable.
int fCheckFileHash(const char* path, const char* hexDigest);

// Writes the 32-byte digest of len bytes at data to digest (raw bytes).
void fCalcMemHash(const char* data, unsigned int len, char* digest);

// Make file hash list mode: hashes fileNames[0..fileCount-1], writes the list
// to outPath only when every file was hashed, and echoes it. Always returns 0.
int make_hash_file_list(const char* outPath, int fileCount, char** fileNames);

// Digest of a file's contents, read in chunks. False when the path cannot be
// opened, is a directory, or a read fails: such a file has no digest to trust.
bool fHashFile(const char* path, unsigned char digest[32]);

// The same for any hash id; digest holds that algorithm's digest (64 bytes
// always suffice). Returns the digest's length, 0 where fHashFile is false.
uint32_t hashFileWith(uint32_t algId, const char* path, unsigned char* digest);
