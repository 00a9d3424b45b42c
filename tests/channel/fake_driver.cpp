// A channel driver for the tests, written from the arena's documented layout:
// raw offsets into the file named by BW_CHNL_ARENA_NAME. FAKE_DRIVER_MODE says
// how it behaves: "ok" answers and takes turns until the stop command, "die"
// answers, gives one turn and exits, "silent" never answers, "old" answers with version 2.
#include <fcntl.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

static unsigned char *base;
static uint32_t u32(size_t at) { uint32_t v; memcpy(&v, base + at, 4); return v; }
static void put32(size_t at, uint32_t v) { memcpy(base + at, &v, 4); }
static void putf(size_t at, float v) { memcpy(base + at, &v, 4); }
static sem_t *sem(uint32_t row) { return reinterpret_cast<sem_t *>(base + 28736 + 32 * row); }

int main(int argc, char **argv) {
    const char *mode = getenv("FAKE_DRIVER_MODE");
    const char *path = getenv("BW_CHNL_ARENA_NAME");
    if (!mode || !path || argc < 2 || strcmp(argv[1], "-BW_RUN") != 0) return 2;
    if (strcmp(mode, "silent") == 0) { sleep(30); return 0; }
    const int fd = open(path, O_RDWR);
    void *m = fd < 0 ? MAP_FAILED : mmap(nullptr, 0x100000, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (m == MAP_FAILED) return 2;
    base = static_cast<unsigned char *>(m);
    const uint32_t a = u32(580), b = u32(584), first = u32(596), count = u32(600);
    put32(0, 0x3510cafe);
    put32(4, strcmp(mode, "old") == 0 ? 2 : 3);
    strcpy(reinterpret_cast<char *>(base + 8), "2.0");
    __atomic_store_n(reinterpret_cast<uint32_t *>(base + 576), static_cast<uint32_t>(getpid()),
                     __ATOMIC_RELEASE);
    const bool once = strcmp(mode, "die") == 0;
    if (strcmp(mode, "ok") != 0 && !once) return 3;
    if (const char *buffer = getenv("CHNL_BUFFER_FILE")) {
        if (FILE *f = fopen(buffer, "w")) {  // its command line, for the test to check
            for (int i = 1; i < argc; ++i) fprintf(f, i > 1 ? " %s" : "%s", argv[i]);
            if (getenv("FAKE_DRIVER_STDIN")) {  // and what came on its input
                char input[4096];
                ssize_t n;
                fputc('|', f);
                while ((n = read(0, input, sizeof input)) > 0) fwrite(input, 1, size_t(n), f);
            }
            fclose(f);
        }
    }
    for (int turn = 0; turn < 1000; ++turn) {
        timespec until;
        clock_gettime(CLOCK_REALTIME, &until);
        until.tv_sec += 5;
        if (sem_timedwait(sem(a), &until) != 0) return 4;
        for (uint32_t i = 0; i < count; ++i) {
            putf(604 + 20 * (first + i), 42.0f + i);
            put32(604 + 20 * (first + i) + 8, 1);
        }
        const bool stop = u32(264) == 8;
        sem_post(sem(b));
        if (stop || once) return 0;
    }
    return 0;
}
