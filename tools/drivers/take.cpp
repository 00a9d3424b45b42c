// take: plays a recorded take file back as an input driver. Each value comes out
// at the time it was recorded: at a sample of run time t, every DOF holds the
// last record of that DOF whose time is t or earlier. The DOFs are the file's.
//
//   take [-BW_RUN] [-record file] TAKEFILE
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bwdriver.h"

namespace {

struct Record {
    float time;   // seconds of the run
    int dof;      // DOF index
    float value;  // value of the DOF from that time on
};

struct Playback {
    std::string fileName;          // the take file, for messages
    int dofCount = 0;              // NUM_DOFS of the header
    int type = BW_TAKE_FILE_ASCII; // FILE_TYPE, ASCII before version 1.1
    std::vector<Record> records;   // in time order
    size_t next = 0;               // first record not played yet
    std::vector<float> current;    // per DOF, the value of its last record played
    std::vector<char> started;     // per DOF, 1 once a record of it was played
};

constexpr size_t kMaxLine = 256;  // characters of a header line

// Header lines after the first, in order: key and the word of its message.
const char *const kHeaderKeys[] = {"TAKE_FILE", "SCENE_NAME", "DRIVER_NAME", "NUM_DOFS", "MIN_TIME",
                                   "MAX_TIME",  "START_TC",   "END_TC",      "DOF_GROUPED", "DOF_COUNTED"};

// The reader of a file held in memory: lines of the header, then the data.
struct Reader {
    const std::string &bytes;
    size_t at = 0;
    int line = 0;

