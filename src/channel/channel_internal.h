// The steps of a driver's start that the run and the tests share.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct ChannelDriver;

// Writes the start words of driver `index` into the block (its semaphore pair,
// run mode, slots) and clears `driverPid` for the handshake.
void commPrepareDriver(int index, int semaphoreIndex, int firstChannel, int channelCount, int runMode,
                       float frequency);
// Seconds a starting driver has to answer: BW_DRIVER_TIMEOUT, 7 when below 1 or unset.
int commDriverTimeout();
// Waits in steps of 100 ms for `pid` in `driverPid`, checks magic and version,
// and marks the driver running, taking its turn when it is synced. 1 on success;
// `timedOut` is set when the time ran out. `pidfd` (or -1) ends the wait early
// when the process ends, and is kept by the driver's row on success.
int commAwaitDriver(int index, const char *baseName, uint32_t pid, int pidfd, int *timedOut);
// Removes the temporary files handed to the drivers of the run.
void commRemoveBufferFiles();
// Words of a driver's command line, the executable first: the local, take,
// broadcast, remote and listen forms, as the driver's `remote` word and files ask.
std::vector<std::string> commDriverWords(int index, const char *executable, int channelCount,
                                         const ChannelDriver *driver);
