// Pictures (.pic): the binary header, "PICT", the fixed fields, a chain of
// channel packets, then run-length coded scan lines, first line on top. In
// memory the planes keep the bottom row first, as the texture code wants.
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "fileio.h"

namespace {

constexpr uint8_t kRed = 0x80, kGreen = 0x40, kBlue = 0x20, kAlpha = 0x10;
constexpr uint8_t kChannelBits[4] = {kRed, kGreen, kBlue, kAlpha};

void report(const char *format, const char *name) { fprintf(stderr, format, name ? name : ""); }

bool readExact(FILE *f, void *into, size_t n) { return fread(into, 1, n, f) == n; }

uint16_t be16(const uint8_t *b) { return static_cast<uint16_t>(b[0] << 8 | b[1]); }
uint32_t be32(const uint8_t *b) {
    return static_cast<uint32_t>(b[0]) << 24 | static_cast<uint32_t>(b[1]) << 16 |
           static_cast<uint32_t>(b[2]) << 8 | b[3];
}
float beFloat(const uint8_t *b) {
    uint32_t u = be32(b);
    float f;
    memcpy(&f, &u, sizeof f);
    return f;
}
void putBe16(uint8_t *b, uint16_t v) {
    b[0] = static_cast<uint8_t>(v >> 8);
    b[1] = static_cast<uint8_t>(v);
}
void putBe32(uint8_t *b, uint32_t v) {
    for (int i = 0; i < 4; ++i) b[i] = static_cast<uint8_t>(v >> (24 - 8 * i));
}

bool isStandardStream(const FILE *f) { return f == stdin || f == stdout; }
void closeStream(FILE *f) {
    if (f && !isStandardStream(f)) fclose(f);
}

// The planes of a packet, red to alpha, as indices 0 to 3.
int packetPlanes(const PicturePacket &p, int out[4]) {
    int n = 0;
    for (int k = 0; k < 4; ++k)
        if (p.channels & kChannelBits[k]) out[n++] = k;
    return n;
}

}  // namespace

void picPacketsFree(PicturePacket *packets) {
    while (packets) {
        PicturePacket *next = packets->next;
        free(packets);
        packets = next;
    }
}

void picFree(PictureInfo *info) {
    if (!info) return;
    for (uint8_t *&plane : info->planes) {
        free(plane);
        plane = nullptr;
    }
}

int picReadHeaderFromStream(FILE *stream, const char *name, PictureInfo *info, float *ratio,
                            char *comment, PicturePacket **packets) {
    if (packets) *packets = nullptr;
    uint8_t header[BIN_HEADER_SIZE];
    if (!readExact(stream, header, sizeof header)) {
        report("Cannot read input file %s\n", name);
        return 0;
    }
    if (be32(header) != BIN_ID_GENERAL) {
        report("The file %s is not a BRACKWOOD file.\n", name);
        return 0;
    }
    if (comment) {
        memcpy(comment, header + 8, BIN_COMMENT_SIZE);
        comment[BIN_COMMENT_SIZE - 1] = '\0';
    }
    uint8_t fixed[16];
    if (!readExact(stream, fixed, 4)) {
        report("Cannot read input file %s\n", name);
        return 0;
    }
    if (memcmp(fixed, "PICT", 4) != 0) {
        report("File %s is not a BRACKWOOD Picture file.\n", name);
        return 0;
    }
    if (!readExact(stream, fixed + 4, 12)) {
        report("Cannot read input file %s\n", name);
        return 0;
    }
    PictureInfo in{};
    in.width = be16(fixed + 4);
    in.height = be16(fixed + 6);
    in.ratio = beFloat(fixed + 8);
    in.fields = be16(fixed + 12);
    in.padding = be16(fixed + 14);
    if (in.width == 0 || in.height == 0) {
        fprintf(stderr, "Picture %s has invalid size %d x %d\n", name ? name : "", in.width, in.height);
        return 0;
    }
    if (in.ratio == 0.0f) in.ratio = static_cast<float>(in.width / in.height);
    PicturePacket *head = nullptr, **tail = &head;
    for (int count = 0;; ++count) {
        uint8_t p[4];
        // A chain longer than one packet per plane is no picture of ours.
        if (count >= 16 || !readExact(stream, p, 4)) {
            report("Cannot read input file %s\n", name);
            picPacketsFree(head);
            return 0;
        }
        auto *packet = static_cast<PicturePacket *>(calloc(1, sizeof(PicturePacket)));
        if (!packet) {
            picPacketsFree(head);
            return 0;
        }
        packet->size = p[1];
        packet->compression = p[2] & 0x0F;
        packet->channels = p[3];
        int planes[4];
        packet->active = static_cast<uint16_t>(packetPlanes(*packet, planes));
        *tail = packet;
        tail = &packet->next;
        if (p[0] == 0) break;
    }
    *info = in;
    if (ratio) *ratio = in.ratio;
    if (packets)
        *packets = head;
    else
        picPacketsFree(head);
    return 1;
}

