// Reader and writer records of the binary frame: bounds-checked big-endian
// values, strings, sized blocks and the skipping of unknown fields.
#include <algorithm>
#include <cerrno>
#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "bin_internal.h"
#include "tol.h"

static_assert(std::endian::native == std::endian::little || std::endian::native == std::endian::big,
              "hosts of mixed byte order are not served");

namespace {

constexpr TOL_Status STATUS_PASSED_EOF = 137;  // "Passed end of file %s while reading data"
constexpr TOL_Status STATUS_FREE_ERROR = 4;    // "%s"
constexpr size_t SCRATCH_SIZE = 1024;          // piece size of skips and swapped writes

// Keeps the first failure only: the later ones follow from it.
void failWith(BinReader &r, TOL_Status code, const std::string &text) {
    if (r.failed) return;
    r.failed = 1;
    r.error = text;
    if (code == STATUS_PASSED_EOF)
        tol_report(code, r.name.c_str());
    else
        tol_report(code, text.c_str());
}

// Fills r.data and r.size with the whole file; false only without memory. The
// file is read, not mapped: a mapping faults when another process shortens the
// file under it, and a reader must survive any file.
bool loadWhole(BinReader &r, FILE *stream, int64_t length) {
    size_t want = static_cast<size_t>(length);
    uint8_t *buffer = static_cast<uint8_t *>(binAllocLarge(want ? want : 1));
    if (!buffer) return false;
    r.data = std::shared_ptr<const uint8_t>(buffer, [](const uint8_t *at) { free(const_cast<uint8_t *>(at)); });
    size_t got = 0;
    if (fseek(stream, 0, SEEK_SET) == 0) {
        // Past stdio's buffer: one large read() instead of a copy through it;
        // the fseek after the load puts the stream back in step.
        int fd = fileno(stream);
        if (fd >= 0 && lseek(fd, 0, SEEK_SET) == 0) {
            for (ssize_t n; got < want && (n = read(fd, buffer + got, want - got)) != 0;) {
                if (n < 0) {
                    if (errno == EINTR) continue;
                    break;
                }
                got += static_cast<size_t>(n);
            }
        } else {
            got = fread(buffer, 1, want, stream);
        }
    }
    r.size = static_cast<int64_t>(got);
    return true;
}

int attachStream(BinReader &r, FILE *stream, const char *name) {
    r = BinReader{};
    r.file = stream;
    r.name = name ? name : "";
    if (!stream) {
        r.failed = 1;
        r.error = "No stream for file " + r.name;
        return 0;
    }
    long start = ftell(stream);
    if (start < 0 || fseek(stream, 0, SEEK_END) != 0) {
        r.failed = 1;
        r.error = "Cannot seek in file " + r.name;
        return 0;
    }
    long end = ftell(stream);
    if (end < 0 || fseek(stream, start, SEEK_SET) != 0) {
        r.failed = 1;
        r.error = "Cannot seek in file " + r.name;
        return 0;
    }
    // Decoding field by field from the stream costs a library call a field: the
    // file is taken whole and decoded from memory, read into a buffer that is
    // not zero-filled first, since every byte of it that is used is read.
    if (!loadWhole(r, stream, end)) {
        r.failed = 1;
        r.error = "Out of memory for file " + r.name;
        return 0;
    }
    fseek(stream, start, SEEK_SET);
    r.pos = std::min<int64_t>(start, r.size);
    return 1;
}

}  // namespace

void *binAllocLarge(size_t bytes) {
    constexpr size_t HUGE_PAGE = size_t{2} << 20;
    if (bytes < 2 * HUGE_PAGE) return malloc(bytes);
    // Whole huge pages, aligned, so that the kernel can back all of it with them.
    size_t rounded = (bytes + HUGE_PAGE - 1) & ~(HUGE_PAGE - 1);
    if (rounded < bytes) return nullptr;
    void *at = nullptr;
    if (posix_memalign(&at, HUGE_PAGE, rounded) != 0) return nullptr;
    madvise(at, rounded, MADV_HUGEPAGE);  // a hint: without it the pages are small
    return at;
}

// ---------------------------------------------------------------------------
// Records

int binReaderOpen(BinReader &r, const char *path) {
    FILE *file = path ? fopen(path, "rb") : nullptr;
    if (!file) {
        int err = errno;
        r = BinReader{};
        r.name = path ? path : "";
        r.failed = 1;
        r.error = err == ENOENT ? "File " + r.name + " was not found"
                                : "Cannot open file " + r.name + ": " + strerror(err);
        return 0;
    }
    if (!attachStream(r, file, path)) {
        fclose(file);
        r.file = nullptr;
        return 0;
    }
    r.owned = 1;
    return 1;
}

int binReaderAttach(BinReader &r, FILE *stream, const char *name) {
    return attachStream(r, stream, name);
}

