/* A preload library for timing a program to its first frames without a hook
 * in the program: it wraps glXSwapBuffers, and after each swap writes
 * "swap N at S s" to standard error, S the seconds since the time in
 * BW_SWAP_T0 (nanoseconds of the real-time clock, taken by the caller just
 * before the program starts). With BW_SWAP_EXIT = N the process leaves at
 * once after the N-th swap, status 0. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

typedef struct _XDisplay Display;
typedef unsigned long GLXDrawable;

void glXSwapBuffers(Display *display, GLXDrawable drawable) {
    static void (*next)(Display *, GLXDrawable);
    static int swaps;
    if (!next) next = (void (*)(Display *, GLXDrawable))dlsym(RTLD_NEXT, "glXSwapBuffers");
    if (next) next(display, drawable);
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    const char *t0 = getenv("BW_SWAP_T0");
    const long long ns = now.tv_sec * 1000000000LL + now.tv_nsec;
    const long long start = t0 ? atoll(t0) : ns;
    fprintf(stderr, "swap %d at %.4f s\n", ++swaps, (double)(ns - start) / 1e9);
    const char *leave = getenv("BW_SWAP_EXIT");
    if (leave && swaps >= atoi(leave)) _exit(0);
}
