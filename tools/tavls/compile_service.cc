#include "compile_service.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <set>

#include "codegen/compilation.h"
#include "diag/diag.h"
#include "diag/display.h"
#include "diag/render_text.h"
#include "driver/options.h"
#include "driver/pp_records.h"
#include "driver/release_macros.h"
#include "nls/catalogue.h"
#include "runtime/process.h"
#include "statements/program.h"
#include "symbols/compiler_stores.h"
#include "symbols/dictionary_files.h"
#include "symbols/records.h"
#include "schema.h"
#include "hover.h"

namespace tav::lsp {

namespace {

// The tables tavcmp opens without -p: object, field, record, key, documentation; and the version.
constexpr uint16_t kDictionaryMask = 0x001F | 0x0400;

constexpr DictTable kDescriptionTables[] = {DictTable::object, DictTable::field, DictTable::record, DictTable::key,
                                            DictTable::documentation};

// The fields of each object the program names, from its record in the program or the
// dictionary it comes from.
std::map<std::string, std::vector<std::string>> object_fields(const CompilerStores& c, const XrefIndex& index) {
  std::map<std::string, std::vector<std::string>> out;
  const OpSpace& ops = c.stores.ops;
  for (const XrefSymbol& s : index.symbols) {
    if (s.kind != XrefKind::object || s.record + osym::size > ops.brk()) continue;
    std::vector<std::string>& fields = out[s.name];
    const auto dictno = static_cast<int16_t>(ops.get16(s.record + osym::o_dictno));
    if (dictno >= 0 && c.dictionaries) {
      const auto id = static_cast<uint16_t>(ops.get16(s.record + osym::o_objid));
      for (const DictRecordEntry& e : c.dictionaries->record(dictno, id))
        if (std::optional<DictField> f = c.dictionaries->field_by_id(dictno, e.field_id)) fields.push_back(f->name);
      continue;
    }
    size_t count = 0;
    for (uint32_t l = ops.get24(s.record + osym::o_fldobj); l != 0 && l + folink::size <= ops.brk() && count++ < 4096;
         l = ops.get24(l + folink::fo_fldobj)) {
      const uint32_t f = ops.get24(l + folink::fo_field);
      if (f != 0 && f + fsym::size <= ops.brk()) fields.push_back(record_name(ops, f, fsym::f_name));
    }
  }
  return out;
}

// The object `name` with the fields of its record, or the field `name`, out of a whole schema.
dict_tool::Schema part_of_schema(const dict_tool::Schema& all, XrefKind kind, const std::string& name) {
  dict_tool::Schema shown;
  std::set<std::string> fields;
  if (kind == XrefKind::field) fields.insert(name);
  for (const dict_tool::ObjectEntry& o : all.objects) {
    if (kind != XrefKind::object || o.name != name) continue;
    shown.objects.push_back(o);
    for (const dict_tool::RecordEntry& r : o.record) fields.insert(r.field);
  }
  for (const dict_tool::FieldEntry& f : all.fields)
    if (fields.count(f.name)) shown.fields.push_back(f);
  return shown;
}

// The first line (from 1) of `text` that starts with `start`; 1 when none does.
int line_starting(std::string_view text, std::string_view start) {
  int line = 1;
  for (size_t at = 0; at < text.size(); ++line) {
    const size_t end = std::min(text.find('\n', at), text.size());
    if (text.substr(at, end - at).starts_with(start)) return line;
    at = end + 1;
  }
  return 1;
}

std::string last_component(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string with_extension(const std::string& name, const char* ext) {
  const size_t slash = name.rfind('/');
  const size_t dot = name.rfind('.');
  if (dot != std::string::npos && (slash == std::string::npos || dot > slash)) return name.substr(0, dot) + ext;
  return name + ext;
}

bool write_text(const std::string& path, std::string_view text) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (fd < 0) return false;
  bool ok = true;
  while (ok && !text.empty()) {
    const ssize_t n = ::write(fd, text.data(), text.size());
    if (n < 0 && errno == EINTR) continue;
    ok = n > 0;
    if (ok) text.remove_prefix(static_cast<size_t>(n));
  }
  return ::close(fd) == 0 && ok;
}

// The variables the settings give, set in this process for the length of one compile: the
// compiler reads ERQ and the variables a LINK names from the environment.
class EnvironmentOverride {
 public:
  explicit EnvironmentOverride(const std::map<std::string, std::string>& values) {
    for (const auto& [name, value] : values) {
      const char* old = std::getenv(name.c_str());
      saved_.push_back({name, old ? std::optional<std::string>(old) : std::nullopt});
      setenv(name.c_str(), value.c_str(), 1);
    }
  }
  ~EnvironmentOverride() {
    for (const auto& [name, value] : saved_) {
      if (value) setenv(name.c_str(), value->c_str(), 1);
      else unsetenv(name.c_str());
    }
  }
  EnvironmentOverride(const EnvironmentOverride&) = delete;
  EnvironmentOverride& operator=(const EnvironmentOverride&) = delete;