void binReaderClose(BinReader &r) {
    if (r.file && r.owned) fclose(r.file);
    r.file = nullptr;
    r.owned = 0;
}

int64_t binRemaining(const BinReader &r) { return r.size > r.pos ? r.size - r.pos : 0; }

int binFail(BinReader &r, const char *what) {
    failWith(r, STATUS_FREE_ERROR,
             "Damaged file " + r.name + " at offset " + std::to_string(r.pos) + ": " + what);
    return 0;
}

void binFailEof(BinReader &r) {
    failWith(r, STATUS_PASSED_EOF, "Passed end of file " + r.name + " while reading data");
}

int binCheckCount(BinReader &r, int64_t count, int64_t itemBytes) {
    if (r.failed) return 0;
    if (count < 0 || itemBytes < 0) {
        std::string what = "negative count " + std::to_string(count);
        return binFail(r, what.c_str());
    }
    if (itemBytes > 0 && count > binRemaining(r) / itemBytes) {
        binFailEof(r);
        return 0;
    }
    return 1;
}

int binWriterOpen(BinWriter &w, const char *path) {
    w = BinWriter{};
    w.name = path ? path : "";
    w.file = path ? fopen(path, "wb") : nullptr;
    if (!w.file) {
        w.failed = 1;
        w.error = "Cannot open file " + w.name + " for writing";
        return 0;
    }
    w.owned = 1;
    return 1;
}

int binWriterAttach(BinWriter &w, FILE *stream, const char *name) {
    w = BinWriter{};
    w.name = name ? name : "";
    w.file = stream;
    if (!stream) {
        w.failed = 1;
        w.error = "No stream for file " + w.name;
        return 0;
    }
    return 1;
}

int binWriterClose(BinWriter &w) {
    if (w.file) {
        // Data still buffered can fail to reach the disk only now.
        if (fflush(w.file) != 0) binWriteFail(w, "the data could not be flushed");
        if (w.owned && fclose(w.file) != 0) binWriteFail(w, "the file could not be closed");
    }
    w.file = nullptr;
    w.owned = 0;
    return !w.failed;
}

int binWriteFail(BinWriter &w, const char *what) {
    if (w.failed) return 0;
    w.failed = 1;
    w.error = "Cannot write file " + w.name + " at offset " + std::to_string(w.pos) + ": " + what;
    tol_report(STATUS_FREE_ERROR, w.error.c_str());
    return 0;
}

// ---------------------------------------------------------------------------
// Raw bytes

bool binTake(BinReader &r, void *dst, size_t n) {
    if (n == 0) return !r.failed;
    if (r.failed || !r.file) {
        memset(dst, 0, n);
        return false;
    }
    if (static_cast<uint64_t>(binRemaining(r)) < n) {
        memset(dst, 0, n);
        binFailEof(r);
        return false;
    }
    memcpy(dst, r.data.get() + r.pos, n);
    r.pos += static_cast<int64_t>(n);
    return true;
}

bool binProbe(BinReader &r, void *dst, size_t n) {
    if (r.failed || !r.file || static_cast<uint64_t>(binRemaining(r)) < n) return false;
    memcpy(dst, r.data.get() + r.pos, n);
    r.pos += static_cast<int64_t>(n);
    return true;
}

bool binSeekTo(BinReader &r, int64_t pos) {
    if (!r.file || pos < 0 || pos > r.size) return false;
    // The stream follows, for callers that go on with the token reader.
    if (fseek(r.file, static_cast<long>(pos), SEEK_SET) != 0) return false;
    r.pos = pos;
    return true;
}

bool binPut(BinWriter &w, const void *src, size_t n) {
    if (w.failed || !w.file) return false;
    if (n == 0) return true;
    size_t put = fwrite(src, 1, n, w.file);
    w.pos += static_cast<int64_t>(put);
    if (put < n) {
        binWriteFail(w, strerror(errno));
        return false;
    }
    return true;
}

void binSwapItems(void *buffer, size_t size, size_t count) {
    if constexpr (std::endian::native == std::endian::big) {
        (void)buffer, (void)size, (void)count;
    } else {
        if (size != 2 && size != 4 && size != 8) return;
        auto *bytes = static_cast<uint8_t *>(buffer);
        for (size_t i = 0; i < count; ++i) std::reverse(bytes + i * size, bytes + (i + 1) * size);
    }
}

float binUsableFloat(float value) {
    switch (std::fpclassify(value)) {
        case FP_NAN: return 0.0f;
        case FP_INFINITE: return std::signbit(value) ? -FLT_MAX : FLT_MAX;
        case FP_SUBNORMAL: return 0.0f;
        default: return value;
    }
}