int picOpenRead(const char *name, FILE **stream, PictureInfo *info, float *ratio, char *comment,
                PicturePacket **packets) {
    if (!name || !stream || !info) return 0;
    FILE *f = strcmp(name, "-") == 0 ? stdin : fopen(name, "rb");
    if (!f) {
        report("Cannot read input file %s\n", name);
        return 0;
    }
    if (!picReadHeaderFromStream(f, name, info, ratio, comment, packets)) {
        closeStream(f);
        return 0;
    }
    *stream = f;
    return 1;
}

namespace {

// Where scan lines come from: an open stream that others read on, or one read
// ahead. take() hands out the next `n` bytes, fewer at the end of the data.
struct StreamSource {
    FILE *stream;
    std::vector<uint8_t> buffer;  // what take() handed out last

    int get() { return getc(stream); }
    const uint8_t *take(size_t n, size_t *got) {
        if (buffer.size() < n) buffer.resize(n);
        *got = fread(buffer.data(), 1, n, stream);
        return buffer.data();
    }
    void toEnd() { fseek(stream, 0, SEEK_END); }
};

// Reads ahead in large blocks, for a reader that owns the stream.
struct BlockSource {
    FILE *stream;
    std::vector<uint8_t> buffer;  // what was read ahead
    size_t at = 0, end = 0;       // the bytes not handed out yet

    // At least `n` bytes ahead, when the stream has them.
    void fill(size_t n) {
        if (end - at >= n) return;
        memmove(buffer.data(), buffer.data() + at, end - at);
        end -= at;
        at = 0;
        if (buffer.size() < n) buffer.resize(n);
        end += fread(buffer.data() + end, 1, buffer.size() - end, stream);
    }
    int get() {
        if (at == end) fill(1);
        return at < end ? buffer[at++] : EOF;
    }
    const uint8_t *take(size_t n, size_t *got) {
        fill(n);
        *got = n < end - at ? n : end - at;
        const uint8_t *p = buffer.data() + at;
        at += *got;
        return p;
    }
    void toEnd() {
        at = end;
        fseek(stream, 0, SEEK_END);
    }
};

// How the reading of a line ended. A line cut by the end of the data ends the
// picture and keeps what was read; a run past the line is damage of the coding
// itself, and nothing read from such a file can be trusted.
enum LineResult : int {
    LINE_OVERRUN = -1,  // a run went past the end of the line
    LINE_SHORT = 0,     // the data ended inside the line
    LINE_OK = 1,        // the whole line
};

// The mixed run-length form of one packet's line. N is the packet's count of
// planes when every one of them is kept (1 or 3, the usual packets, made
// into loops of known length), 0 for any packet, whose planes may be dropped.
template <int N, typename Source>
LineResult runsRead(Source &src, uint8_t *const dest[4], int n, int width) {
    const int planes = N ? N : n;
    for (int x = 0; x < width;) {
        int c = src.get();
        if (c == EOF) return LINE_SHORT;
        int count;
        bool literal = c < 128;
        size_t got = 0;
        if (literal) {
            count = c + 1;
        } else if (c == 128) {
            const uint8_t *b = src.take(2, &got);
            if (got < 2) return LINE_SHORT;
            count = be16(b);
        } else {
            count = c - 127;
        }
        if (x + count > width) {
            src.toEnd();
            return LINE_OVERRUN;
        }
        const size_t want = static_cast<size_t>(literal ? count : 1) * planes;
        const uint8_t *pixels = src.take(want, &got);
        const int whole = static_cast<int>(got / planes);
        if (literal && N == 3) {
            uint8_t *r = dest[0] + x, *g = dest[1] + x, *b = dest[2] + x;
            for (int i = 0; i < whole; ++i, pixels += 3) {
                r[i] = pixels[0];
                g[i] = pixels[1];
                b[i] = pixels[2];
            }
        } else if (literal) {
            for (int k = 0; k < planes; ++k)
                if (uint8_t *d = dest[k]) {
                    d += x;
                    for (int i = 0; i < whole; ++i) d[i] = pixels[i * planes + k];
                }
        } else if (whole == 1 && N == 3 && count < 32) {
            uint8_t *r = dest[0] + x, *g = dest[1] + x, *b = dest[2] + x;
            for (int i = 0; i < count; ++i) {
                r[i] = pixels[0];
                g[i] = pixels[1];
                b[i] = pixels[2];
            }
        } else if (whole == 1) {
            for (int k = 0; k < planes; ++k)
                if (uint8_t *d = dest[k]) {
                    if (count < 32) {
                        for (int i = 0; i < count; ++i) d[x + i] = pixels[k];
                    } else {
                        memset(d + x, pixels[k], static_cast<size_t>(count));
                    }
                }
        }
        if (got < want) return LINE_SHORT;
        x += count;
    }
    return LINE_OK;
}

// One scan line, every packet of the chain; what was read before a failure
// stays in the planes.
template <typename Source>
LineResult scanlineRead(Source &src, PicturePacket *packets, PictureInfo *info, int row) {
    const int width = info->width;
    for (PicturePacket *p = packets; p; p = p->next) {
        int planes[4];
        int n = packetPlanes(*p, planes);
        if (n == 0 || (p->compression != 0 && p->compression != 2)) continue;  // ignored
        uint8_t *dest[4] = {nullptr, nullptr, nullptr, nullptr};
        bool all = true;
        for (int k = 0; k < n; ++k) {
            uint8_t *plane = info->planes[planes[k]];
            dest[k] = plane ? plane + static_cast<size_t>(row) * width : nullptr;
            all = all && dest[k];
        }
        if (p->compression == 0) {
            // Uncompressed: the pixels of the line, their planes interleaved.
            size_t got = 0;
            const size_t want = static_cast<size_t>(width) * n;
            const uint8_t *line = src.take(want, &got);
            const int whole = static_cast<int>(got / n);
            for (int k = 0; k < n; ++k)
                if (uint8_t *d = dest[k]) {
                    if (n == 1) memcpy(d, line, static_cast<size_t>(whole));
                    else
                        for (int i = 0; i < whole; ++i) d[i] = line[i * n + k];
                }
            if (got < want) return LINE_SHORT;
            continue;
        }
        const LineResult result = all && n == 3 ? runsRead<3>(src, dest, n, width)
                                  : all && n == 1 ? runsRead<1>(src, dest, n, width)
                                                  : runsRead<0>(src, dest, n, width);
        if (result != LINE_OK) return result;
    }
    return LINE_OK;
}

}  // namespace

