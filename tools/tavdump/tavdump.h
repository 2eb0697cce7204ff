// tavdump: prints an operations table file (.op6) for a person.
//
// The decoder works on the bytes of the file alone. Before it follows any offset it checks that
// the target lies inside the operations image and that the whole record fits there, and it walks
// every list with a guard against loops, so that a damaged file is reported, never followed into
// arbitrary memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace tav::dump {

struct DumpOptions {
  bool header_only = false;  // -h: the header and nothing else
  bool raw = false;          // -r: a hex dump of every record under its decoding
};

struct DumpResult {
  bool ok = true;
  std::string text;    // the listing; on damage, what was decoded before the damage was met
  std::string damage;  // what is wrong, when !ok
  bool not_a_table = false;  // the file is no operations table at all
};

// Decodes a whole .op6 image held in memory.
DumpResult dump_op6(const uint8_t* bytes, size_t size, const DumpOptions& options);

// The program: "tavdump [-h] [-r] file.op6". Returns the exit status: 0 done, 1 unreadable or
// damaged file, 2 usage error.
int tavdump_main(int argc, char** argv);

}  // namespace tav::dump
