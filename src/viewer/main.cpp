#include "viewer.h"

int main(int argc, char *argv[]) { return viewerMain(argc, argv); }
