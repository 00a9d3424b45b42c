// Reading take files: the header line by line, then the records of the file's
// type, and the end mark behind the last one.
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "channel.h"

namespace {

// The name the null pointer message gives this reader.
constexpr const char *kSourceName = "channel/chn_take";
constexpr const char *kStartOfData = "START-OF-DATA";
constexpr size_t kEndMarkLength = 11;  // strlen("END-OF-DATA")

#define TAKE_NULL_MESSAGE() fprintf(stderr, "%s(%d): NULL take file pointer\n", kSourceName, __LINE__)

// How the value of a header line is read.
enum class Field { Text, Count, Time, Boolean };

// The header lines between the type and the data, in file order, with the
// field each one fills; the key is also the word of its error message.
#define TAKE_HEADER_LINES(X)            \
    X("TAKE_FILE", Text, takeFile)      \
    X("SCENE_NAME", Text, sceneName)    \
    X("DRIVER_NAME", Text, driverName)  \
    X("NUM_DOFS", Count, dofCount)      \
    X("MIN_TIME", Time, minTime)        \
    X("MAX_TIME", Time, maxTime)        \
    X("START_TC", Text, startTc)        \
    X("END_TC", Text, endTc)            \
    X("DOF_GROUPED", Boolean, dofGrouped) \
    X("DOF_COUNTED", Boolean, dofCounted)

// Largest NUM_DOFS: the DOF of a BINARY record is a u16.
constexpr long kMaxDofs = 65536;

bool fail(const TakeFile *take, const char *what) {
    fprintf(stderr, "%s (line %d): Error -- expecting %s\n", take->path.c_str(), take->line, what);
    return false;
}

bool blank(const std::string &line) { return line.find_first_not_of(" \t") == std::string::npos; }

// One line into `out` without its end, counted. `ended` tells whether it had
// its '\n'. False at the end of the file, or for a line longer than
// TAKE_LINE_MAX (whose rest is read and dropped, `out` empty).
bool readLine(TakeFile *take, std::string &out, bool *ended, bool *tooLong) {
    char buffer[TAKE_LINE_MAX + 3];  // the line, "\r\n" and the zero
    *ended = false;
    *tooLong = false;
    out.clear();
    if (!fgets(buffer, sizeof buffer, take->stream)) return false;
    ++take->line;
    size_t length = strlen(buffer);
    if (length > 0 && buffer[length - 1] == '\n') {
        *ended = true;
        buffer[--length] = 0;
    } else if (!feof(take->stream)) {
        // Longer than the buffer: pass over the rest of it.
        int c;
        while ((c = fgetc(take->stream)) != EOF && c != '\n') {}
        *ended = c == '\n';
        *tooLong = true;
        return false;
    }
    if (length > 0 && buffer[length - 1] == '\r') buffer[--length] = 0;
    if (length > size_t(TAKE_LINE_MAX)) {
        *tooLong = true;
        return false;
    }
    out.assign(buffer, length);
    return true;
}

// The next header line that is neither a comment nor empty.
bool headerLine(TakeFile *take, std::string &line) {
    bool ended, tooLong;
    while (readLine(take, line, &ended, &tooLong)) {
        const size_t first = line.find_first_not_of(" \t");
        if (first == std::string::npos || line[first] == '#') continue;
        return true;
    }
    return false;
}

// "KEY : value" with any blanks around the key and the colon: the value with
// its blanks cut, or false when the line has another key or no value.
bool keyValue(const std::string &line, const char *key, std::string &value) {
    const size_t keyLength = strlen(key);
    const size_t start = line.find_first_not_of(" \t");
    if (start == std::string::npos || line.compare(start, keyLength, key) != 0) return false;
    const size_t colon = line.find_first_not_of(" \t", start + keyLength);
    if (colon == std::string::npos || line[colon] != ':') return false;
    const size_t from = line.find_first_not_of(" \t", colon + 1);
    if (from == std::string::npos) return false;
    value = line.substr(from);
    value.erase(value.find_last_not_of(" \t") + 1);
    return true;
}

bool parseCount(const std::string &text, int32_t *out) {
    errno = 0;
    char *end;
    const long n = strtol(text.c_str(), &end, 10);
    if (errno || *end || n < 0 || n > kMaxDofs) return false;
    *out = int32_t(n);
    return true;
}

// Any number strtof reads, whole: a value may be "nan" or "inf" as "%f" writes them.
bool parseNumber(const std::string &text, float *out) {
    char *end;
    const float f = strtof(text.c_str(), &end);
    if (*end || end == text.c_str()) return false;
    *out = f;
    return true;
}

bool parseTime(const std::string &text, float *out) { return parseNumber(text, out) && std::isfinite(*out); }

bool parseBoolean(const std::string &text, int32_t *out) {
    if (text == "TRUE") *out = 1;
    else if (text == "FALSE") *out = 0;
    else return false;
    return true;
}

bool parseText(const std::string &text, std::string *out) {
    *out = text;
    return true;
}

#define TAKE_PARSE_Text parseText
#define TAKE_PARSE_Count parseCount
#define TAKE_PARSE_Time parseTime
#define TAKE_PARSE_Boolean parseBoolean

// "%s V%f": a word, then the version behind a 'V'.
bool readPreamble(const std::string &line, float *version) {
    char word[TAKE_LINE_MAX + 1];
    float v;
    if (sscanf(line.c_str(), "%256s V%f", word, &v) != 2 || !std::isfinite(v) || v <= 0.0f) return false;
    *version = v;
    return true;
}

int typeOfName(const std::string &word) {
#define TAKE_X_TYPE(name, index, text) \
    if (word == text) return index;
    BW_TAKE_FILE_TYPES(TAKE_X_TYPE)
#undef TAKE_X_TYPE
    return -1;
}

uint32_t be32(const unsigned char *b) {
    return uint32_t(b[0]) << 24 | uint32_t(b[1]) << 16 | uint32_t(b[2]) << 8 | uint32_t(b[3]);
}

float beFloat(const unsigned char *b) {
    const uint32_t bits = be32(b);
    float f;
    memcpy(&f, &bits, 4);
    return f;
}

// Splits a record line into its four words; false for another count.
bool recordWords(const std::string &line, std::string words[4]) {
    size_t at = 0;
    for (int i = 0; i < 5; ++i) {
        const size_t from = line.find_first_not_of(" \t", at);
        if (from == std::string::npos) return i == 4;
        if (i == 4) return false;
        at = line.find_first_of(" \t", from);
        words[i] = line.substr(from, at == std::string::npos ? std::string::npos : at - from);
        if (at == std::string::npos) return i == 3;
    }
    return false;
}

bool parseInt(const std::string &text, long low, long high, long *out) {
    errno = 0;
    char *end;
    const long n = strtol(text.c_str(), &end, 10);
    if (errno || *end || end == text.c_str() || n < low || n > high) return false;
    *out = n;
    return true;
}

// "%f %d %d %f": time, DOF, status, value. The status may be written as the
// u32 of a BINARY record.
bool parseRecord(const std::string &line, int32_t *dof, int32_t *status, float *value, float *time) {
    std::string w[4];
    long d, s;
    float t, v;
    if (!recordWords(line, w)) return false;
    if (!parseTime(w[0], &t) || !parseInt(w[1], 0, kMaxDofs - 1, &d) ||
        !parseInt(w[2], long(INT32_MIN), long(UINT32_MAX), &s) || !parseNumber(w[3], &v))
        return false;
    *time = t;
    *dof = int32_t(d);
    *status = int32_t(uint32_t(s));
    *value = v;
    return true;
}

int readAsciiRecord(TakeFile *take, int32_t *dof, int32_t *status, float *value, float *time) {
    std::string line;
    for (;;) {
        const long at = ftell(take->stream);
        const int32_t lineBefore = take->line;
        bool ended, tooLong;
        const bool read = readLine(take, line, &ended, &tooLong);
        if (!read && !tooLong) return 0;  // the end of the file
        if (read && ended && (blank(line) || line[line.find_first_not_of(" \t")] == '#')) continue;
        // A line cut by the end of the file is no record: the writer ends each one.
        if (read && ended && parseRecord(line, dof, status, value, time)) return 1;
        // The end mark, or what stands in its place, is left for the check.
        if (at >= 0) fseek(take->stream, at, SEEK_SET);
        take->line = lineBefore;
        return 0;
    }
}

int readBinaryRecord(TakeFile *take, int32_t *dof, int32_t *status, float *value, float *time) {
    unsigned char b[BW_TAKE_BINARY_RECORD_SIZE];
    const long at = ftell(take->stream);
    const size_t n = fread(b, 1, sizeof b, take->stream);
    // The end mark is told by all of its eleven characters: a record would
    // need DOF 0x454E and a status and value spelling the rest.
    if (n < sizeof b || memcmp(b, TAKE_END_OF_DATA, kEndMarkLength) == 0) {
        if (at >= 0) fseek(take->stream, at, SEEK_SET);
        return 0;
    }
    *dof = int32_t(uint32_t(b[0]) << 8 | b[1]);
    *status = int32_t(be32(b + 4));
    *value = beFloat(b + 8);
    *time = beFloat(b + 12);
    return 1;
}

}  // namespace

