// take: plays a recorded take file back as an input driver. Each value comes out
// at the time it was recorded: at a sample of run time t, every DOF holds the
// last record of that DOF whose time is t or earlier. The DOFs are the file's.
//
//   take [-BW_RUN] [-record file] TAKEFILE
//   take [-BW_RUN] [-record file] [-file TAKEFILE]
// A viewer starts a driver with its own words only, so the file may stand in
// take.cfg beside the executable as "-file TAKEFILE".
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bwdriver.h"
#include "channel.h"
#include "driver_words.h"

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

bool addRecord(Playback &p, int dof, float time, float value) {
    if (dof < 0 || dof >= p.dofCount) {
        fprintf(stderr, "%s: a record has DOF %d, the take has %d\n", p.fileName.c_str(), dof, p.dofCount);
        return false;
    }
    p.records.push_back({time, dof, value});
    return true;
}

// The header, then every record up to the end mark, through the one take reader.
bool readTake(Playback &p, TakeFile &take) {
    if (!takeFileReadHeader(&take, p.fileName.c_str())) return false;
    if (take.dofCount < 1 || take.dofCount > BW_COMM_MAX_CHANNELS) {
        fprintf(stderr, "%s: NUM_DOFS is %d, a driver has 1 to %d\n", p.fileName.c_str(), take.dofCount,
                BW_COMM_MAX_CHANNELS);
        return false;
    }
    p.dofCount = take.dofCount;
    p.type = take.type;
    int32_t dof, status;
    float value, time;
    while (takeFileReadRecord(&take, nullptr, &dof, &status, &value, &time))
        if (!addRecord(p, dof, time, value)) return false;
    if (!takeFileIsComplete(take.stream))
        fprintf(stderr, "%s: no END-OF-DATA after the last record, the take is played as far as it goes\n",
                p.fileName.c_str());
    return true;
}

bool load(Playback &p) {
    TakeFile take;
    const bool read = readTake(p, take);
    takeFileClose(&take);
    if (!read) return false;
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
    Playback playback;
    if (args.restCount == 1 && args.rest[0][0] != '-') {
        playback.fileName = args.rest[0];
    } else {
        drivers::Options options;
        if (!drivers::readOptions("take", argv[0], args, {"file"}, {}, options)) return 2;
        playback.fileName = options.get("file", "");
    }
    if (playback.fileName.empty()) {
        fprintf(stderr, "take: usage: take [-BW_RUN] [-record file] TAKEFILE (or -file TAKEFILE in take.cfg)\n");
        return 2;
    }
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
