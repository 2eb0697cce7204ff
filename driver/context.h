// The driver's run context and the product version.
#pragma once

#include <cstdint>
#include <string>

#include "driver/options.h"
#include "runtime/files_read.h"
#include "tav_version.h"  // kVersionString, generated from the build's one product version

namespace tav {

// The product version text: the version string behind "@(#)" with leading blanks skipped.
inline std::string product_version() {
  std::string v = kVersionString + 4;
  return v.substr(v.find_first_not_of(' '));
}

// Everything the driver keeps from start-up to exit.
struct RunContext {
  Options options;
  std::string program_name;  // argv[0], first in some messages
  std::string product_dir;   // TAVRIN with a trailing "/"
  std::string bin_dir;       // product_dir + "bin/"
  std::string lib_dir;       // product_dir + "lib/"
  // The dictionary and catalogue files the run has read so far: prerequisites of every table
  // compiled from then on (--write-dependencies).
  FilesRead files_read;
};

}  // namespace tav
