// Element files: the big-endian frame shared by every binary element file
// (header, tokens, prototype tables, strings, sized blocks) and the short
// headers of the ascii files of the same family.
//
// Every read goes through a BinReader, which knows the size of the file and
// checks each read against it. The first failure is printed once, kept in the
// reader, and makes every later read give zeros, so that a token loop over a
// damaged file ends on the token 0 it then sees. Nothing is allocated beyond
// what the bytes left in the file can fill.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

// ---------------------------------------------------------------------------
// File ids, versions and magics

// The four characters of a magic or chunk tag as a big-endian word.
constexpr uint32_t fourCC(const char (&text)[5]) {
    return (static_cast<uint32_t>(static_cast<unsigned char>(text[0])) << 24) |
           (static_cast<uint32_t>(static_cast<unsigned char>(text[1])) << 16) |
           (static_cast<uint32_t>(static_cast<unsigned char>(text[2])) << 8) |
           static_cast<uint32_t>(static_cast<unsigned char>(text[3]));
}

enum BinFileId : uint32_t {
    BIN_ID_GENERAL = 0x5380F634,       // general binary; also what the .hrc writer uses
    BIN_ID_ANIMATION = 0x5380F635,
    BIN_ID_CAMERA = 0x5380F636,
    BIN_ID_CLUSTER_KEYS = 0x5380F637,
    BIN_ID_LATTICE = 0x5380F638,
    BIN_ID_LIGHT = 0x5380F639,
    BIN_ID_MATERIAL = 0x5380F640,
    BIN_ID_MODEL = 0x5380F641,
    BIN_ID_SHAPE_KEYS = 0x5380F642,
    BIN_ID_TEXTURE2D = 0x5380F643,
    BIN_ID_TEXTURE3D = 0x5380F644,
    BIN_ID_STRUCT_KEYS = 0x5380F646,
};
constexpr uint32_t BIN_ID_FIRST = 0x5380F634;  // lowest binary file id
constexpr uint32_t BIN_ID_END = 0x5380F647;    // one past the highest

constexpr int BIN_HEADER_SIZE = 88;   // bytes of the binary file header
constexpr int BIN_COMMENT_SIZE = 80;  // bytes of its comment field
constexpr float BIN_VERSION = 4.0f;            // version this code writes
constexpr float BIN_VERSION_WARN = 4.0001f;    // versions above this call the hook
constexpr const char *BIN_DEFAULT_COMMENT = "No comment...";

// Magics of the ascii files of the family.
constexpr uint32_t MAGIC_SDSC = fourCC("SDSC");  // scene, 2.6 and later
constexpr uint32_t MAGIC_SSCN = fourCC("SSCN");  // scene before 2.6; no version follows
constexpr uint32_t MAGIC_SSET = fourCC("SSET");  // setup
constexpr uint32_t MAGIC_SCHN = fourCC("SCHN");  // channel setup
constexpr uint32_t MAGIC_SFLK = fourCC("SFLK");  // flock setup
constexpr uint32_t MAGIC_SWAV = fourCC("SWAV");  // wave
constexpr uint32_t MAGIC_SREL = fourCC("SREL");  // relations resources
constexpr uint32_t MAGIC_SDRV = fourCC("SDRV");  // driver description
constexpr uint32_t MAGIC_CLUS = fourCC("CLUS");  // cluster keys
constexpr uint32_t MAGIC_PROT = fourCC("PROT");  // prototype table in a binary file

int binIsFileId(uint32_t id);         // 1 for an id of the binary range
int asciiIsMagic(uint32_t magic);     // 1 for any magic of the ascii family
// Display name of a binary id or ascii magic; null for one without a name
// (the shader kinds, the unnamed id 0x5380F645, anything else).
const char *fileTypeName(uint32_t magic);

// Called when a binary header carries a version above BIN_VERSION_WARN; a
// return of 0 refuses the file. No hook is set at start.
using BinVersionHook = int (*)(const char *file, float version);
BinVersionHook binSetVersionHook(BinVersionHook hook);  // returns the old hook

// Version of the binary file being read, set by binReadHeader, for record
// readers whose fields depend on the version rather than on a token.
extern float g_binFileVersion;

