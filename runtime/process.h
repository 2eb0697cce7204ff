// Running the companion programs (the preprocessor, the language-text post-processor).
#pragma once

#include <string>
#include <vector>

namespace tav {

// Runs argv[0] with the arguments argv (never through a shell) and waits for it. Returns the
// program's exit status, 128 + the signal number when it was killed, or -1 when it could not be
// started (errno is then set). While it runs, running_child_pid() names it, so that a signal
// handler can stop it.
int run_program(const std::vector<std::string>& argv);
int running_child_pid();
// Ends the running program (SIGTERM) and waits for it; nothing when none runs. Safe in a signal
// handler.
void stop_running_child();

}  // namespace tav
