// Program and program-object entries in the data dictionaries, written after a clean compile.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "diag/diag.h"

namespace tav {

class OpSpace;
class DictionaryFiles;

// What went wrong while the entries were written: a message for the operator, and whether it
// waits for acknowledgement. Empty when all went well.
struct ProgramEntriesFailure {
  std::string message;
  bool wait_for_ack = false;
  txt::Text code = txt::po_write_failed;  // the message's row
  bool failed() const { return !message.empty(); }
};

// Clears the usage bits of every object, which never reach the operations table. With a system
// name (-p) and dictionaries, records the program in each open dictionary (its PR row, found or
// made) and which of its objects it uses (its PO rows, replaced) with their access flags: in one
// transaction per dictionary, so that a failure leaves that dictionary as it was. It stops at the
// first dictionary that fails. `source` is the source file's name; the program name is its last
// component without extension.
ProgramEntriesFailure write_po_entries(OpSpace& ops, DictionaryFiles* dictionaries, std::string_view system_name,
                                       std::string_view source);

}  // namespace tav