int picReadScanline(FILE *stream, PicturePacket *packets, PictureInfo *info, int row) {
    StreamSource src{stream, {}};
    return scanlineRead(src, packets, info, row) == LINE_OK;
}

int picRead(const char *name, PictureInfo *info) {
    FILE *f = nullptr;
    PicturePacket *packets = nullptr;
    PictureInfo in{};
    if (!picOpenRead(name, &f, &in, nullptr, nullptr, &packets)) return 0;
    // The planes the file carries; the others stay null. Memory is only what
    // the header's size asks, and the size is at most 65535 x 65535.
    uint8_t present = 0;
    for (PicturePacket *p = packets; p; p = p->next) present |= p->channels;
    size_t bytes = static_cast<size_t>(in.width) * in.height;
    if (bytes > PIC_MAX_PIXELS) {
        // More than any texture needs and more than a viewer should hold.
        fprintf(stderr, "image too big, memory insufficient\n");
        picPacketsFree(packets);
        closeStream(f);
        return 0;
    }
    for (int k = 0; k < 4; ++k) {
        if (!(present & kChannelBits[k])) continue;
        in.planes[k] = static_cast<uint8_t *>(calloc(bytes, 1));
        if (!in.planes[k]) {
            fprintf(stderr, "image too big, memory insufficient\n");
            picFree(&in);
            picPacketsFree(packets);
            closeStream(f);
            return 0;
        }
    }
    // The lines are decoded from blocks read ahead: no call per pixel.
    BlockSource src{f, std::vector<uint8_t>(size_t{1} << 18)};
    // First line on top; in memory the bottom row is row 0. A file that ends
    // early leaves the rest zero; a run past a line fails the picture.
    LineResult result = LINE_OK;
    int line = 0;
    for (; line < in.height && result == LINE_OK; ++line)
        result = scanlineRead(src, packets, &in, in.height - 1 - line);
    picPacketsFree(packets);
    closeStream(f);
    if (result == LINE_OVERRUN) {
        fprintf(stderr, "Picture %s: a run goes past the end of line %d\n", name, line);
        picFree(&in);
        return 0;
    }
    *info = in;
    return 1;
}

// ---------------------------------------------------------------------------
// Writing

