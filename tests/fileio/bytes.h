// Big-endian bytes for tests of the file readers: built field by field, put in
// a temporary file behind a reader, or taken back from a writer.
#pragma once

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fileio.h"

namespace bwtest {

using Bytes = std::vector<uint8_t>;

inline Bytes operator+(Bytes a, const Bytes &b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}
inline Bytes be16(uint16_t v) { return {uint8_t(v >> 8), uint8_t(v)}; }
inline Bytes be32(uint32_t v) { return {uint8_t(v >> 24), uint8_t(v >> 16), uint8_t(v >> 8), uint8_t(v)}; }
inline Bytes f32(float v) { return be32(std::bit_cast<uint32_t>(v)); }
inline Bytes text(const std::string &s) { return Bytes(s.begin(), s.end()); }
inline Bytes text0(const std::string &s) { return text(s) + Bytes{0}; }
// A binary header of `id` and `version` with the default comment.
inline Bytes header(uint32_t id, float version) {
    Bytes h = be32(id) + f32(version) + text("No comment...");
    h.resize(BIN_HEADER_SIZE, 0);
    return h;
}

inline void writeBytes(const std::string &path, const Bytes &bytes) {
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char *>(bytes.data()),
                                                static_cast<std::streamsize>(bytes.size()));
}

inline Bytes readBytes(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Bytes built by chained calls: Buf().u16(1).f32(2.0f).b
struct Buf {
    Bytes b;
    Buf &u16(uint16_t v) { b.push_back(uint8_t(v >> 8)); b.push_back(uint8_t(v)); return *this; }
    Buf &i32(uint32_t v) { return u16(uint16_t(v >> 16)).u16(uint16_t(v)); }
    Buf &f32(float v) { return i32(std::bit_cast<uint32_t>(v)); }
    Buf &raw(const char *s, size_t n) { b.insert(b.end(), s, s + n); return *this; }
    // A general binary header of `version` with the default comment.
    Buf &header(float version) { b = b + bwtest::header(BIN_ID_GENERAL, version); return *this; }
};

// A reader over `bytes` in a temporary file that goes with it. A version other
// than 0 stands for a header already read.
struct ByteFile {
    BinReader r;
    FILE *f = tmpfile();
    explicit ByteFile(const Bytes &bytes, const char *name = "test.bin", float version = 0.0f) {
        if (!bytes.empty()) fwrite(bytes.data(), 1, bytes.size(), f);
        rewind(f);
        binReaderAttach(r, f, name);
        if (version != 0.0f) r.version = version;
    }
    ~ByteFile() { fclose(f); }
};

// Readers opened while the value lives take their file's bytes from a helper
// thread in blocks of `block`, whatever the file's size.
struct BackgroundRead {
    explicit BackgroundRead(int64_t block) { binSetBackgroundRead(1, block); }
    ~BackgroundRead() { binSetBackgroundRead(int64_t{8} << 20, int64_t{2} << 20); }
};

// A writer into a temporary file; bytes() gives what was written so far.
struct ByteSink {
    BinWriter w;
    FILE *f = tmpfile();
    explicit ByteSink(const char *name = "out.bin") { binWriterAttach(w, f, name); }
    ~ByteSink() { fclose(f); }
    Bytes bytes() {
        fflush(f);
        Bytes out(static_cast<size_t>(ftell(f)));
        rewind(f);
        EXPECT_EQ(fread(out.data(), 1, out.size(), f), out.size());
        fseek(f, 0, SEEK_END);
        return out;
    }
};

}  // namespace bwtest
