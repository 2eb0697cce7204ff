// Message identifiers and texts of the preprocessor (the rows are in messages.def).
#pragma once

#include <string>

namespace tav::pp {

enum class Msg {
#define PP_MESSAGE(id, text) id,
#include "messages.def"
#undef PP_MESSAGE
};

const char* message_text(Msg msg);

// A reported problem: the message and its context (may be empty).
struct Problem {
  Msg msg;
  std::string context;
};

}  // namespace tav::pp
