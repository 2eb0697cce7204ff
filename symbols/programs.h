// Program and program-object entries in the data dictionaries, written after a clean compile.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tav {

class OpSpace;
class DictionaryFiles;

// What went wrong while the entries were written: a message for the operator, and whether it
// waits for acknowledgement. Empty when all went well.
struct ProgramEntriesFailure {
  std::string message;
  bool wait_for_ack = false;
};

// Clears the usage bits of every object, which never reach the operations table. With a system
// name (-p) and dictionaries, records the program in each open dictionary (its PR row, found or
// made) and which of its objects it uses (its PO rows, replaced) with their access flags.
// `source` is the source file's name; the program name is its last component without extension.
ProgramEntriesFailure write_po_entries(OpSpace& ops, DictionaryFiles* dictionaries, std::string_view system_name,
                                       std::string_view source);

// The PR row of the program in dictionary `dictno`: its prog_id, found or given out downwards
// from 32766; -1 when it could not be inserted.
int insert_pr_rec(DictionaryFiles& dictionaries, int dictno, std::string_view program, std::string_view system_name);

}  // namespace tav