// ---------------------------------------------------------------------------
// Tokens

constexpr uint16_t BIN_TOKEN_END = 0;     // ends a record
constexpr int BIN_SKIP_NONE = 0;          // high byte: the value cannot be skipped
constexpr int BIN_SKIP_SIZED = 255;       // high byte: an i32 size and that many bytes follow
constexpr int tokenField(uint16_t token) { return token & 0xFF; }  // field number
constexpr int tokenSkip(uint16_t token) { return token >> 8; }     // skip rule

// ---------------------------------------------------------------------------
// Reader and writer records

// The file is taken whole into memory and decoded from there. A large file is
// read by a helper thread in blocks while decoding goes on behind it; a read of
// bytes not there yet waits for them. The stream itself is positioned only by
// binSeekTo and by the ascii header's version token, so that a caller may go
// on from there with the token reader.
struct BinBytes;  // the file's bytes and the state of their loading

struct BinReader {
    FILE *file = nullptr;   // the stream; its bytes are decoded from `data`
    const uint8_t *data = nullptr;   // the file's bytes, `size` of them once all are read
    // Owner of data. Shared so that a copy of the reader stays valid after the
    // original is gone.
    std::shared_ptr<BinBytes> bytes;
    int64_t ready = 0;      // bytes of data known to be there; more may come
    std::string name;       // file name in messages
    int64_t size = 0;       // bytes in the file
    int64_t pos = 0;        // offset of the next byte
    int owned = 0;          // 1: binReaderClose closes the stream
    int failed = 0;         // 1 after the first failure; later reads give zeros
    std::string error;      // text of the first failure, empty before
    float version = 0.0f;   // file version from the header; 0 before it is read
};

// Files of at least `minBytes` are read by a helper thread, in blocks of
// `blockBytes`; smaller ones at once. Defaults 8 MB and 2 MB; for tests and
// tuning, taking effect at the next open.
void binSetBackgroundRead(int64_t minBytes, int64_t blockBytes);

struct BinWriter {
    FILE *file = nullptr;   // the stream written to
    std::string name;       // file name in messages
    int64_t pos = 0;        // bytes written
    int owned = 0;          // 1: binWriterClose closes the stream
    int failed = 0;         // 1 after the first failure; later writes are dropped
    std::string error;      // text of the first failure, empty before
};

// Opens `path` with "rb". 0 when it cannot be opened: r.error says why and
// nothing is printed, as a missing element is the caller's to report.
int binReaderOpen(BinReader &r, const char *path);
// Reads an open seekable stream from its current position; `name` is for messages.
int binReaderAttach(BinReader &r, FILE *stream, const char *name);
void binReaderClose(BinReader &r);
int64_t binRemaining(const BinReader &r);  // bytes left behind pos
// 1 if `count` items of at least `itemBytes` each can still be in the file;
// otherwise the reader fails. Record readers call it before allocating arrays.
int binCheckCount(BinReader &r, int64_t count, int64_t itemBytes);
// Marks the file as damaged: "Damaged file <name> at offset <pos>: <what>".
// Only the first failure is printed and kept. Returns 0.
int binFail(BinReader &r, const char *what);

int binWriterOpen(BinWriter &w, const char *path);  // "wb"; 0 with w.error set
int binWriterAttach(BinWriter &w, FILE *stream, const char *name);
int binWriterClose(BinWriter &w);  // 1 if every write and the close succeeded

// ---------------------------------------------------------------------------
// Values

