// Helpers shared by the sources of the binary frame.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "fileio.h"

// Reads exactly `n` bytes or fails the reader (passed end of file); on failure
// `dst` is zeroed.
bool binTake(BinReader &r, void *dst, size_t n);
// Reads `n` bytes if they are all there, without failing the reader: for
// probing the start of a file of unknown kind. On false nothing is consumed.
bool binProbe(BinReader &r, void *dst, size_t n);
// Moves to the absolute offset `pos`; true on success.
bool binSeekTo(BinReader &r, int64_t pos);
// Fails the reader for a read past the end of the file.
void binFailEof(BinReader &r);
// Writes `n` bytes or fails the writer.
bool binPut(BinWriter &w, const void *src, size_t n);
// Fails the writer: "Cannot write file <name> at offset <pos>: <what>".
int binWriteFail(BinWriter &w, const char *what);
// Reverses the bytes of each item of 2, 4 or 8 bytes on a little-endian host,
// turning big-endian data into host order and back.
void binSwapItems(void *buffer, size_t size, size_t count);
// Float and double values made usable: NaN to 0, infinities to the largest
// finite value of their sign, subnormals to 0.
float binUsableFloat(float value);
double binUsableDouble(double value);

inline uint32_t binLoad32(const uint8_t *b) {
    return (static_cast<uint32_t>(b[0]) << 24) | (static_cast<uint32_t>(b[1]) << 16) |
           (static_cast<uint32_t>(b[2]) << 8) | static_cast<uint32_t>(b[3]);
}

inline void binStore32(uint8_t *b, uint32_t v) {
    b[0] = static_cast<uint8_t>(v >> 24);
    b[1] = static_cast<uint8_t>(v >> 16);
    b[2] = static_cast<uint8_t>(v >> 8);
    b[3] = static_cast<uint8_t>(v);
}

// ---------------------------------------------------------------------------
// Decoding from memory. Record readers with a prototype list decode whole
// records from the file's bytes through these, checking the bounds on their own
// cursor, and fall back to the checked reads above for anything unusual.

inline uint16_t binBig16(const uint8_t *b) {
    uint16_t v;
    memcpy(&v, b, 2);
    if constexpr (std::endian::native == std::endian::little) v = __builtin_bswap16(v);
    return v;
}

inline uint32_t binBig32(const uint8_t *b) {
    uint32_t v;
    memcpy(&v, b, 4);
    if constexpr (std::endian::native == std::endian::little) v = __builtin_bswap32(v);
    return v;
}

// binUsableFloat on the raw bits, without a library call.
inline float binUsableFloatBits(uint32_t bits) {
    uint32_t exponent = bits & 0x7F800000u;
    if (exponent == 0x7F800000u) {
        if (bits & 0x007FFFFFu) return 0.0f;  // NaN
        return std::bit_cast<float>((bits & 0x80000000u) | 0x7F7FFFFFu);  // largest finite of the sign
    }
    if (exponent == 0 && (bits & 0x007FFFFFu)) return 0.0f;  // subnormal
    return std::bit_cast<float>(bits);
}

inline float binBigFloat(const uint8_t *b) { return binUsableFloatBits(binBig32(b)); }

// Uninitialised memory for a large array, released with free(). Arrays of
// several megabytes are asked to lie on huge pages: each of their pages is
// otherwise faulted in separately on first write, which costs more than the
// writing. Null without memory.
void *binAllocLarge(size_t bytes);

// Waits until the first `end` bytes of the file are read; false when reading
// ended before them. Updates r.ready.
bool binAwait(BinReader &r, int64_t end);
// Updates r.ready to what has been read so far, without waiting.
void binRefresh(BinReader &r);

// True when the first `end` bytes of the file are there, waiting for them if
// they are still coming.
inline bool binHave(BinReader &r, int64_t end) { return end <= r.ready || binAwait(r, end); }

// The unread bytes that are already in memory: [*begin, *end). False when the
// reader cannot give any (failed, no file, or at the end).
inline bool binUnread(BinReader &r, const uint8_t **begin, const uint8_t **end) {
    if (r.failed || !r.file || !r.data || r.pos >= r.size) return false;
    binRefresh(r);
    if (r.pos >= r.ready && !binHave(r, r.pos + 1)) return false;
    *begin = r.data + r.pos;
    *end = r.data + r.ready;
    return true;
}

// Stretches a span given by binUnread whose end is *end to what has been read
// since, waiting for at least one more byte; false at the end of the file.
inline bool binMore(BinReader &r, const uint8_t **end) {
    int64_t have = *end - r.data;
    if (have >= r.size || !binHave(r, have + 1)) return false;
    *end = r.data + r.ready;
    return true;
}

// Moves the reader to `at`, a point inside the bytes binUnread gave.
inline void binAdvanceTo(BinReader &r, const uint8_t *at) { r.pos = at - r.data; }
