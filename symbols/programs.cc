#include "symbols/programs.h"

#include <vector>

#include "codegen/header.h"
#include "codegen/opspace.h"
#include "diag/diag.h"
#include "runtime/datafile.h"
#include "symbols/dictionary_files.h"
#include "symbols/records.h"

namespace tav {

namespace {

constexpr int kInsertTries = 6;
constexpr int kNoProgramsYet = 32767;

struct AccessFlag {
  uint16_t attr;
  uint16_t flag;
};
constexpr AccessFlag kAccessFlags[] = {
    {osym::attr_open_lock, 1}, {osym::attr_get_lock, 2}, {osym::attr_open_write, 4},
    {osym::attr_update, 8},    {osym::attr_access, 16},
};

uint16_t access_flags(uint16_t attr) {
  uint16_t flags = 0;
  for (const AccessFlag& a : kAccessFlags)
    if (attr & a.attr) flags |= a.flag;
  return flags;
}

// The program name: the last path component without its extension.
std::string_view program_name(std::string_view source) {
  const size_t slash = source.find_last_of("/\\");
  if (slash != std::string_view::npos) source = source.substr(slash + 1);
  const size_t dot = source.rfind('.');
  return dot == std::string_view::npos ? source : source.substr(0, dot);
}

struct UsedObject {
  int dictno;
  uint16_t obj_id;
  uint16_t flags;
};

// Replaces the PO rows of a program in one dictionary by those of the objects it uses now.
int replace_po_rows(DictionaryFiles& dicts, int dictno, uint16_t prog_id, const std::vector<UsedObject>& used) {
  DictRow row(DictTable::prog_obj);
  row.set(dict_prog_obj::prog_id, prog_id);
  row.set(dict_prog_obj::obj_id, 0);
  if (int status = dicts.start(row, dictno, 1); status != 0) return status;
  while (dicts.next(row, dictno) == 0 && row.number(dict_prog_obj::prog_id) == prog_id)
    if (int status = dicts.remove(row, dictno); status != 0) return status;
  for (const UsedObject& o : used) {
    if (o.dictno != dictno) continue;
    row.clear();
    row.set(dict_prog_obj::prog_id, prog_id);
    row.set(dict_prog_obj::obj_id, o.obj_id);
    int status;
    if (dicts.read(row, dictno, 1) < 0) {
      row.set(dict_prog_obj::prog_flags, o.flags);
      status = dicts.write(row, dictno);
    } else {
      row.set(dict_prog_obj::prog_flags, row.number(dict_prog_obj::prog_flags) | o.flags);
      status = dicts.rewrite(row, dictno);
    }
    if (status != 0) return status;
  }
  return 0;
}

// The PR row of the program in dictionary `dictno`, within the caller's transaction: its
// prog_id, found or given out downwards from 32766; -1 when it could not be inserted.
int program_row(DictionaryFiles& dicts, int dictno, std::string_view program, std::string_view system_name) {
  DictRow row(DictTable::prog_rel);
  auto put_key = [&] {
    row.clear();
    row.set(dict_prog_rel::prog_name, program.substr(0, dict_prog_rel::prog_name.size));
    row.set(dict_prog_rel::sys_name, system_name.substr(0, dict_prog_rel::sys_name.size));
  };
  put_key();
  if (dicts.read(row, dictno, 1) >= 0) return static_cast<int>(row.number(dict_prog_rel::prog_id));
  int id = dicts.start(row, dictno, 2, datafile::kFirstRow) == 0 && dicts.next(row, dictno) == 0
               ? static_cast<int>(row.number(dict_prog_rel::prog_id))
               : kNoProgramsYet;
  put_key();
  for (int tries = 0; tries < kInsertTries; ++tries) {
    row.set(dict_prog_rel::prog_id, --id);
    if (dicts.write(row, dictno) == 0) return id;
  }
  return -1;
}

}  // namespace

ProgramEntriesFailure write_po_entries(OpSpace& ops, DictionaryFiles* dicts, std::string_view system_name,
                                       std::string_view source) {
  std::vector<UsedObject> used;
  for (uint32_t o = ops.get24(hdr::h_objects); o != 0; o = ops.get24(o + osym::o_next)) {
    const uint16_t attr = static_cast<uint16_t>(ops.get16(o + osym::o_attr));
    used.push_back({static_cast<int16_t>(ops.get16(o + osym::o_dictno)),
                    static_cast<uint16_t>(ops.get16(o + osym::o_objid)), access_flags(attr)});
    ops.put16(o + osym::o_attr, attr & osym::attr_file_mask);
  }
  if (dicts == nullptr || system_name.empty()) return {};
  const std::string_view program = program_name(source);
  for (int d = 0; d < dicts->open_count(); ++d) {
    bool have_program_row = false;
    const int status = dicts->in_transaction(DictTable::prog_rel, d, [&] {
      const int prog_id = program_row(*dicts, d, program, system_name);
      if (prog_id < 0) return datafile::kDuplicate;
      have_program_row = true;
      return replace_po_rows(*dicts, d, static_cast<uint16_t>(prog_id), used);
    });
    if (status == 0) continue;
    if (!have_program_row) return {format_text(txt::pr_insert_failed, {dicts->path(d)}), true, txt::pr_insert_failed};
    return {format_text(txt::po_write_failed, {dicts->path(d), Diagnostics::io_error_text(status)}), false,
            txt::po_write_failed};
  }
  return {};
}

}  // namespace tav
