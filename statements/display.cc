// DISPLAY, and the message statements MESSAGE, ABORT and ACKNOWLEDGE.

#include <string>

#include "codegen/convert.h"
#include "expr/expr.h"
#include "statements/accept.h"
#include "statements/display_items.h"
#include "statements/handlers.h"
#include "statements/parser.h"
#include "statements/records.h"
#include "statements/screen_clauses.h"
#include "symbols/clauses.h"
#include "symbols/picture.h"
#include "symbols/records.h"

namespace tav {

namespace {

// --- DISPLAY --------------------------------------------------------------------------------

// Each item becomes one display-item op.
void display_items(Parser& p) {
  ItemRun run{ItemStatement::display};
  while (!(p.next() & kStatementVerb)) {
    p.push_back();
    ReadItem read = read_item(p, run);
    if (read.item == 0) return;
    if (display_as_accept(p, read.item, read.length)) continue;
    p.ob.emit_statement_marker(verb("display"));
    p.ops.put24(p.ob.emit(Op::display_item) + displayop::dio_item, read.item);
  }
  p.push_back();
  if (run.items == 0) p.diag.error(msg::syntax_error);
}

// --- DISPLAY BITMAP -------------------------------------------------------------------------

namespace bitmap {
inline constexpr uint16_t background = 0x0001, foreground = 0x0002, no_aspect_ratio = 0x0004, absolute = 0x0008;
}  // namespace bitmap

struct Bitmap {
  Parser& p;
  uint32_t op;
};

void set_bitmap_flag(Bitmap& b, uint16_t bits) {
  b.p.ops.put16(b.op + bitmapop::bm_flags, b.p.ops.get16(b.op + bitmapop::bm_flags) | bits);
}

// @ r,c [TO @ r,c]: the corners, each its own position record.
ClauseStep bitmap_position(Bitmap& b) {
  Parser& p = b.p;
  const uint32_t first = p.ops.alloc(position::size);
  p.ops.put24(b.op + bitmapop::bm_first, first);
  if (!read_coordinates(p, first, true)) return ClauseStep::done;
  if (!p.take(verb("to"))) return ClauseStep::next;
  if (!p.take(verb("@"))) {
    p.fail(msg::syntax_error);
    return ClauseStep::done;
  }
  const uint32_t second = p.ops.alloc(position::size);
  p.ops.put24(b.op + bitmapop::bm_second, second);
  return read_coordinates(p, second, true) ? ClauseStep::next : ClauseStep::done;
}

template <uint16_t Bits, bool Extended>
ClauseStep bitmap_flag(Bitmap& b) {
  if (Extended) b.p.max_opt_ver(7);
  set_bitmap_flag(b, Bits);
  return ClauseStep::next;
}

ClauseStep bitmap_other(Bitmap& b) {
  b.p.fail(msg::syntax_error);
  return ClauseStep::done;
}

constexpr ClauseRow<Bitmap> kBitmapClauses[] = {
    {verb("@"), Given::once, {}, bitmap_position},
    {verb("background"), Given::once, {verb("foreground")}, bitmap_flag<bitmap::background, false>},
    {verb("foreground"), Given::once, {verb("background")}, bitmap_flag<bitmap::foreground, false>},
    {verb("no_aspect_ratio"), Given::once, {}, bitmap_flag<bitmap::no_aspect_ratio, true>},
    {verb("absolute_coordinates"), Given::once, {}, bitmap_flag<bitmap::absolute, true>},
};

// DISPLAY BITMAP name @ r,c [TO @ r,c] [BACKGROUND | FOREGROUND] [NO-ASPECT-RATIO]
// [ABSOLUTE-COORDINATES], the BITMAP read.
void display_bitmap(Parser& p) {
  p.ob.emit_statement_marker(verb("display"));
  Bitmap b{p, p.ob.emit(Op::display_bitmap)};
  alpha_list(p, b.op + bitmapop::bm_name, 0);
  read_clauses(p, kBitmapClauses, b, bitmap_other);
  if (p.ops.get24(b.op + bitmapop::bm_first) == 0) p.diag.error(msg::syntax_error);
}

// --- MESSAGE, ABORT, ACKNOWLEDGE ------------------------------------------------------------

struct Message {
  Parser& p;
  bool acknowledge;
  uint32_t head = 0;
  uint32_t tail = 0;
  uint16_t bell = 0;  // 1: NO-BELL given
};

// PICTURE p after an item, read as one raw word.
void item_picture(Parser& p, uint32_t item, bool alphanumeric) {
  PictureResult pic = parse_picture(read_raw_picture(p));
  if (pic.kind == PictureKind::invalid) {
    p.diag.error(msg::invalid_picture_string);
    return;
  }
  if (conv::fmt_numeric(pic.format) == alphanumeric) p.diag.error(msg::picture_not_compatible_field_expression);
  p.ops.put16(item + msgitem::mi_type, pic.format);
  if (conv::fmt_numeric(pic.format)) p.ops.put24(item + msgitem::mi_picture, p.ops.store_text(pic.text));
}

// The value of one message item, appended to the list; its type in `t`.
uint32_t message_value(Message& m, ExprType& t) {
  OpSpace& ops = m.p.ops;
  uint32_t item = ops.alloc(msgitem::size);
  t = compile_expression_list(m.p, item + msgitem::mi_value);
  uint32_t head = ops.get24(item + msgitem::mi_value);
  if (head != 0 && ops.get24(head) == 0 && ops.opcode(head) == Op::literal && t.alphanumeric())
    m.p.ob.make_text_item_op(head, 'M');
  if (head != 0 && ops.get24(head) == 0 && ops.opcode(head) == Op::field_ref)
    ops.put16(item + msgitem::mi_type, ops.get16(head + fieldref::fr_format));
  ops.put16(item + msgitem::mi_letter, static_cast<uint8_t>(t.kind));
  if (m.tail == 0) m.head = item;
  else ops.put24(m.tail + msgitem::mi_next, item);
  m.tail = item;
  return item;
}

// NO-BELL or NO BELL: the current token is NO-BELL or NO.
bool no_bell(Message& m) {
  Parser& p = m.p;
  if (p.cls() == verb("no") && !p.take(verb("bell"))) return false;
  if (m.acknowledge) p.diag.error(msg::duplicate_incompatible_clause);
  m.bell = 1;
  return true;
}

// The clauses after one item; false when a word that is none of them ends them.
bool message_clause(Message& m, uint32_t item, bool alphanumeric) {
  Parser& p = m.p;
  uint32_t c = p.next();
  if (c & kStatementVerb) {
    p.push_back();
    return false;
  }
  if (c == verb("picture")) {
    p.accept();
    item_picture(p, item, alphanumeric);
    return true;
  }
  if (c == verb("no_bell") || c == verb("no")) {
    p.accept();
    if (no_bell(m)) return true;
    p.push_back();
    return false;
  }
  if ((c & kClauseWord) && !(m.acknowledge && c == verb("prompt"))) {
    skip_invalid_clause(p);
    return true;
  }
  p.push_back();
  return false;
}

// Items up to the next statement (or, in an ACKNOWLEDGE, its PROMPT).
void message_items(Message& m) {
  Parser& p = m.p;
  for (;;) {
    uint32_t c = p.next();
    p.push_back();
    if ((c & kStatementVerb) || (m.acknowledge && c == verb("prompt"))) return;
    ExprType t;
    uint32_t item = message_value(m, t);
    if (t.failed) return;
    while (message_clause(m, item, t.alphanumeric())) {
    }
  }
}

// MESSAGE or ABORT: a PAUSE straight after it is taken into it.
void message_statement(Parser& p, uint32_t verb_code, Op opcode) {
  p.accept();
  p.ob.emit_statement_marker(verb_code);
  uint32_t op = p.ob.emit(opcode);
  Message m{p, false};
  message_items(m);
  if (p.next() == verb("pause")) {
    p.accept();
    if (m.bell == 1) m.bell = 2;
  } else {
    p.push_back();
  }
  p.ops.put24(op + messageop::mo_items, m.head);
  p.ops.put16(op + messageop::mo_bell, m.bell);
}

}  // namespace

void compile_display(Parser& p) {
  p.accept();
  uint32_t c = p.next();
  if (c == verb("box")) {
    compile_box(p);
    return;
  }
  if (c == verb("bitmap")) {
    p.accept();
    display_bitmap(p);
    return;
  }
  p.push_back();
  display_items(p);
}

void compile_message(Parser& p) { message_statement(p, verb("message"), Op::message); }

void compile_abort(Parser& p) {
  message_statement(p, verb("abort"), Op::abort);
  p.path_ended = true;
}

void compile_acknowledge(Parser& p) {
  p.accept();
  p.ob.emit_statement_marker(verb("acknowledge"));
  uint32_t op = p.ob.emit(Op::acknowledge);
  Message m{p, true};
  message_items(m);
  p.ops.put24(op + ackop::ak_items, m.head);
  if (!p.take(verb("prompt"))) return;
  p.take(verb("is"));
  alpha_list(p, op + ackop::ak_prompt, 'M');
  if (!(p.next() & kStatementVerb)) p.fail(msg::syntax_error);
  else p.push_back();
}

}  // namespace tav
