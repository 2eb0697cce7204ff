#include "symbols/xref.h"

namespace tav {

std::string_view xref_kind_name(XrefKind kind) {
  switch (kind) {
    case XrefKind::field: return "field";
    case XrefKind::object: return "object";
    case XrefKind::section: return "section";
    case XrefKind::report: return "report";
    case XrefKind::mode: return "mode";
  }
  return "field";
}

std::string_view object_access_name(ObjectAccess access) {
  switch (access) {
    case ObjectAccess::none: return "none";
    case ObjectAccess::reads: return "reads";
    case ObjectAccess::writes: return "writes";
    case ObjectAccess::uses: return "uses";
  }
  return "none";
}

void CrossReference::clear() {
  names_.clear();
  reads_.clear();
  blocks_.clear();
  clauses_.clear();
  ranges_.clear();
  statement_ = {};
  access_ = ObjectAccess::none;
}

void CrossReference::not_defined_here(uint32_t record) {
  for (auto it = names_.rbegin(); it != names_.rend(); ++it) {
    if (it->record != record || !it->definition) continue;
    names_.erase(std::next(it).base());
    return;
  }
}

SourceMark CrossReference::last_place(uint32_t record) const {
  for (auto it = names_.rbegin(); it != names_.rend(); ++it)
    if (it->record == record) return it->where;
  return {};
}

}  // namespace tav
