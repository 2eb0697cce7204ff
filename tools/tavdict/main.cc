#include "tavdict.h"

int main(int argc, char** argv) { return tav::dict_tool::tavdict_main(argc, argv); }
