#include "tavcmpnls.h"

int main(int argc, char** argv) { return tav::nlstool::tavcmpnls_main(argc, argv); }