    // Next line that is not a comment and not empty, without its line end.
    bool nextLine(std::string &out) {
        while (at < bytes.size()) {
            size_t end = bytes.find('\n', at);
            if (end == std::string::npos) end = bytes.size();
            out = bytes.substr(at, end - at);
            at = end < bytes.size() ? end + 1 : end;
            ++line;
            if (!out.empty() && out.back() == '\r') out.pop_back();
            if (out.size() > kMaxLine) out.resize(kMaxLine);
            if (out.empty() || out[0] == '#') continue;
            return true;
        }
        return false;
    }
};

bool fail(const Playback &p, const Reader &r, const char *what) {
    fprintf(stderr, "%s (line %d): Error -- expecting %s\n", p.fileName.c_str(), r.line, what);
    return false;
}

// "\tKEY : value": the value of the key, or false when the line has another key.
bool keyValue(const std::string &line, const char *key, std::string &value) {
    size_t start = line.find_first_not_of(" \t");
    if (start == std::string::npos || line.compare(start, strlen(key), key) != 0) return false;
    size_t colon = line.find(':', start + strlen(key));
    if (colon == std::string::npos || line.find_first_not_of(" \t", start + strlen(key)) != colon) return false;
    size_t v = line.find_first_not_of(" \t", colon + 1);
    value = v == std::string::npos ? "" : line.substr(v);
    while (!value.empty() && (value.back() == ' ' || value.back() == '\t')) value.pop_back();
    return true;
}

bool readHeader(Playback &p, Reader &r) {
    std::string line, value;
    char word[kMaxLine + 1];
    float version = 0.0f;
    if (!r.nextLine(line) || sscanf(line.c_str(), "%256s V%f", word, &version) != 2)
        return fail(p, r, "preamble");
    if (version >= 1.1f - 1e-4f) {
        if (!r.nextLine(line) || !keyValue(line, "FILE_TYPE", value)) return fail(p, r, "valid take file type");
        int type = -1;
#define BW_X_TAKE_MATCH(name, index, text) if (value == text) type = index;
        BW_TAKE_FILE_TYPES(BW_X_TAKE_MATCH)
#undef BW_X_TAKE_MATCH
        if (type < 0) return fail(p, r, "valid take file type");
        p.type = type;
    }
    for (const char *key : kHeaderKeys) {
        if (!r.nextLine(line) || !keyValue(line, key, value)) return fail(p, r, key);
        if (strcmp(key, "NUM_DOFS") == 0) {
            char *end;
            long n = strtol(value.c_str(), &end, 10);
            if (value.empty() || *end || n < 1 || n > BW_COMM_MAX_CHANNELS) return fail(p, r, key);
            p.dofCount = int(n);
        }
    }
    if (!r.nextLine(line) || line.compare(0, 13, "START-OF-DATA") != 0) return fail(p, r, "start data token");
    return true;
}

bool addRecord(Playback &p, int dof, float time, float value) {
    if (dof < 0 || dof >= p.dofCount) {
        fprintf(stderr, "%s: a record has DOF %d, the take has %d\n", p.fileName.c_str(), dof, p.dofCount);
        return false;
    }
    p.records.push_back({time, dof, value});
    return true;
}

uint32_t be32(const std::string &b, size_t at) {
    return uint32_t(uint8_t(b[at])) << 24 | uint32_t(uint8_t(b[at + 1])) << 16 |
           uint32_t(uint8_t(b[at + 2])) << 8 | uint32_t(uint8_t(b[at + 3]));
}

float beFloat(const std::string &b, size_t at) {
    uint32_t bits = be32(b, at);
    float f;
    memcpy(&f, &bits, 4);
    return f;
}

// BINARY: 16-byte records up to the "END-OF-DATA" line that ends the file.
bool readBinary(Playback &p, const Reader &r) {
    static const std::string kEnd = "END-OF-DATA";
    size_t end = r.bytes.rfind(kEnd);
    bool complete = end != std::string::npos && end >= r.at && (end - r.at) % BW_TAKE_BINARY_RECORD_SIZE == 0 &&
                    r.bytes.find_first_not_of("\r\n", end + kEnd.size()) == std::string::npos;
    if (!complete) {
        fprintf(stderr, "%s: no END-OF-DATA after the last record, the take is played as far as it goes\n",
                p.fileName.c_str());
        end = r.bytes.size();
    }
    for (size_t at = r.at; at + BW_TAKE_BINARY_RECORD_SIZE <= end; at += BW_TAKE_BINARY_RECORD_SIZE) {
        int dof = int(uint8_t(r.bytes[at])) << 8 | int(uint8_t(r.bytes[at + 1]));
        if (!addRecord(p, dof, beFloat(r.bytes, at + 12), beFloat(r.bytes, at + 8))) return false;
    }
    return true;
}

// ASCII and the types read as ASCII: "time DOF status value" lines to "END-OF-DATA".
bool readAscii(Playback &p, Reader &r) {
    std::string line;
    while (r.nextLine(line)) {
        if (line.compare(0, 11, "END-OF-DATA") == 0) return true;
        float time, value;
        int dof, status;
        char extra;
        if (sscanf(line.c_str(), "%f %d %d %f %c", &time, &dof, &status, &value, &extra) != 4) {
            fprintf(stderr, "%s (line %d): Error -- expecting a record \"time DOF status value\"\n",
                    p.fileName.c_str(), r.line);
            return false;
        }
        if (!addRecord(p, dof, time, value)) return false;
    }
    fprintf(stderr, "%s: no END-OF-DATA after the last record, the take is played as far as it goes\n",
            p.fileName.c_str());
    return true;
}

bool load(Playback &p) {
    FILE *f = fopen(p.fileName.c_str(), "rb");
    if (!f) {
        fprintf(stderr, "take: cannot read take file '%s'\n", p.fileName.c_str());
        return false;
    }
    std::string bytes;
    char buffer[65536];
    size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, f)) > 0) bytes.append(buffer, n);
    fclose(f);
    Reader r{bytes};
    if (!readHeader(p, r)) return false;
    if (!(p.type == BW_TAKE_FILE_BINARY ? readBinary(p, r) : readAscii(p, r))) return false;
    p.current.assign(size_t(p.dofCount), 0.0f);
    p.started.assign(size_t(p.dofCount), 0);
    std::stable_sort(p.records.begin(), p.records.end(),
                     [](const Record &a, const Record &b) { return a.time < b.time; });
    return true;
}

int sample(BW_Driver *drv, double time, void *user) {
    Playback &p = *static_cast<Playback *>(user);
    while (p.next < p.records.size() && double(p.records[p.next].time) <= time) {
        const Record &r = p.records[p.next++];
        p.current[size_t(r.dof)] = r.value;
        p.started[size_t(r.dof)] = 1;
    }
    // Every sample carries every DOF that has begun, so that the viewer reads a
    // held value in each cycle, not only in the cycle of a new record.
    for (int dof = 0; dof < p.dofCount; ++dof)
        if (p.started[size_t(dof)]) driverSetDofValue(drv, dof, p.current[size_t(dof)]);
    return 1;
}

}  // namespace

int main(int argc, char **argv) {
    BW_DriverArgs args;
    if (!driverParseArgs(argc, argv, &args)) return 2;
    if (args.restCount != 1) {
        fprintf(stderr, "take: usage: take [-BW_RUN] [-record file] TAKEFILE\n");
        return 2;
    }
    Playback playback;
    playback.fileName = args.rest[0];
    if (!load(playback)) return 2;
    std::vector<int> directions(size_t(playback.dofCount), BW_DOF_INPUT);
    BW_DriverDesc desc{};
    desc.name = "take";
    desc.versionText = "take 1.0";
    desc.dofCount = playback.dofCount;
    desc.directions = directions.data();
    desc.sample = sample;
    desc.user = &playback;
    return driverRun(&desc, &args);
}