const char *takeFileTypeName(int type) {
#define TAKE_X_NAME(name, index, text) \
    if (type == index) return text;
    BW_TAKE_FILE_TYPES(TAKE_X_NAME)
#undef TAKE_X_NAME
    return nullptr;
}

int takeFileReadHeader(TakeFile *take, const char *fileName) {
    if (!take) {
        TAKE_NULL_MESSAGE();
        return 0;
    }
    FILE *stream = take->stream;
    const std::string path = fileName ? fileName : take->path;
    *take = TakeFile{};
    take->stream = stream;
    take->path = path;
    if (!take->stream) {
        if (!fileName) {
            TAKE_NULL_MESSAGE();
            return 0;
        }
        take->stream = fopen(fileName, "rb");
        if (!take->stream) {
            fprintf(stderr, "%s: %s\n", fileName, strerror(errno));
            return 0;
        }
    }
    std::string line, value;
    if (!headerLine(take, line) || !readPreamble(line, &take->version)) return fail(take, "preamble");
    if (take->version >= TAKE_VERSION_TYPED) {
        if (!headerLine(take, line) || !keyValue(line, "FILE_TYPE", value) || typeOfName(value) < 0)
            return fail(take, "valid take file type");
        take->type = typeOfName(value);
    }
#define TAKE_X_LINE(key, kind, field)                                                 \
    if (!headerLine(take, line) || !keyValue(line, key, value) ||                     \
        !TAKE_PARSE_##kind(value, &take->field))                                      \
        return fail(take, key);
    TAKE_HEADER_LINES(TAKE_X_LINE)
#undef TAKE_X_LINE
    if (!headerLine(take, line)) return fail(take, "start data token");
    line.erase(line.find_last_not_of(" \t") + 1);
    if (line != kStartOfData) return fail(take, "start data token");
    return 1;
}

int takeFileReadRecord(TakeFile *take, void *reserved, int32_t *dof, int32_t *status, float *value,
                       float *time) {
    (void)reserved;
    if (!take || !take->stream) {
        TAKE_NULL_MESSAGE();
        return 0;
    }
    int32_t d = 0, s = 0;
    float v = 0.0f, t = 0.0f;
    const int got = take->type == BW_TAKE_FILE_BINARY ? readBinaryRecord(take, &d, &s, &v, &t)
                                                      : readAsciiRecord(take, &d, &s, &v, &t);
    if (!got) return 0;
    if (dof) *dof = d;
    if (status) *status = s;
    if (value) *value = v;
    if (time) *time = t;
    return 1;
}

int takeFileIsComplete(FILE *stream) {
    if (!stream) return 0;
    char buffer[TAKE_LINE_MAX + 3];
    if (!fgets(buffer, sizeof buffer, stream)) return 0;
    size_t length = strlen(buffer);
    if (length > 0 && buffer[length - 1] == '\n') buffer[--length] = 0;
    if (length > 0 && buffer[length - 1] == '\r') buffer[--length] = 0;
    return strcmp(buffer, TAKE_END_OF_DATA) == 0 ? 1 : 0;
}

void takeFileClose(TakeFile *take) {
    if (!take || !take->stream) return;
    fclose(take->stream);
    take->stream = nullptr;
}
