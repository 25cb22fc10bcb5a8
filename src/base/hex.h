// Hexadecimal text: every digest, serial number, IV and checksum is printed
// and stored as upper-case hex, two digits a byte, no separators. Reading
// accepts either case; comparing is exact, so lower-case digits never match.
#pragma once

#include <cstddef>

// Prints each byte as "%02X" to standard output; nothing for null data.
void print_hex(const unsigned char* data, unsigned int len);

// Writes each byte as "%02X" to out and zero-terminates it; out holds 2*len+1
// bytes. Nothing for null data or out.
void print_hex_str(const unsigned char* data, unsigned int len, char* out);

// Converts textLength hex digits (either case) into bytes at out, stopping at
// the first pair holding a non-hex character. Returns the bytes written, -1
// for an odd textLength, 0 for textLength <= 0. Never looks past a NUL.
int hexToBytes(unsigned char* out, const char* text, int textLength);

// True when text begins with exactly the 2*len upper-case digits of data. It
// stops at the first difference, so a shorter terminated text is never read
// past its end.
bool hexEquals(const unsigned char* data, size_t len, const char* text);
