// Errors reported by a driver through the block: a number, the driver's index
// and two flags, turned into the text the viewer prints.
#include <cstdio>
#include <string>

#include "bwdriver.h"
#include "channel.h"
#include "tol_status.h"

namespace {

// The common table, in the driver kit's order: both sides expand the one list.
#define BW_X_ERR_TEXT(name, text) text,
constexpr const char *kCommonErrors[] = {BW_DRIVER_COMMON_ERRORS(BW_X_ERR_TEXT)};
#undef BW_X_ERR_TEXT
static_assert(sizeof kCommonErrors / sizeof kCommonErrors[0] == BW_DERR_COUNT);

}  // namespace

const char *channelCommonErrorText(int number) {
    return number >= 0 && number < BW_DERR_COUNT ? kCommonErrors[number] : nullptr;
}

int commCheckDriverError(ChannelSetup *setup) {
    ChannelComm *comm = commBlock();
    if (!comm) return 0;
    const uint32_t flags = __atomic_load_n(&comm->errorFlags, __ATOMIC_ACQUIRE);
    if (!flags) return 0;
    const int number = static_cast<int>(comm->errorNumber);
    const int index = static_cast<int>(comm->errorDriver);
    // Cleared before it is printed: a driver that reports again while we print
    // is seen at the next check rather than lost.
    __atomic_store_n(&comm->errorFlags, 0u, __ATOMIC_RELEASE);

    const ChannelDriver *driver =
        setup && index >= 0 && index < setup->driverCount ? &setup->drivers[index] : nullptr;
    const std::string name = driver ? driver->name : "unknown";
    const char *text = nullptr;
    if (flags & BW_DRVERR_COMMON) text = channelCommonErrorText(number);
    else if (driver && number >= 0 && number < static_cast<int>(driver->errors.size()))
        text = driver->errors[number].c_str();
    const bool fatal = flags & BW_DRVERR_FATAL;
    const uint32_t messageClass = fatal ? TOL_CLASS_ERROR : TOL_CLASS_WARNING;
    if (text) msgShowf(messageClass, "from %s driver: %s", name.c_str(), text);
    else msgShowf(messageClass, "from %s driver: error number %d", name.c_str(), number);
    return fatal ? 1 : 0;
}
