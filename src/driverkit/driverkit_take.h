// The take file a driver writes between record on and record off.
#pragma once

#include <string>
#include <vector>

namespace bwkit {

struct TakeRecord {
    float time;   // seconds of the run
    int dof;      // the driver's DOF index
    int count;    // sample number since the driver started
    float value;  // value written to the slot
};

struct Take {
    std::string path;                // file to write
    std::string sceneName;           // the viewer's scene name, from the arena
    std::string driverName;          // the driver's name
    int dofCount = 0;                // DOFs of the driver
    int type = 0;                    // BW_TAKE_FILE_ASCII or BW_TAKE_FILE_BINARY
    std::vector<TakeRecord> records; // in the order they were written
};

// Bytes of the take file: header, records (lines, or 16-byte records in network
// order for a BINARY take), end mark.
std::string takeText(const Take &take);
// Writes takeText to take.path; false when the file cannot be written.
bool takeWrite(const Take &take);

}  // namespace bwkit
