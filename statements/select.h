// The SELECT compiler: the select record with its FROM entries and field entries, built for the
// SELECT statement, a screen header's SELECT clause, the implicit select of a PRIMARY screen and
// a sub-query inside an expression.
//
// A `Select` holds what one select needs while it is compiled; the parser points at the
// innermost one (`Parser::select`), so that a sub-query finds its enclosing select and the
// aggregates of a statement's AFTER block find theirs. The expression compiler reaches it
// through the two seams of expr/expr.h: field names inside the select's expressions become
// select field references, and aggregate functions become aggregate entries.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <unordered_map>

#include "expr/expr.h"
#include "statements/parser.h"
#include "statements/records.h"

namespace tav {

// Where the names being compiled stand, for the rules that differ per clause.
enum class SelectPlace { list, where, having, order, group, join };

class Select final : public AggregateSink, public SelectScope {
 public:
  Select(Parser& parser, uint32_t record) : p(parser), rec(record) {}

  Parser& p;
  uint32_t rec;                   // the select record
  Select* enclosing = nullptr;    // the select a sub-query stands in
  uint32_t partner = 0;           // the head of the UNION this select continues (0: none)
  bool screen = false;            // a screen select: the automatic FOR-UPDATE, no colon warning
  bool sub = false;               // a sub-query
  SelectPlace place = SelectPlace::list;
  uint32_t after_break = 0;       // the AFTER break whose block is being compiled
  bool whole_array = false;       // an operand named a whole array
  int join_level = 0;             // the join level of the FROM objects being read
  int levels = 0;                 // join levels opened so far
  bool in_aggregate = false;      // an aggregate's argument is being compiled
  bool order_given = false;
  bool group_given = false;
  bool for_update = false;        // FOR UPDATE was written
  std::unordered_map<uint32_t, int> lines;  // the line each field entry was first named on
  bool object_unknown = false;    // an object it names is unknown: its fields' warnings follow from that
  // Where each FROM entry's object was named, for the cross reference.
  std::vector<std::pair<uint32_t, SourceMark>> named_at;

  // The object of that name, from the program or the dictionaries (find_or_load_object); 0,
  // reported, when there is none.
  uint32_t object_named(std::string_view name);

  // The seams of the expression compiler.
  uint32_t aggregate(ParserCore& core, uint32_t verb_code, uint16_t number, ExprType& type) override;
  bool field_operand(ParserCore& core, std::string_view name, bool in_aggregate, uint32_t allow,
                     SelectScope::Operand& result) override;
  bool sub_query(ParserCore& core, ExprType& type) override;

  // The select record's flags.
  uint16_t flags() const { return static_cast<uint16_t>(p.ops.get16(rec + selrec::sr_flags)); }
  bool has(uint16_t bits) const { return (flags() & bits) != 0; }
  void set_flags(uint16_t bits) { p.ops.put16(rec + selrec::sr_flags, flags() | bits); }
  void clear_flags(uint16_t bits) { p.ops.put16(rec + selrec::sr_flags, flags() & ~bits); }
};

// What the caller of compile_select asks for.
struct SelectCall {
  bool screen = false;         // a screen header's select: the automatic FOR-UPDATE rule
  bool parenthesised = false;  // a closing ")" is expected
  bool sub = false;            // a sub-query inside an expression
  uint32_t union_head = 0;     // the head of the UNION this select continues
  uint32_t screen_name = 0;    // the screen's name text, for a screen select
};

// Entered after the SELECT word; returns the select record.
uint32_t compile_select(Parser& p, const SelectCall& call);

// The parser's current select while one is compiled; the previous one comes back on leaving.
class SelectFrame {
 public:
  SelectFrame(Parser& p, Select& s) : p_(p), saved_(p.select) {
    s.enclosing = p.select;
    p.select = &s;
  }
  ~SelectFrame() { p_.select = saved_; }
  SelectFrame(const SelectFrame&) = delete;
  SelectFrame& operator=(const SelectFrame&) = delete;

 private:
  Parser& p_;
  Select* saved_;
};

// ---- Field entries (select_fields.cc) ------------------------------------------------------

// Finds or creates the field entry of a field bound to a FROM entry (0: not bound), a host field
// when `host`. The entry is numbered and appended to the field list.
uint32_t add_field(Select& s, uint32_t from, uint32_t field, bool host);
// A new entry of the field, appended to the field list.
uint32_t new_entry(Select& s, uint32_t field);
// The entry a field was assigned an expression in, 0 when there is none.
uint32_t assigned_entry(const Select& s, uint32_t field);
// The same for a name (":" prefix for a host field); fatal when the name cannot be entered.
uint32_t add_field(Select& s, uint32_t from, std::string_view name);
// The FROM entry of an object, 0 when it has none.
uint32_t from_entry_of(const Select& s, uint32_t object);
// Appends a FROM entry for an object, numbered in order.
uint32_t new_from_entry(Select& s, uint32_t object);
// The name texts of a field and an object.
std::string field_name(const Parser& p, uint32_t field);
std::string object_name_of(const Parser& p, uint32_t object);
// The n-th selected entry (from 1) of a select's field list, 0 when there is none.
uint32_t nth_selected(const Parser& p, uint32_t rec, int n);
int selected_count(const Parser& p, uint32_t rec);
// The entries of a list linked through its first three bytes.
std::vector<uint32_t> chain(const Parser& p, uint32_t head);
uint16_t entry_flags(const Parser& p, uint32_t entry);
void set_entry_flags(Parser& p, uint32_t entry, uint16_t bits);
// Makes the rings of two field entries one (nothing when they share one already).
void splice_rings(Parser& p, uint32_t a, uint32_t b);

// ---- Clauses (select_clauses.cc) -------------------------------------------------------------

// The field list after SELECT, up to FROM.
void read_field_list(Select& s);
// GROUP BY and ORDER BY lists; `order` for ORDER BY.
void read_order_list(Select& s, bool order);
// A condition of the select (WHERE or HAVING) into the 24-bit member.
void read_select_condition(Select& s, uint32_t member, SelectPlace place);

// ---- FROM (select_from.cc) -------------------------------------------------------------------

void read_from(Select& s);

// ---- After the clauses (select_resolve.cc) ---------------------------------------------------

void apply_for_update(Select& s, bool union_follows);
void resolve_references(Select& s, bool order_flag);
void optimise_keys(Select& s);
// Records in the cross reference how the select reads each object (after optimise_keys).
void note_reads(Select& s);
void build_column_lists(Select& s);
// With a GROUP BY and no ORDER BY the rows are ordered by the groups; outside a UNION an ORDER BY
// that does not lead the GROUP BY list is worth a warning.
void check_group_order(Select& s, bool in_union);
// UNION after the first select.
void compile_union(Select& s);

// ---- Screens (select_primary.cc) -----------------------------------------------------------------

// The SELECT clause of a screen header, entered after the SELECT word: the select becomes the
// screen's; a select of a single object makes that object the screen's PRIMARY.
void compile_screen_select(Parser& p, uint32_t screen);
// A PRIMARY clause: the screen's implicit select of that object.
uint32_t conv_primary_start(Parser& p, uint32_t screen, uint32_t object);
// WHEN after PRIMARY: the condition joins the implicit select's WHERE.
void conv_primary_when(Parser& p, uint32_t screen, uint32_t select, bool with_condition);
// The end of the header: the implicit select completed, resolved and optimised.
void conv_primary(Parser& p, uint32_t screen, uint32_t select);

}  // namespace tav
