// Message identifiers and texts of the preprocessor (the rows are in diag/pp_messages.def, where the
// compiler reads them too for the message codes it lists).
#pragma once

#include <cstddef>
#include <string>

namespace tav::pp {

enum class Msg {
#define PP_MESSAGE(id, text) id,
#include "diag/pp_messages.def"
#undef PP_MESSAGE
};

const char* message_text(Msg msg);

// A reported problem: the message and its context (may be empty), and where in the line
// expanded the outermost macro call being replaced began (npos: none).
struct Problem {
  Msg msg;
  std::string context;
  std::size_t call = std::string::npos;
};

}  // namespace tav::pp
