// A BINARY take record written byte by byte from the format, for the tests of
// take readers: 16 bytes, all big-endian.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>

namespace bwtest {

inline void putBig32(std::string &out, uint32_t w) {
    for (int shift = 24; shift >= 0; shift -= 8) out += char((w >> shift) & 0xff);
}

// u16 DOF, two unused bytes (`unused`), u32 status, f32 value, f32 time.
inline void putTakeRecord(std::string &out, uint16_t dof, uint32_t status, float value, float time,
                          const char unused[2] = "\0\0") {
    out += char(dof >> 8);
    out += char(dof & 0xff);
    out.append(unused, 2);
    putBig32(out, status);
    uint32_t bits;
    memcpy(&bits, &value, 4);
    putBig32(out, bits);
    memcpy(&bits, &time, 4);
    putBig32(out, bits);
}

}  // namespace bwtest