double binUsableDouble(double value) {
    switch (std::fpclassify(value)) {
        case FP_NAN: return 0.0;
        case FP_INFINITE: return std::signbit(value) ? -DBL_MAX : DBL_MAX;
        case FP_SUBNORMAL: return 0.0;
        default: return value;
    }
}

// ---------------------------------------------------------------------------
// Reading values

size_t binRead(BinReader &r, void *buffer, size_t size, size_t count) {
    if (size == 0 || count == 0) return 0;
    if (count > SIZE_MAX / size) {
        binFail(r, "item count beyond the address space");
        return 0;
    }
    size_t total = size * count;
    auto *bytes = static_cast<uint8_t *>(buffer);
    if (r.failed || !r.file) {
        memset(bytes, 0, total);
        return 0;
    }
    // A cut array keeps its whole items; the cut one and the rest are zeros.
    size_t avail = std::min<uint64_t>(total, static_cast<uint64_t>(binRemaining(r)));
    size_t got = avail;
    memcpy(bytes, r.data.get() + r.pos, got);
    r.pos += static_cast<int64_t>(got);
    size_t items = got / size;
    memset(bytes + items * size, 0, total - items * size);
    binSwapItems(bytes, size, items);
    if (items < count) binFailEof(r);
    return items;
}

uint8_t binReadU8(BinReader &r) {
    uint8_t b = 0;
    binTake(r, &b, 1);
    return b;
}

uint16_t binReadU16(BinReader &r) {
    uint8_t b[2];
    binTake(r, b, 2);
    return static_cast<uint16_t>((b[0] << 8) | b[1]);
}

int16_t binReadI16(BinReader &r) { return static_cast<int16_t>(binReadU16(r)); }

uint32_t binReadU32(BinReader &r) {
    uint8_t b[4];
    binTake(r, b, 4);
    return binLoad32(b);
}

int32_t binReadI32(BinReader &r) { return static_cast<int32_t>(binReadU32(r)); }

float binReadF32(BinReader &r) { return binUsableFloat(std::bit_cast<float>(binReadU32(r))); }

double binReadF64(BinReader &r) {
    uint8_t b[8];
    binTake(r, b, 8);
    uint64_t bits = (static_cast<uint64_t>(binLoad32(b)) << 32) | binLoad32(b + 4);
    return binUsableDouble(std::bit_cast<double>(bits));
}

size_t binReadI16s(BinReader &r, int16_t *values, size_t count) {
    return binRead(r, values, sizeof *values, count);
}

size_t binReadU16s(BinReader &r, uint16_t *values, size_t count) {
    return binRead(r, values, sizeof *values, count);
}

size_t binReadI32s(BinReader &r, int32_t *values, size_t count) {
    return binRead(r, values, sizeof *values, count);
}

size_t binReadU32s(BinReader &r, uint32_t *values, size_t count) {
    return binRead(r, values, sizeof *values, count);
}

size_t binReadFloats(BinReader &r, float *values, size_t count) {
    size_t got = binRead(r, values, sizeof *values, count);
    for (size_t i = 0; i < got; ++i) values[i] = binUsableFloat(values[i]);
    return got;
}

size_t binReadDoubles(BinReader &r, double *values, size_t count) {
    size_t got = binRead(r, values, sizeof *values, count);
    for (size_t i = 0; i < got; ++i) values[i] = binUsableDouble(values[i]);
    return got;
}

size_t binReadFloat3(BinReader &r, float values[3]) { return binReadFloats(r, values, 3); }

char *binReadStr(BinReader &r) {
    if (r.failed || !r.file) return nullptr;
    if (binRemaining(r) == 0) {
        binFailEof(r);
        return nullptr;
    }
    // The text grows only by bytes really read, so a missing terminator costs
    // no more than the file holds.
    const uint8_t *start = r.data.get() + r.pos;
    const uint8_t *end = r.data.get() + r.size;
    const uint8_t *zero = static_cast<const uint8_t *>(memchr(start, 0, static_cast<size_t>(end - start)));
    std::string text(reinterpret_cast<const char *>(start),
                     static_cast<size_t>((zero ? zero : end) - start));
    r.pos = zero ? zero + 1 - r.data.get() : r.size;
    char *out = static_cast<char *>(malloc(text.size() + 1));
    if (!out) {
        binFail(r, "out of memory for a string");
        return nullptr;
    }
    memcpy(out, text.c_str(), text.size() + 1);
    return out;
}

uint8_t *binReadBlock(BinReader &r, int32_t *size) {
    if (size) *size = 0;
    int32_t n = binReadI32(r);
    if (r.failed) return nullptr;
    if (n < 0) {
        std::string what = "negative block size " + std::to_string(n);
        binFail(r, what.c_str());
        return nullptr;
    }
    if (n == 0) return nullptr;
    if (n > binRemaining(r)) {
        binFailEof(r);
        return nullptr;
    }
    auto *data = static_cast<uint8_t *>(malloc(static_cast<size_t>(n)));
    if (!data) {
        binFail(r, "out of memory for a block");
        return nullptr;
    }
    if (!binTake(r, data, static_cast<size_t>(n))) {
        free(data);
        return nullptr;
    }
    if (size) *size = n;
    return data;
}

