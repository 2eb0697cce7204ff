// The compiler driver: start-up, the per-file loop, results and the single exit path.
#pragma once

namespace tav {

// Runs tavcmp with the process's arguments; returns only through exit().
[[noreturn]] void run_tavcmp(int argc, char** argv);

}  // namespace tav