// Reads `count` items of `size` bytes, swapping items of 2, 4 and 8 bytes from
// big-endian; other sizes are left alone. Returns the whole items read; the
// rest of the buffer is zeroed.
size_t binRead(BinReader &r, void *buffer, size_t size, size_t count);
uint8_t binReadU8(BinReader &r);
int16_t binReadI16(BinReader &r);
uint16_t binReadU16(BinReader &r);
int32_t binReadI32(BinReader &r);
uint32_t binReadU32(BinReader &r);
float binReadF32(BinReader &r);    // checked like binReadFloats
double binReadF64(BinReader &r);   // checked like binReadDoubles
size_t binReadI16s(BinReader &r, int16_t *values, size_t count);
size_t binReadU16s(BinReader &r, uint16_t *values, size_t count);
size_t binReadI32s(BinReader &r, int32_t *values, size_t count);
size_t binReadU32s(BinReader &r, uint32_t *values, size_t count);
// Float data is made usable: NaN becomes 0, an infinity the largest finite
// value of its sign, a subnormal 0.
size_t binReadFloats(BinReader &r, float *values, size_t count);
size_t binReadDoubles(BinReader &r, double *values, size_t count);
size_t binReadFloat3(BinReader &r, float values[3]);
// A zero-terminated string (or one cut by the end of the file), malloc'ed to
// its length; null when not a byte was left. The caller frees it.
char *binReadStr(BinReader &r);
// A sized block: i32 count, then the bytes, malloc'ed; null for size 0 or a
// failure. `size` receives the count (0 on failure). The caller frees it.
uint8_t *binReadBlock(BinReader &r, int32_t *size);
// Four characters of a chunk tag into `tag` with a terminating zero; 1 if read.
int binReadTag(BinReader &r, char tag[5]);

// Writes `count` items of `size` bytes in big-endian order. The buffer is not
// touched: items are swapped in a copy. Returns the items written.
size_t binWrite(BinWriter &w, const void *buffer, size_t size, size_t count);
int binWriteU8(BinWriter &w, uint8_t value);
int binWriteI16(BinWriter &w, int16_t value);
int binWriteU16(BinWriter &w, uint16_t value);
int binWriteI32(BinWriter &w, int32_t value);
int binWriteU32(BinWriter &w, uint32_t value);
int binWriteF32(BinWriter &w, float value);
int binWriteF64(BinWriter &w, double value);
size_t binWriteFloats(BinWriter &w, const float *values, size_t count);
size_t binWriteDoubles(BinWriter &w, const double *values, size_t count);
int binWriteStr(BinWriter &w, const char *text);  // bytes and the zero; null writes ""
int binWriteBlock(BinWriter &w, const void *data, int32_t size);  // i32 size, bytes
int binWriteTag(BinWriter &w, const char *tag);   // the first four characters

// ---------------------------------------------------------------------------
// Headers

// Reads the 88-byte header. Returns the file id, or -1 with the stream back
// where it was for anything else (short file, id out of range, version refused
// by the hook). Sets r.version and g_binFileVersion. `comment`, if not null,
// gets the 80 characters and a terminating zero (81 bytes).
int32_t binReadHeader(BinReader &r, float *version, char *comment);
// Writes the header; a null comment writes BIN_DEFAULT_COMMENT, a longer one
// is cut at 80 characters. Returns the bytes written.
int binWriteHeader(BinWriter &w, uint32_t id, float version, const char *comment);
// The ascii header of the relations resources and setup files: one of SDSC,
// SSET, SCHN, SFLK, SWAV, SREL, SDRV, CLUS, then a version token. Returns the
// magic, or -1 with the stream back where it was.
int32_t asciiReadHeader(BinReader &r, float *version);
// Any header of the family. Binary: as binReadHeader, *isAscii 0. Ascii: the
// magic and its version token, *isAscii 1; SSCN has no version (*version 0).
// -1 with the stream back where it was for anything else.
int32_t fileReadMagic(BinReader &r, int *isAscii, float *version);

// ---------------------------------------------------------------------------
// Prototypes and token loops

constexpr int PROTO_ID_COUNT = 32;  // record ids below this; those in use are 3 and 5 to 31

struct Prototype {
    std::vector<uint16_t> lists[PROTO_ID_COUNT];  // per record id: tokens ending with 0; empty for none
};

Prototype *protoNew();             // an empty table; null if out of memory
void protoFree(Prototype *proto);
int protoKnownId(int id);          // 1 for a record id in use
// Gives record `id` the list `tokens`; a final 0 is added when missing.
int protoSet(Prototype &proto, int id, const uint16_t *tokens, size_t count);
const uint16_t *protoList(const Prototype *proto, int id);  // null when the id has no list
// Reads the table that follows "PROT". Lists of ids not in use are dropped.
int protoRead(BinReader &r, Prototype &proto);
// Writes "PROT", every list in ascending order of id, and the ending 0.
int protoWrite(BinWriter &w, const Prototype &proto);

