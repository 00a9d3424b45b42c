// Fuzz target: the take file reader on a whole file held in memory. With the
// low bit of the first byte set, a valid header of the type in the next two
// bits goes in front of the rest, so that most inputs reach the records. After
// the last record the stream must stand at a record's end: a whole number of
// 16-byte records into a BINARY file's data, the start of a line otherwise.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "channel.h"

namespace {

std::string validHeader(int type) {
    return std::string("BRAK_TAKE V1.100000\n\tFILE_TYPE  : ") + takeFileTypeName(type) +
           "\n\tTAKE_FILE   : t\n\tSCENE_NAME  : s\n\tDRIVER_NAME : d\n\tNUM_DOFS    : 2\n"
           "\tMIN_TIME    : 0\n\tMAX_TIME    : 1\n\tSTART_TC    : a\n\tEND_TC      : b\n"
           "\tDOF_GROUPED : TRUE\n\tDOF_COUNTED : TRUE\nSTART-OF-DATA\n";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string bytes;
    if (size > 0 && (data[0] & 1)) bytes = validHeader((data[0] >> 1) & 3) + std::string(data + 1, data + size);
    else bytes.assign(data, data + size);
    if (bytes.empty()) return 0;
    TakeFile take;
    take.stream = fmemopen(bytes.data(), bytes.size(), "rb");
    if (!take.stream) return 0;
    if (takeFileReadHeader(&take, "fuzz.chd")) {
        const long dataStart = ftell(take.stream);
        int32_t dof, status;
        float value, time;
        long records = 0;
        while (takeFileReadRecord(&take, nullptr, &dof, &status, &value, &time)) {
            if (dof < 0 || dof > 0xFFFF) abort();
            ++records;
        }
        const long at = ftell(take.stream);
        if (take.type == BW_TAKE_FILE_BINARY) {
            if (at - dataStart != records * BW_TAKE_BINARY_RECORD_SIZE) abort();
        } else if (at < dataStart || (at > dataStart && bytes[size_t(at) - 1] != '\n')) {
            abort();
        }
        takeFileIsComplete(take.stream);
    }
    takeFileClose(&take);
    return 0;
}
