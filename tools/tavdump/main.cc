#include "tavdump.h"

int main(int argc, char** argv) { return tav::dump::tavdump_main(argc, argv); }