// Where a record's tokens come from: its prototype list, or the stream.
struct TokenCursor {
    const uint16_t *list = nullptr;  // list of the record type; null: tokens are on disk
    size_t count = 0;                // tokens in the list, the 0 included
    size_t pos = 0;                  // next position in the list
    int recordId = 0;                // record type
};

// First token of a record of type `recordId`, from its list when `proto` has
// one, from the stream otherwise.
uint16_t binFirstToken(BinReader &r, const Prototype *proto, int recordId, TokenCursor &cur);
uint16_t binNextToken(BinReader &r, TokenCursor &cur);
// Skips the value of a token the reader does not know: 1 if skipped; 0, and
// nothing consumed, for a token whose high byte is 0.
int binSkip(BinReader &r, uint16_t token);

// The writing twins: with a list, tokens are not written but must follow the
// list; without one, each token is written and the record ends with a 0.
void binWriteBegin(BinWriter &w, const Prototype *proto, int recordId, TokenCursor &cur);
int binWriteToken(BinWriter &w, TokenCursor &cur, uint16_t token);
int binWriteEnd(BinWriter &w, TokenCursor &cur);

// The start of an element file: header, optional "PROT" table, chunk tag.
// Returns the file id, or -1 when the header is not binary or the table or tag
// cannot be read.
int32_t binReadFileStart(BinReader &r, Prototype &proto, char tag[5]);
// Header, the table when `proto` is not null, and the tag.
int binWriteFileStart(BinWriter &w, uint32_t id, float version, const char *comment,
                      const Prototype *proto, const char *tag);

// ---------------------------------------------------------------------------
// Pictures (.pic): run-length coded planes behind the general binary header.

struct PictureInfo {
    uint16_t width;        // pixels
    uint16_t height;       // pixels
    float ratio;           // pixel ratio; width / height (in integers) when the file has 0
    uint16_t fields;       // meaning of the scan lines for interlaced display; kept
    uint16_t padding;      // kept
    uint8_t *planes[4];    // red, green, blue, alpha; width x height bytes each, bottom row
                           // first; null for a plane the file lacks
};

struct PicturePacket {
    uint8_t size;          // bits per channel
    uint8_t compression;   // 0 none, 2 mixed run length, others ignored
    uint8_t channels;      // 0x80 red, 0x40 green, 0x20 blue, 0x10 alpha
    uint16_t active;       // planes of the packet
    PicturePacket *next;   // next packet of the chain
};

constexpr int PIC_WRITE_RUNS = 0;    // RGB packet and alpha packet, run-length coded
constexpr int PIC_WRITE_PLANES = 1;  // one uncompressed packet per plane
constexpr size_t PIC_MAX_PIXELS = size_t{1} << 26;  // largest picture read

// Header, fixed fields and packet chain; messages name the file. 1 if sound.
int picReadHeaderFromStream(FILE *stream, const char *name, PictureInfo *info, float *ratio,
                            char *comment, PicturePacket **packets);
// Opens `name` ("-" standard input) and reads its header. 1 if sound.
int picOpenRead(const char *name, FILE **stream, PictureInfo *info, float *ratio, char *comment,
                PicturePacket **packets);
// One scan line into row `row` of the planes; 0 on damage or a run past the line.
int picReadScanline(FILE *stream, PicturePacket *packets, PictureInfo *info, int row);
// The whole picture, planes allocated; a file that ends early leaves rows zero.
// A run past the end of a line fails the picture: 0, nothing allocated.
int picRead(const char *name, PictureInfo *info);
void picFree(PictureInfo *info);  // the planes
void picPacketsFree(PicturePacket *packets);
// Header and packets of a new picture; ".pic" added when missing, "-..."
// writes to standard output. Null on failure.
FILE *picOpenWrite(const char *name, const PictureInfo *info, int mode);
// One line in the mixed form: RGB runs, then alpha runs when planes is 4.
int picWriteScanline(FILE *stream, int width, int planes, const uint8_t *r, const uint8_t *g,
                     const uint8_t *b, const uint8_t *a);
int picWriteImage(const char *name, const PictureInfo *image, int mode);
