// A test hook, for the tests of what a killed load leaves behind: with TAVDICT_TEST_KILL_AT=N in
// its environment, tavdict kills itself (SIGKILL) when the data-file engine is about to take the
// Nth durable step of the run, a step being a file's sync or a file's removal (the journals of a
// commit). Nothing else reads the variable; unset, nothing changes.

#include <sqlite3.h>

#include <csignal>
#include <cstdlib>

#include "schema.h"

namespace tav::dict_tool {

namespace {

sqlite3_vfs* g_real = nullptr;  // the engine's own file system layer
sqlite3_vfs g_counting{};
sqlite3_io_methods g_methods{};
long g_steps_left = 0;

void step() {
  if (--g_steps_left == 0) std::raise(SIGKILL);
}

// An open file of the counting layer: the real one follows it in the same allocation.
struct CountingFile {
  sqlite3_file base;
  sqlite3_file* real() { return reinterpret_cast<sqlite3_file*>(this + 1); }
};

CountingFile* counting(sqlite3_file* f) { return reinterpret_cast<CountingFile*>(f); }
sqlite3_file* real(sqlite3_file* f) { return counting(f)->real(); }

int open_file(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* out_flags) {
  sqlite3_file* r = counting(file)->real();
  const int rc = g_real->xOpen(g_real, name, r, flags, out_flags);
  file->pMethods = r->pMethods ? &g_methods : nullptr;
  return rc;
}

int delete_file(sqlite3_vfs*, const char* name, int sync_dir) {
  step();
  return g_real->xDelete(g_real, name, sync_dir);
}

// Every call goes to the real file's own methods (which differ between databases and journals);
// syncs count as steps.
void make_methods() {
  g_methods.xClose = [](sqlite3_file* f) {
    const int rc = real(f)->pMethods->xClose(real(f));
    f->pMethods = nullptr;
    return rc;
  };
  g_methods.xRead = [](sqlite3_file* f, void* b, int n, sqlite3_int64 at) { return real(f)->pMethods->xRead(real(f), b, n, at); };
  g_methods.xWrite = [](sqlite3_file* f, const void* b, int n, sqlite3_int64 at) {
    return real(f)->pMethods->xWrite(real(f), b, n, at);
  };
  g_methods.xTruncate = [](sqlite3_file* f, sqlite3_int64 n) { return real(f)->pMethods->xTruncate(real(f), n); };
  g_methods.xSync = [](sqlite3_file* f, int flags) {
    step();
    return real(f)->pMethods->xSync(real(f), flags);
  };
  g_methods.xFileSize = [](sqlite3_file* f, sqlite3_int64* n) { return real(f)->pMethods->xFileSize(real(f), n); };
  g_methods.xLock = [](sqlite3_file* f, int l) { return real(f)->pMethods->xLock(real(f), l); };
  g_methods.xUnlock = [](sqlite3_file* f, int l) { return real(f)->pMethods->xUnlock(real(f), l); };
  g_methods.xCheckReservedLock = [](sqlite3_file* f, int* r) { return real(f)->pMethods->xCheckReservedLock(real(f), r); };
  g_methods.xFileControl = [](sqlite3_file* f, int op, void* arg) { return real(f)->pMethods->xFileControl(real(f), op, arg); };
  g_methods.xSectorSize = [](sqlite3_file* f) { return real(f)->pMethods->xSectorSize(real(f)); };
  g_methods.xDeviceCharacteristics = [](sqlite3_file* f) { return real(f)->pMethods->xDeviceCharacteristics(real(f)); };
  // No shared memory and no memory mapping: the dictionaries keep the rollback journal.
  g_methods.iVersion = 1;
  g_methods.xShmMap = nullptr;
  g_methods.xShmLock = nullptr;
  g_methods.xShmBarrier = nullptr;
  g_methods.xShmUnmap = nullptr;
  g_methods.xFetch = nullptr;
  g_methods.xUnfetch = nullptr;
}

}  // namespace

void install_test_hooks() {
  const char* at = std::getenv("TAVDICT_TEST_KILL_AT");
  if (at == nullptr || std::atol(at) <= 0) return;
  g_steps_left = std::atol(at);
  g_real = sqlite3_vfs_find(nullptr);
  if (g_real == nullptr) return;
  g_counting = *g_real;
  g_counting.zName = "tavdict-counting";
  g_counting.szOsFile = static_cast<int>(sizeof(CountingFile)) + g_real->szOsFile;
  g_counting.xOpen = open_file;
  g_counting.xDelete = delete_file;
  make_methods();
  sqlite3_vfs_register(&g_counting, 1);
}

}  // namespace tav::dict_tool