FILE *picOpenWrite(const char *name, const PictureInfo *info, int mode) {
    if (!name || !info) return nullptr;
    FILE *f;
    std::string path = name;
    if (name[0] == '-') {
        f = stdout;
    } else {
        if (path.size() < 4 || path.compare(path.size() - 4, 4, ".pic") != 0) path += ".pic";
        f = fopen(path.c_str(), "wb");
    }
    if (!f) return nullptr;
    uint8_t header[BIN_HEADER_SIZE + 16] = {};
    putBe32(header, BIN_ID_GENERAL);
    float version = BIN_VERSION;
    uint32_t v;
    memcpy(&v, &version, sizeof v);
    putBe32(header + 4, v);
    strncpy(reinterpret_cast<char *>(header + 8), BIN_DEFAULT_COMMENT, BIN_COMMENT_SIZE - 1);
    uint8_t *fixed = header + BIN_HEADER_SIZE;
    memcpy(fixed, "PICT", 4);
    putBe16(fixed + 4, info->width);
    putBe16(fixed + 6, info->height);
    uint32_t r;
    memcpy(&r, &info->ratio, sizeof r);
    putBe32(fixed + 8, r);
    putBe16(fixed + 12, info->fields);
    putBe16(fixed + 14, info->padding);
    bool ok = fwrite(header, 1, sizeof header, f) == sizeof header;
    bool alpha = info->planes[3] != nullptr;
    if (mode == PIC_WRITE_PLANES) {
        // One uncompressed packet per plane, red to alpha.
        int planes = alpha ? 4 : 3;
        for (int k = 0; k < planes; ++k) {
            uint8_t p[4] = {static_cast<uint8_t>(k + 1 < planes), 8, 0, kChannelBits[k]};
            ok = ok && fwrite(p, 1, 4, f) == 4;
        }
    } else {
        uint8_t rgb[4] = {static_cast<uint8_t>(alpha ? 1 : 0), 8, 2, kRed | kGreen | kBlue};
        ok = ok && fwrite(rgb, 1, 4, f) == 4;
        if (alpha) {
            uint8_t a[4] = {0, 8, 2, kAlpha};
            ok = ok && fwrite(a, 1, 4, f) == 4;
        }
    }
    if (!ok) {
        closeStream(f);
        return nullptr;
    }
    return f;
}

namespace {

// One plane group of a line in the mixed run-length form.
bool writeRuns(FILE *f, int width, const uint8_t *const *planes, int n) {
    auto same = [&](int a, int b) {
        for (int k = 0; k < n; ++k)
            if (planes[k][a] != planes[k][b]) return false;
        return true;
    };
    auto pixel = [&](int x) {
        for (int k = 0; k < n; ++k) putc(planes[k][x], f);
    };
    int x = 0;
    while (x < width) {
        int run = 1;
        while (x + run < width && run < 65535 && same(x, x + run)) ++run;
        if (run >= 2) {
            if (run <= 128) {
                putc(127 + run, f);
            } else {
                putc(128, f);
                putc(run >> 8, f);
                putc(run & 0xFF, f);
            }
            pixel(x);
            x += run;
            continue;
        }
        // Literal pixels up to the next pair of equal ones, at most 128.
        int start = x, count = 0;
        while (x < width && count < 128 && !(x + 1 < width && same(x, x + 1))) {
            ++x;
            ++count;
        }
        putc(count - 1, f);
        for (int i = start; i < start + count; ++i) pixel(i);
    }
    return !ferror(f);
}

}  // namespace

int picWriteScanline(FILE *stream, int width, int planes, const uint8_t *r, const uint8_t *g,
                     const uint8_t *b, const uint8_t *a) {
    const uint8_t *rgb[3] = {r, g, b};
    if (!writeRuns(stream, width, rgb, 3)) return 0;
    if (planes >= 4 && a && !writeRuns(stream, width, &a, 1)) return 0;
    return 1;
}

int picWriteImage(const char *name, const PictureInfo *image, int mode) {
    if (!image || !image->planes[0] || !image->planes[1] || !image->planes[2]) return 0;
    FILE *f = picOpenWrite(name, image, mode);
    if (!f) {
        report("Cannot finish writing %s\n", name);
        return 0;
    }
    const int w = image->width;
    bool ok = true;
    // The image keeps its bottom row first; the file its top row.
    for (int row = image->height - 1; row >= 0 && ok; --row) {
        size_t at = static_cast<size_t>(row) * w;
        if (mode == PIC_WRITE_PLANES) {
            // A packet a plane: the line holds each plane whole, in packet order.
            for (int k = 0; k < 4 && ok; ++k)
                if (image->planes[k])
                    ok = fwrite(image->planes[k] + at, 1, static_cast<size_t>(w), f) == static_cast<size_t>(w);
        } else {
            const uint8_t *a = image->planes[3] ? image->planes[3] + at : nullptr;
            ok = picWriteScanline(f, w, a ? 4 : 3, image->planes[0] + at, image->planes[1] + at,
                                  image->planes[2] + at, a);
        }
    }
    if (!isStandardStream(f)) ok = fclose(f) == 0 && ok;
    if (!ok) report("Cannot finish writing %s\n", name);
    return ok ? 1 : 0;
}
