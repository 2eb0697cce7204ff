// Reading schemas: each file through the preprocessor, then its FIELD and OBJECT statements
// through the compiler's own definitions, into one symbol table; the fields and objects it holds
// at the end are the schema.

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>

#include "codegen/header.h"
#include "diag/display.h"
#include "lexer/verbs.h"
#include "runtime/process.h"
#include "schema.h"
#include "scratch.h"
#include "symbols/compiler_stores.h"
#include "symbols/fields.h"
#include "symbols/objects.h"
#include "symbols/parser_core.h"
#include "symbols/records.h"

namespace tav::dict_tool {

namespace {

// The preprocessor installed beside this program.
std::string preprocessor() {
  char self[4096];
  const ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
  if (n <= 0) return "tavpp";
  std::string path(self, static_cast<size_t>(n));
  return path.substr(0, path.rfind('/') + 1) + "tavpp";
}

std::optional<std::string> read_whole(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

const char* file_kind(mode_t mode) {
  if (S_ISDIR(mode)) return "a directory";
  if (S_ISFIFO(mode)) return "a FIFO";
  if (S_ISCHR(mode)) return "a character device";
  if (S_ISBLK(mode)) return "a block device";
  if (S_ISSOCK(mode)) return "a socket";
  return "not a plain file";
}

// Runs the preprocessor over one schema; its output file, or nothing after reporting.
std::optional<std::string> preprocess(const std::string& schema, ScratchDir& scratch, int n, Problems& problems) {
  // Looked at, not opened: opening a FIFO or a device to read it may wait for ever.
  struct stat st {};
  if (::stat(schema.c_str(), &st) != 0 || ::access(schema.c_str(), R_OK) != 0) {
    problems.push_back(schema + ": cannot be read: " + std::strerror(errno));
    return std::nullopt;
  }
  if (!S_ISREG(st.st_mode)) {
    problems.push_back(schema + ": not a regular file (" + file_kind(st.st_mode) + "); a schema is a text file");
    return std::nullopt;
  }
  const std::string out = scratch.file("schema" + std::to_string(n) + ".pp");
  const std::string listing = scratch.file("schema" + std::to_string(n) + ".err");
  const int status = run_program({preprocessor(), "-o" + listing, schema, out});
  if (status != 0) {
    if (std::optional<std::string> text = read_whole(listing)) std::fputs(text->c_str(), stderr);
    problems.push_back(schema + ": errors during preprocessing");
    return std::nullopt;
  }
  return out;
}

std::string text_of_link(const OpSpace& ops, uint32_t rec, uint32_t member) {
  const uint32_t link = ops.get24(rec + member);
  return link ? std::string(ops.text_at(link)) : std::string();
}

// The compiler set up for one program of definitions.
class SchemaCompiler {
 public:
  explicit SchemaCompiler(Diagnostics& diag) : compiler_(diag, {}), p_(compiler_, file_) {
    p_.ops.alloc(hdr::size);
    p_.data.alloc(2);
    compiler_.syms.reset();
    p_.ob.start_program();
    compiler_.tok.set_statement_mask(kStatementVerb);
    compiler_.tok.set_clause_mask(kClauseWord);
    compiler_.tok.set_function_mask(kFunctionWord);
  }

  // Compiles the statements of one preprocessed file; false when it cannot be opened.
  bool compile(const std::string& path) {
    if (compiler_.tok.open_source(path) != 0) return false;
    p_.diag.set_source(&compiler_.tok);
    try {
      while (p_.next() != kClassEndOfInput) statement();
    } catch (const FileAbort&) {
      // counted as an error; the schema is not loaded
    }
    p_.diag.set_source(nullptr);
    compiler_.tok.close_source();
    return true;
  }

  Schema schema() const;

 private:
  void statement() {
    const uint32_t c = p_.cls();
    const std::string at = std::string(compiler_.tok.file_name()) + ", line " + std::to_string(compiler_.tok.line());
    p_.accept();
    if (c == verb("field")) {
      define_fields(p_);
    } else if (c == verb("object")) {
      define_object(p_);
    } else {
      p_.diag.error(msg::statement_invalid_not_known);
      p_.tok.skip_to_statement();
    }
    note_where(hdr::h_fields, fsym::f_next, fsym::f_name, at);
    note_where(hdr::h_objects, osym::o_next, osym::o_name, at);
  }
  // The names a statement defined are defined where it starts.
  void note_where(uint32_t head, uint32_t next, uint32_t name, const std::string& at) {
    const OpSpace& ops = p_.ops;
    for (uint32_t e = ops.get24(head); e != 0; e = ops.get24(e + next)) where_.try_emplace(text_of_link(ops, e, name), at);
  }
  std::string where_of(const std::string& name) const {
    const auto it = where_.find(name);
    return it == where_.end() ? std::string() : it->second;
  }
  FieldEntry field(uint32_t f) const;
  ObjectEntry object(uint32_t o) const;

  CompilerStores compiler_;
  FileContext file_;
  ParserCore p_;
  std::map<std::string, std::string> where_;  // "file, line n" of each name defined
};

FieldEntry SchemaCompiler::field(uint32_t f) const {
  const OpSpace& ops = p_.ops;
  FieldEntry e;
  e.name = text_of_link(ops, f, fsym::f_name);
  e.size = static_cast<uint16_t>(ops.get16(f + fsym::f_size));
  e.format = static_cast<uint16_t>(ops.get16(f + fsym::f_format));
  e.type = static_cast<char>(ops.at(f + fsym::f_type)[0]);
  e.occurs = static_cast<uint16_t>(ops.get16(f + fsym::f_occurs));
  e.flags = static_cast<uint16_t>(ops.get16(f + fsym::f_flags) & (fsym::flag_upper | fsym::flag_lower | fsym::flag_justify));
  e.column = text_of_link(ops, f, fsym::f_dbcol);
  e.drill_back = text_of_link(ops, f, fsym::f_drill);
  e.where = where_of(e.name);
  return e;
}

ObjectEntry SchemaCompiler::object(uint32_t o) const {
  const OpSpace& ops = p_.ops;
  ObjectEntry e;
  e.name = text_of_link(ops, o, osym::o_name);
  e.file = text_of_link(ops, o, osym::o_file);
  e.type = static_cast<char>(ops.at(o + osym::o_filtype)[0]);
  if (const uint8_t v = ops.at(o + osym::o_version)[0]; v != 0) e.version = static_cast<char>(v);
  if (const uint8_t s = ops.at(o + osym::o_separator)[0]; s != 0) e.separator = static_cast<char>(s);
  e.recsize = static_cast<uint16_t>(ops.get16(o + osym::o_recsize));
  e.where = where_of(e.name);
  for (uint32_t l = ops.get24(o + osym::o_fldobj); l != 0; l = ops.get24(l + folink::fo_fldobj))
    e.record.push_back({text_of_link(ops, ops.get24(l + folink::fo_field), fsym::f_name),
                        static_cast<uint16_t>(ops.get16(l + folink::fo_offs))});
  for (uint32_t k = ops.get24(o + osym::o_keylist); k != 0; k = ops.get24(k + keyrec::k_next)) {
    KeyEntry key;
    const uint16_t flags = static_cast<uint16_t>(ops.get16(k + keyrec::k_flags));
    if (!(flags & keyrec::flag_unique)) key.flags |= kDictKeyDuplicates;
    if (flags & keyrec::flag_db_index_only) key.flags |= kDictKeyDbOnly;
    if (flags & keyrec::flag_compress) key.flags |= kDictKeyCompressed;
    for (uint32_t kp = ops.get24(k + keyrec::k_parts); kp != 0; kp = ops.get24(kp + keypart::kp_next)) {
      key.fields.push_back(text_of_link(ops, ops.get24(kp + keypart::kp_field), fsym::f_name));
      key.descending.push_back(ops.get16(kp + keypart::kp_desc) != 0);
    }
    e.keys.push_back(std::move(key));
  }
  return e;
}

Schema SchemaCompiler::schema() const {
  const OpSpace& ops = p_.ops;
  Schema s;
  for (uint32_t f = ops.get24(hdr::h_fields); f != 0; f = ops.get24(f + fsym::f_next)) s.fields.push_back(field(f));
  for (uint32_t o = ops.get24(hdr::h_objects); o != 0; o = ops.get24(o + osym::o_next)) s.objects.push_back(object(o));
  return s;
}

}  // namespace

Schema read_schemas(const std::vector<std::string>& files, Problems& problems) {
  ScratchDir scratch;
  if (!scratch.ok()) {
    problems.push_back("cannot make a scratch directory");
    return {};
  }
  Display display;
  display.set_plain_output(stderr);
  Diagnostics diag(display, false, false);
  diag.start_file();
  diag.set_listing("");
  SchemaCompiler compiler(diag);
  std::vector<Note> notes;
  for (size_t i = 0; i < files.size(); ++i) {
    const std::optional<std::string> out = preprocess(files[i], scratch, static_cast<int>(i), problems);
    if (!out) continue;
    if (std::optional<std::string> text = read_whole(*out)) {
      std::vector<Note> more = read_notes(*text, problems);
      notes.insert(notes.end(), more.begin(), more.end());
    }
    if (!compiler.compile(*out)) problems.push_back(files[i] + ": the preprocessed text cannot be read");
  }
  if (diag.error_count() > 0) {
    std::fputc('\n', stderr);
    problems.push_back("the schema has " + std::to_string(diag.error_count()) + " error(s)");
  }
  if (!problems.empty()) return {};
  Schema schema = compiler.schema();
  apply_notes(notes, schema, problems);
  return schema;
}

}  // namespace tav::dict_tool
