// A channel arena made by the test, as the viewer makes it, with the words of the
// shared block written and read at their byte offsets.
#pragma once

#include <fcntl.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "capture.h"

namespace bwtest {

class TestArena {
public:
    static constexpr size_t kSize = 0x100000;
    static constexpr size_t kSemTable = 28736;  // after the 28676-byte block, 64-aligned

    TestArena() {
        path_ = dir_.path() + "/BRAK_CHANNEL_arena." + std::to_string(getpid() % 100000);
        int fd = open(path_.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
        if (fd < 0 || ftruncate(fd, kSize) != 0) abort();
        base_ = static_cast<uint8_t *>(mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
        close(fd);
        for (int i = 0; i < 64; ++i) sem_init(sem(i), 1, 0);
    }
    ~TestArena() {
        for (int i = 0; i < 64; ++i) sem_destroy(sem(i));
        munmap(base_, kSize);
    }

    // The words the viewer writes before it starts a driver.
    void startDriver(uint32_t index, uint32_t first, uint32_t count, uint32_t semA, uint32_t semB,
                     uint16_t syncMode = 0, uint32_t frequency = 0) {
        u32(592) = index;
        u32(596) = first;
        u32(600) = count;
        u32(580) = semA;
        u32(584) = semB;
        u16(588) = syncMode;
        u32(28608) = frequency;
        sem_post(sem(int(semA)));  // the driver's turn comes first
    }
    // Sets `command` and marks it pending for one driver.
    void command(uint32_t cmd, uint32_t driver) {
        u32(264) = cmd;
        u16(28612 + 2 * driver) = 1;
    }

    uint32_t &u32(size_t off) { return *reinterpret_cast<uint32_t *>(base_ + off); }
    uint16_t &u16(size_t off) { return *reinterpret_cast<uint16_t *>(base_ + off); }
    float &f32(size_t off) { return *reinterpret_cast<float *>(base_ + off); }
    const char *text(size_t off) { return reinterpret_cast<const char *>(base_ + off); }
    sem_t *sem(int i) { return reinterpret_cast<sem_t *>(base_ + kSemTable + size_t(i) * sizeof(sem_t)); }
    // Slot record fields of channel `ch`.
    float &value(int ch) { return f32(604 + 20 * size_t(ch)); }
    float &time(int ch) { return f32(604 + 20 * size_t(ch) + 4); }
    uint32_t &written(int ch) { return u32(604 + 20 * size_t(ch) + 8); }
    uint32_t &type(int ch) { return u32(604 + 20 * size_t(ch) + 12); }
    uint32_t &active(int ch) { return u32(604 + 20 * size_t(ch) + 16); }
    int semValue(int i) {
        int v = -1;
        sem_getvalue(sem(i), &v);
        return v;
    }
    const std::string &path() const { return path_; }
    const std::string &dir() const { return dir_.path(); }

private:
    TempDir dir_;
    std::string path_;
    uint8_t *base_ = nullptr;
};

}  // namespace bwtest