int binReadTag(BinReader &r, char tag[5]) {
    bool ok = binTake(r, tag, 4);
    tag[4] = '\0';
    return ok ? 1 : 0;
}

int binSkip(BinReader &r, uint16_t token) {
    int rule = tokenSkip(token);
    if (rule == BIN_SKIP_NONE || r.failed) return 0;
    int64_t n = rule;
    if (rule == BIN_SKIP_SIZED) {
        int32_t sized = binReadI32(r);
        if (r.failed) return 0;
        if (sized < 0) {
            std::string what = "negative size " + std::to_string(sized) + " of token " +
                               std::to_string(token);
            return binFail(r, what.c_str());
        }
        n = sized;
    }
    if (n > binRemaining(r)) {
        binFailEof(r);
        return 0;
    }
    // Read rather than seek, in full pieces and one rest, so that a stream
    // that cannot seek skips the same way.
    uint8_t scratch[SCRATCH_SIZE];
    for (; n >= static_cast<int64_t>(SCRATCH_SIZE); n -= SCRATCH_SIZE)
        if (!binTake(r, scratch, SCRATCH_SIZE)) return 0;
    if (n > 0 && !binTake(r, scratch, static_cast<size_t>(n))) return 0;
    return 1;
}

// ---------------------------------------------------------------------------
// Writing values

size_t binWrite(BinWriter &w, const void *buffer, size_t size, size_t count) {
    if (size == 0 || count == 0 || w.failed) return 0;
    const auto *bytes = static_cast<const uint8_t *>(buffer);
    if (size != 2 && size != 4 && size != 8) {
        if (count > SIZE_MAX / size) return binWriteFail(w, "item count beyond the address space");
        int64_t start = w.pos;
        binPut(w, bytes, size * count);
        return static_cast<size_t>(w.pos - start) / size;
    }
    // Swapped in a copy, piece by piece: the caller's buffer stays as it was.
    uint8_t scratch[SCRATCH_SIZE];
    size_t perPiece = SCRATCH_SIZE / size;
    size_t done = 0;
    while (done < count) {
        size_t n = std::min(perPiece, count - done);
        memcpy(scratch, bytes + done * size, n * size);
        binSwapItems(scratch, size, n);
        if (!binPut(w, scratch, n * size)) break;
        done += n;
    }
    return done;
}

int binWriteU8(BinWriter &w, uint8_t value) { return binPut(w, &value, 1) ? 1 : 0; }

int binWriteU16(BinWriter &w, uint16_t value) {
    uint8_t b[2] = {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};
    return binPut(w, b, 2) ? 1 : 0;
}

int binWriteI16(BinWriter &w, int16_t value) {
    return binWriteU16(w, static_cast<uint16_t>(value));
}

int binWriteU32(BinWriter &w, uint32_t value) {
    uint8_t b[4];
    binStore32(b, value);
    return binPut(w, b, 4) ? 1 : 0;
}

int binWriteI32(BinWriter &w, int32_t value) {
    return binWriteU32(w, static_cast<uint32_t>(value));
}

int binWriteF32(BinWriter &w, float value) {
    return binWriteU32(w, std::bit_cast<uint32_t>(value));
}

int binWriteF64(BinWriter &w, double value) {
    uint64_t bits = std::bit_cast<uint64_t>(value);
    uint8_t b[8];
    binStore32(b, static_cast<uint32_t>(bits >> 32));
    binStore32(b + 4, static_cast<uint32_t>(bits));
    return binPut(w, b, 8) ? 1 : 0;
}

size_t binWriteFloats(BinWriter &w, const float *values, size_t count) {
    return binWrite(w, values, sizeof *values, count);
}

size_t binWriteDoubles(BinWriter &w, const double *values, size_t count) {
    return binWrite(w, values, sizeof *values, count);
}

int binWriteStr(BinWriter &w, const char *text) {
    if (!text) text = "";
    return binPut(w, text, strlen(text) + 1) ? 1 : 0;
}

int binWriteBlock(BinWriter &w, const void *data, int32_t size) {
    if (size < 0) return binWriteFail(w, "negative block size");
    if (size > 0 && !data) return binWriteFail(w, "block without data");
    return binWriteI32(w, size) && binPut(w, data, static_cast<size_t>(size)) ? 1 : 0;
}

int binWriteTag(BinWriter &w, const char *tag) {
    char four[4] = {};
    if (tag) memcpy(four, tag, strnlen(tag, 4));
    return binPut(w, four, 4) ? 1 : 0;
}