 private:
  std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
};

}  // namespace

DictionaryCache::DictionaryCache() = default;
DictionaryCache::~DictionaryCache() = default;

void DictionaryCache::forget() {
  files_.reset();
  key_.clear();
  stamps_.clear();
}

std::vector<DictionaryCache::Stamp> DictionaryCache::stamps() const {
  std::vector<Stamp> out;
  for (int d = 0; files_ && d < files_->open_count(); ++d) {
    std::vector<std::string> names{files_->path(d) + "-dict.ver"};
    for (DictTable t : kDescriptionTables) names.push_back(files_->path(d) + std::string(dict_table_letters(t)) + "4.idx");
    for (std::string& name : names) {
      Stamp s;
      s.path = std::move(name);
      if (struct stat st {}; stat(s.path.c_str(), &st) == 0) {
        s.seconds = st.st_mtim.tv_sec;
        s.nanoseconds = st.st_mtim.tv_nsec;
        s.size = st.st_size;
      }
      out.push_back(std::move(s));
    }
  }
  return out;
}

DictionaryFiles* DictionaryCache::get(const Settings& settings, std::vector<Diagnostic>& stop) {
  const std::string key = settings.dictionary_key();
  if (files_ && key == key_ && stamps() == stamps_) return files_.get();
  forget();
  auto files = std::make_unique<DictionaryFiles>(kDictionaryMask, settings.getenv());
  std::vector<std::string> names;
  if (!settings.user_dict.empty()) names.push_back(settings.absolute(settings.user_dict));
  if (!settings.global_dict.empty()) names.push_back(settings.absolute(settings.global_dict));
  try {
    files->open_all(names, true);
  } catch (const RunStop& s) {
    stop.push_back(stop_diagnostic(s));
    return nullptr;
  }
  files_ = std::move(files);
  key_ = key;
  stamps_ = stamps();
  return files_.get();
}

CompileService::CompileService(std::string program_dir, std::string work_dir)
    : program_dir_(std::move(program_dir)), dir_(std::move(work_dir)) {}

CompileService::~CompileService() = default;

std::string CompileService::tavpp(const Settings& settings) const {
  const std::string beside = program_dir_ + "/tavpp";
  if (access(beside.c_str(), X_OK) == 0) return beside;
  std::string product = settings.tavrin;
  if (product.empty() || product.back() != '/') product += '/';
  return product + "bin/tavpp";
}

// As tavcmp runs it, on the copy named as the document: the markers, the messages and the
// search for includes beside the program are the document's.
std::vector<std::string> CompileService::preprocessor_args(const std::string& path, const Settings& settings) const {
  std::vector<std::string> args{tavpp(settings)};
  if (std::optional<std::vector<std::string>> macros = release_macro_args())
    args.insert(args.end(), macros->begin(), macros->end());
  const std::vector<std::string> includes = settings.include_dirs();
  for (size_t i = 0; i < includes.size() && i < static_cast<size_t>(kMaxIncludeDirs); ++i)
    args.push_back("-I" + settings.absolute(includes[i]));
  args.push_back("--include-chain");
  args.push_back("--message-records=" + dir_ + "/pp.msg");
  args.push_back("--source-name=" + path);
  args.push_back("-o" + dir_ + "/pp.err");
  args.push_back("--");
  args.push_back(dir_ + "/" + last_component(path));
  args.push_back(dir_ + "/pp.out");
  return args;
}

CompileResult CompileService::compile(const std::string& path, std::string_view text, const Settings& settings) {
  const std::string copy = dir_ + "/" + last_component(path);
  const std::string output = dir_ + "/pp.out", records = dir_ + "/pp.msg";
  for (const std::string& name : {output, records, dir_ + "/pp.err"}) unlink(name.c_str());
  if (!write_text(copy, text)) {
    CompileResult failed;
    failed.diagnostics.push_back(
        problem_diagnostic(txt::cant_open_temporary, format_text(txt::cant_open_temporary, {copy, std::to_string(errno)})));
    return failed;
  }

  std::vector<Diagnostic> out;
  DictionaryFiles* dictionaries = settings.dictionaries ? dictionaries_.get(settings, out) : nullptr;
  if (!out.empty()) {  // the dictionaries stop every compile, as they stop tavcmp's run
    CompileResult stopped;
    stopped.diagnostics = std::move(out);
    return stopped;
  }
  const EnvironmentOverride environment(settings.environment);

  Display display;
  display.set_plain_output(nullptr);
  Diagnostics diag(display, false, false);
  diag.set_collecting(true);
  diag.start_file();
  diag.set_listing("");
  const std::vector<std::string> includes = settings.include_dirs();
  for (size_t i = 0; i < includes.size() && i < static_cast<size_t>(kMaxIncludeDirs); ++i)
    diag.info_text(txt::custom_include_path, includes[i]);
  if (includes.size() > static_cast<size_t>(kMaxIncludeDirs)) diag.info_text(txt::too_many_include_directories);

  const std::vector<std::string> args = preprocessor_args(path, settings);
  const int result = run_program(args);
  const int err = errno;
  out = read_pp_records(records);
  std::vector<Diagnostic> problems;
  CompileResult done;
  if (result != 0) {
    problems.push_back(problem_diagnostic(txt::errors_during_preprocessing, std::string(text_of(txt::errors_during_preprocessing))));
    if (result < 0) problems.back().notes.push_back({"cannot run '" + args[0] + "': " + std::strerror(err), {}});
  } else {
    CompileSettings compile_settings;
    compile_settings.dates = conv::DateSettings::from_env(settings.getenv());
    const char* no_prev_warning = settings.get("TAVNOPREVWARN");
    compile_settings.get_prev_warning = no_prev_warning == nullptr || no_prev_warning[0] == '\0';
    for (int d = 0; dictionaries && d < dictionaries->open_count(); ++d)
      compile_settings.dictionaries.emplace_back(dictionaries->path(d), dictionaries->version(d));
    CompilerStores compiler(diag, std::move(compile_settings));
    std::string product = settings.tavrin;
    if (product.empty() || product.back() != '/') product += '/';
    const char* language = settings.get("TAVLANGUAGE");
    nls::Catalogue catalogue(product, language ? language : "");
    compiler.dictionaries = dictionaries;
    compiler.catalogue = &catalogue;
    compiler.tok.set_include_chain(true);
    compiler.syms.set_keep_xref(true);
    FileContext file;
    file.source_name = path;
    file.err_name = with_extension(path, ".err");
    file.op6_name = with_extension(path, ".op6");
    if (compiler.tok.open_source(output) != 0) {
      problems.push_back(problem_diagnostic(txt::cant_open_temporary, format_text(txt::cant_open_temporary, {output, std::to_string(errno)})));
    } else {
      diag.set_source(&compiler.tok);
      try {
        if (dictionaries) dictionaries->begin_snapshots();
        compile_program(compiler, file);
      } catch (const FileAbort&) {
        // Counted and reported; the file is done.
      } catch (const RunStop& stop) {
        problems.push_back(stop_diagnostic(stop));
        dictionaries_.forget();
        dictionaries = nullptr;
        compiler.dictionaries = nullptr;  // closed: what is read after the compile does without them
      }
      done.xref = build_xref(compiler);
      done.hovers = hover_texts(compiler, done.xref);  // reads the dictionaries: inside the snapshot
      done.object_fields = object_fields(compiler, done.xref);
      for (const std::string& library : file.libraries_read.paths()) {
        std::error_code ec;
        const std::string source = std::filesystem::absolute(with_extension(library, ".spl"), ec).string();
        if (!ec && std::filesystem::is_regular_file(source, ec)) done.library_sources.push_back(source);
      }
      if (dictionaries) dictionaries->end_snapshots();
      if (file.have_table) {
        done.outline = outline_of(compiler, path, text);
        add_reports_and_modes(done.outline, done.xref, path);
        done.definitions = definitions_of(compiler);
      }
      compiler.tok.close_source();
      diag.set_source(nullptr);
    }
  }
  for (Diagnostic& d : diag.take_collected()) out.push_back(std::move(d));
  for (Diagnostic& d : problems) out.push_back(std::move(d));
  for (Diagnostic& d : out)
    if (render::shown(d)) done.diagnostics.push_back(std::move(d));
  for (const std::string& name : {copy, output, records, dir_ + "/pp.err"}) unlink(name.c_str());
  return done;
}

bool CompileService::read_dictionaries(const Settings& settings, const std::function<void(DictionaryFiles&)>& read) {
  std::vector<Diagnostic> stop;
  DictionaryFiles* d = settings.dictionaries ? dictionaries_.get(settings, stop) : nullptr;
  if (!d) return false;
  try {
    d->begin_snapshots();
    read(*d);
    d->end_snapshots();
  } catch (const RunStop&) {
    dictionaries_.forget();  // damaged under us: opened again next time
    return false;
  }
  return true;
}

std::vector<std::string> CompileService::dictionary_fields(const std::string& object, const Settings& settings) {
  std::vector<std::string> fields;
  read_dictionaries(settings, [&](DictionaryFiles& d) {
    if (const std::optional<DictObject> o = d.find_object(object))
      for (const DictRecordEntry& e : d.record(o->dictno, o->id))
        if (std::optional<DictField> f = d.field_by_id(o->dictno, e.field_id)) fields.push_back(f->name);
  });
  return fields;
}

std::vector<std::string> CompileService::dictionary_objects(const Settings& settings) {
  std::vector<std::string> names;
  read_dictionaries(settings, [&](DictionaryFiles& d) { names = d.object_names(); });
  return names;
}

std::optional<std::pair<std::string, int>> CompileService::dictionary_view(XrefKind kind, const std::string& name,
                                                                           const Settings& settings) {
  if (kind != XrefKind::field && kind != XrefKind::object) return std::nullopt;
  int dictno = -1;
  std::string prefix;
  read_dictionaries(settings, [&](DictionaryFiles& d) {
    if (kind == XrefKind::object) {
      if (const std::optional<DictObject> o = d.find_object(name)) dictno = o->dictno;
    } else if (const std::optional<DictField> f = d.find_field(name)) {
      dictno = f->dictno;
    }
    if (dictno >= 0 && dictno < d.open_count()) prefix = d.path(dictno);
  });
  if (prefix.empty()) return std::nullopt;
  dict_tool::Problems problems;
  const std::unique_ptr<dict_tool::Store> store = dict_tool::Store::open(prefix, false, true, problems);
  if (!store) return std::nullopt;
  const dict_tool::Schema all = store->read(problems);
  const dict_tool::Schema shown = part_of_schema(all, kind, name);
  if (shown.fields.empty() && shown.objects.empty()) return std::nullopt;
  const std::string text = dict_tool::write_schema(shown, problems);
  const std::string dir = dir_ + "/dictionary";
  mkdir(dir.c_str(), 0700);
  const std::string path = dir + "/" + name + ".sch";
  unlink(path.c_str());  // the last one is read-only
  if (!write_text(path, text)) return std::nullopt;
  chmod(path.c_str(), 0400);
  return std::make_pair(path, line_starting(text, (kind == XrefKind::object ? "object " : "field ") + name));
}

}  // namespace tav::lsp
