#include "scratch.h"

#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "runtime/process.h"

namespace tav::dict_tool {

namespace {

// What the signal handler removes: fixed slots, since it may not allocate. A slot is marked in
// use only once its path is complete.
struct Slot {
  char path[4096];
  volatile std::sig_atomic_t in_use;
  bool directory;
};
constexpr int kSlots = 64;
std::array<Slot, kSlots> g_slots{};  // the handler's only state

int take_slot(const std::string& path, bool directory) {
  if (path.size() >= sizeof(Slot::path)) return -1;
  for (int i = 0; i < kSlots; ++i) {
    Slot& s = g_slots[static_cast<size_t>(i)];
    if (s.in_use) continue;
    std::memcpy(s.path, path.c_str(), path.size() + 1);
    s.directory = directory;
    s.in_use = 1;
    return i;
  }
  return -1;
}

void free_slot(int i) {
  if (i >= 0) g_slots[static_cast<size_t>(i)].in_use = 0;
}

extern "C" void remove_and_resignal(int sig) {
  tav::stop_running_child();  // the preprocessor may be writing into the directory
  for (int i = kSlots; i-- > 0;) {  // files were taken after their directory
    const Slot& s = g_slots[static_cast<size_t>(i)];
    if (!s.in_use) continue;
    if (s.directory)
      rmdir(s.path);
    else
      unlink(s.path);
  }
  std::signal(sig, SIG_DFL);
  std::raise(sig);
}

}  // namespace

void remove_scratch_on_signals() {
  for (int sig : {SIGINT, SIGTERM, SIGHUP}) std::signal(sig, remove_and_resignal);
}

ScratchDir::ScratchDir() {
  const char* tmp = std::getenv("TMPDIR");
  path_ = std::string(tmp && *tmp ? tmp : "/tmp") + "/tavdictXXXXXX";
  if (!mkdtemp(path_.data())) {
    path_.clear();
    return;
  }
  slots_.push_back(take_slot(path_, true));
}

ScratchDir::~ScratchDir() {
  for (const std::string& f : files_) unlink(f.c_str());
  if (!path_.empty()) rmdir(path_.c_str());
  for (int slot : slots_) free_slot(slot);
}

std::string ScratchDir::file(const std::string& name) {
  files_.push_back(path_ + "/" + name);
  slots_.push_back(take_slot(files_.back(), false));
  return files_.back();
}

}  // namespace tav::dict_tool
