// Reader and writer records of the binary frame: bounds-checked big-endian
// values, strings, sized blocks and the skipping of unknown fields.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>
#include <system_error>
#include <thread>
#include <string>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "bin_internal.h"
#include "tol_status.h"

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

std::atomic<int64_t> g_backgroundMin{int64_t{8} << 20};    // smallest file read by a helper
std::atomic<int64_t> g_backgroundBlock{int64_t{2} << 20};  // bytes a helper reads at a time

}  // namespace

// The bytes of one file. `progress` is the count read so far while reading
// goes on, and -count - 1 once it has ended (all read, or the file came up
// short, or it was stopped): one word, so a waiter sees every change.
struct BinBytes {
    uint8_t *bytes = nullptr;
    int64_t size = 0;
    std::atomic<int64_t> progress{0};
    std::atomic<bool> stop{false};  // set by the last owner: the helper leaves after its block
    std::thread loader;

    BinBytes() = default;
    BinBytes(const BinBytes &) = delete;
    BinBytes &operator=(const BinBytes &) = delete;
    ~BinBytes() {
        stop.store(true, std::memory_order_relaxed);
        if (loader.joinable()) loader.join();
        free(bytes);
    }

    // Reads [from, size) of `fd` in blocks of `block`, publishing each.
    void load(int fd, int64_t from, int64_t block) {
        int64_t at = from;
        while (at < size && !stop.load(std::memory_order_relaxed)) {
            size_t piece = static_cast<size_t>(std::min(block, size - at));
            ssize_t n = pread(fd, bytes + at, piece, static_cast<off_t>(at));
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;  // an error or a file shortened since it was opened
            at += n;
            progress.store(at, std::memory_order_release);
            progress.notify_all();
        }
        progress.store(-at - 1, std::memory_order_release);
        progress.notify_all();
    }
};

void binSetBackgroundRead(int64_t minBytes, int64_t blockBytes) {
    g_backgroundMin.store(minBytes > 0 ? minBytes : 1, std::memory_order_relaxed);
    g_backgroundBlock.store(blockBytes > 0 ? blockBytes : 1, std::memory_order_relaxed);
}

bool binAwait(BinReader &r, int64_t end) {
    if (!r.bytes) return false;
    std::atomic<int64_t> &progress = r.bytes->progress;
    for (;;) {
        int64_t p = progress.load(std::memory_order_acquire);
        int64_t have = p < 0 ? -p - 1 : p;
        r.ready = have;
        if (have >= end) return true;
        if (p < 0) return false;
        progress.wait(p, std::memory_order_acquire);
    }
}

void binRefresh(BinReader &r) {
    if (!r.bytes || r.ready >= r.size) return;
    int64_t p = r.bytes->progress.load(std::memory_order_acquire);
    r.ready = p < 0 ? -p - 1 : p;
}

namespace {

// Fills r.data and r.size with the file, or starts a helper on it; false only
// without memory. The file is read, not mapped: a mapping faults when another
// process shortens the file under it, and a reader must survive any file. A
// large file is read from a duplicate of the descriptor, so that closing the
// stream does not pull it from under the helper.
bool loadWhole(BinReader &r, FILE *stream, int64_t length) {
    auto bytes = std::make_shared<BinBytes>();
    size_t want = static_cast<size_t>(length);
    bytes->bytes = static_cast<uint8_t *>(binAllocLarge(want ? want : 1));
    if (!bytes->bytes) return false;
    bytes->size = length;
    r.size = length;
    r.bytes = bytes;
    r.data = bytes->bytes;
    int fd = fileno(stream);
    if (fd >= 0 && length >= g_backgroundMin.load(std::memory_order_relaxed)) {
        int own = fcntl(fd, F_DUPFD_CLOEXEC, 0);
        if (own >= 0) {
            int64_t block = g_backgroundBlock.load(std::memory_order_relaxed);
            try {
                bytes->loader = std::thread([raw = bytes.get(), own, block] {
                    raw->load(own, 0, block);
                    close(own);
                });
                return true;
            } catch (const std::system_error &) {
                close(own);  // no thread to be had: read it here
            }
        }
    }
    if (fd >= 0) {
        bytes->load(fd, 0, length > 0 ? length : 1);
    } else {
        // A stream without a descriptor (in memory): through the library.
        size_t got = 0;
        if (fseek(stream, 0, SEEK_SET) == 0) got = fread(bytes->bytes, 1, want, stream);
        bytes->progress.store(-static_cast<int64_t>(got) - 1, std::memory_order_release);
    }
    binRefresh(r);
    r.size = r.ready;  // a file shortened since its size was taken ends here
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
    // The last owner of the bytes stops a helper still reading them.
    r.bytes.reset();
    r.data = nullptr;
    r.ready = 0;
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
    if (static_cast<uint64_t>(binRemaining(r)) < n || !binHave(r, r.pos + static_cast<int64_t>(n))) {
        memset(dst, 0, n);
        binFailEof(r);
        return false;
    }
    memcpy(dst, r.data + r.pos, n);
    r.pos += static_cast<int64_t>(n);
    return true;
}

bool binProbe(BinReader &r, void *dst, size_t n) {
    if (r.failed || !r.file || static_cast<uint64_t>(binRemaining(r)) < n) return false;
    if (!binHave(r, r.pos + static_cast<int64_t>(n))) return false;
    memcpy(dst, r.data + r.pos, n);
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
    if (!binHave(r, r.pos + static_cast<int64_t>(avail)))  // the file came up short
        avail = static_cast<size_t>(std::max<int64_t>(r.ready - r.pos, 0));
    size_t got = avail;
    memcpy(bytes, r.data + r.pos, got);
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
    // The terminator is looked for in what has been read, waiting for more
    // until it is found or the file ends.
    const uint8_t *start = r.data + r.pos;
    const uint8_t *zero = nullptr;
    int64_t searched = r.pos;
    binRefresh(r);
    while (!(zero = static_cast<const uint8_t *>(
                 memchr(r.data + searched, 0, static_cast<size_t>(std::max<int64_t>(r.ready - searched, 0)))))) {
        searched = std::max(searched, r.ready);
        if (searched >= r.size || !binHave(r, searched + 1)) break;
    }
    // A file that came up short may end before pos: the text is then empty.
    const uint8_t *end = zero ? zero : r.data + std::max(r.pos, std::min(r.ready, r.size));
    std::string text(reinterpret_cast<const char *>(start), static_cast<size_t>(end - start));
    r.pos = zero ? zero + 1 - r.data : r.size;
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
