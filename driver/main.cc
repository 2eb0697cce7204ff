#include "driver/driver.h"

int main(int argc, char** argv) { tav::run_tavcmp(argc, argv); }
