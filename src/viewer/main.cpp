#include <unistd.h>

#include <cstdio>

#include "viewer.h"

// The update thread is never joined: leave without running destructors under it.
int main(int argc, char *argv[]) {
    int status = viewerMain(argc, argv);
    fflush(nullptr);
    _exit(status & 0xff);
}
