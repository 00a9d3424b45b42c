// The take file: a header of the take, one line (ASCII) or one 16-byte record
// (BINARY) a value, the end mark.
#include "driverkit_take.h"

#include "bwdriver.h"

#include <arpa/inet.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <cstdarg>
#include <cstdio>

namespace bwkit {

namespace {

// Frames a second of the time codes in the header.
constexpr int kTimeCodeRate = 30;

std::string timeCode(float seconds) {
    long frames = std::lround(double(seconds) * kTimeCodeRate);
    if (frames < 0) frames = 0;
    char text[32];
    snprintf(text, sizeof text, "%02ld:%02ld:%02ld:%02ld", frames / (3600L * kTimeCodeRate),
             frames / (60L * kTimeCodeRate) % 60, frames / kTimeCodeRate % 60, frames % kTimeCodeRate);
    return text;
}

void appendf(std::string &out, const char *format, ...) __attribute__((format(printf, 2, 3)));
void appendf(std::string &out, const char *format, ...) {
    char line[1024];
    va_list args;
    va_start(args, format);
    vsnprintf(line, sizeof line, format, args);
    va_end(args);
    out += line;
}

// A header line of text: "NONE" for an empty value, and the value cut so that
// the line keeps to the readers' length. A line end or a blank at either end of
// the value would not read back: line ends become blanks, and "NONE" stands in
// for a value of blanks only.
void appendText(std::string &out, const char *key, const std::string &value) {
    std::string text = value;
    for (char &c : text)
        if (c == '\n' || c == '\r') c = ' ';
    const size_t from = text.find_first_not_of(" \t");
    text = from == std::string::npos ? "" : text.substr(from, text.find_last_not_of(" \t") - from + 1);
    if (text.empty()) text = "NONE";
    const size_t room = BW_TAKE_LINE_MAX - strlen(key);
    if (text.size() > room) text.resize(room);
    out += key;
    out += text;
    out += '\n';
}

const char *typeWord(int type) {
#define BW_X_TAKE_WORD(name, value, word) if (type == value) return word;
    BW_TAKE_FILE_TYPES(BW_X_TAKE_WORD)
#undef BW_X_TAKE_WORD
    return "ASCII";
}

void append32(std::string &out, uint32_t word) {
    uint32_t net = htonl(word);
    out.append(reinterpret_cast<const char *>(&net), 4);
}

// One BINARY record: u16 DOF, two unused bytes, u32 status, f32 value, f32 time.
void appendBinary(std::string &out, const TakeRecord &r) {
    uint16_t dof = htons(uint16_t(r.dof));
    out.append(reinterpret_cast<const char *>(&dof), 2);
    out.append(2, '\0');
    append32(out, uint32_t(r.count));
    uint32_t bits;
    memcpy(&bits, &r.value, 4);
    append32(out, bits);
    memcpy(&bits, &r.time, 4);
    append32(out, bits);
}

}  // namespace

std::string takeText(const Take &take) {
    float minTime = 0.0f, maxTime = 0.0f;
    if (!take.records.empty()) {
        minTime = maxTime = take.records.front().time;
        for (const TakeRecord &r : take.records) {
            minTime = std::fmin(minTime, r.time);
            maxTime = std::fmax(maxTime, r.time);
        }
    }
    std::string out;
    appendf(out, "%s V%f\n", "BRAK_TAKE", 1.1);
    appendf(out, "\tFILE_TYPE  : %s\n", typeWord(take.type));
    appendText(out, "\tTAKE_FILE   : ", take.path);
    appendText(out, "\tSCENE_NAME  : ", take.sceneName);
    appendText(out, "\tDRIVER_NAME : ", take.driverName);
    appendf(out, "\tNUM_DOFS    : %d\n", take.dofCount);
    appendf(out, "\tMIN_TIME    : %f\n", double(minTime));
    appendf(out, "\tMAX_TIME    : %f\n", double(maxTime));
    appendf(out, "\tSTART_TC    : %s\n", timeCode(minTime).c_str());
    appendf(out, "\tEND_TC      : %s\n", timeCode(maxTime).c_str());
    appendf(out, "\tDOF_GROUPED : %s\n", "TRUE");
    appendf(out, "\tDOF_COUNTED : %s\n", "TRUE");
    out += "START-OF-DATA\n";
    for (const TakeRecord &r : take.records)
        if (take.type == BW_TAKE_FILE_BINARY) appendBinary(out, r);
        else appendf(out, "%f %d %d %f\n", double(r.time), r.dof, r.count, double(r.value));
    out += "END-OF-DATA\n";
    return out;
}

bool takeWrite(const Take &take) {
    FILE *f = fopen(take.path.c_str(), "wb");
    if (!f) return false;
    std::string text = takeText(take);
    bool ok = fwrite(text.data(), 1, text.size(), f) == text.size();
    return fclose(f) == 0 && ok;
}

}  // namespace bwkit
