// The compile driver: start-up checks, the per-file loop with preprocessing and output naming,
// result lines and the compilation summary, and cleanup_exit, the single way out of the
// process (normal end, start-up failure, or one of the four termination signals).

#include "driver/driver.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "codegen/bytes.h"
#include "codegen/compilation.h"
#include "codegen/convert.h"
#include "codegen/header.h"
#include "codegen/optable.h"
#include "codegen/opspace.h"
#include "diag/diag.h"
#include "diag/display.h"
#include "driver/context.h"
#include "driver/diagnostics_output.h"
#include "driver/pp_records.h"
#include "driver/release_macros.h"
#include "driver/xref.h"
#include "lexer/tokenizer.h"
#include "lexer/verbs.h"
#include "nls/catalogue.h"
#include "nls/language_files.h"
#include "runtime/file_lock.h"
#include "runtime/make_rules.h"
#include "runtime/output_open.h"
#include "runtime/process.h"
#include "statements/program.h"
#include "symbols/compiler_stores.h"
#include "symbols/dictionary_files.h"
#include "symbols/programs.h"
#include "symbols/records.h"
#include "symbols/symtab.h"

namespace tav {

namespace {

// What the signal handler must reach without a context: it is the only asynchronous entry, so
// these are plain buffers it can read at any moment.
struct SignalCleanup {
  char temp_name[PATH_MAX];  // the preprocessor output, once its name is built
  char work_name[PATH_MAX];  // an .op6 work file while it is being written
  char records_name[PATH_MAX];  // the preprocessor's message records (diagnostics formats)
  Display* display;          // to end the screen
  const Diagnostics* diag;   // to finish the listing
};
SignalCleanup g_cleanup;

extern "C" void on_signal(int sig) {
  stop_running_child();
  if (g_cleanup.temp_name[0]) unlink(g_cleanup.temp_name);
  if (g_cleanup.work_name[0]) unlink(g_cleanup.work_name);
  if (g_cleanup.records_name[0]) unlink(g_cleanup.records_name);
  if (int fd = g_cleanup.diag ? g_cleanup.diag->listing_fd() : -1; fd >= 0) {
    ssize_t ignored = write(fd, "\n", 1);  // a listing always ends with a newline
    (void)ignored;
  }
  if (g_cleanup.display && g_cleanup.display->screen()) {
    g_cleanup.display->end();
  } else {
    ssize_t ignored = write(STDOUT_FILENO, "\n", 1);
    (void)ignored;
  }
  _exit(sig);
}

void copy_name(char (&dest)[PATH_MAX], const std::string& name) {
  sigset_t all, old;
  sigfillset(&all);
  sigprocmask(SIG_BLOCK, &all, &old);
  std::snprintf(dest, sizeof dest, "%s", name.c_str());
  sigprocmask(SIG_SETMASK, &old, nullptr);
}

// Replaces the extension (the text from the last "." behind the last "/" or "\") of a name.
std::string with_extension(const std::string& name, const char* ext) {
  size_t slash = name.find_last_of("/\\");
  size_t dot = name.rfind('.');
  if (dot != std::string::npos && (slash == std::string::npos || dot > slash))
    return name.substr(0, dot) + ext;
  return name + ext;
}

std::string last_component(const std::string& name) {
  size_t slash = name.find_last_of("/\\");
  return slash == std::string::npos ? name : name.substr(slash + 1);
}

bool ends_with_separator(const std::string& s) {
  return !s.empty() && (s.back() == '/' || s.back() == '\\');
}

// A file name handed to another program as an argument: one that begins with "-" would be read
// as an option there, so a relative one is written "./-name" (the same file).
std::string as_operand(const std::string& name) { return name.rfind('-', 0) == 0 ? "./" + name : name; }

// The size of a file, 0 when it cannot be seen.
off_t size_of(const std::string& path) {
  struct stat st {};
  return lstat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) ? st.st_size : 0;
}

// What a regular file holds from `from` on (at most `limit` bytes); nothing when the name is
// not a regular file.
std::string read_tail(const std::string& path, off_t from, size_t limit) {
  const int fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return {};
  std::string text;
  struct stat st {};
  if (fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_size > from) {
    text.resize(std::min(static_cast<size_t>(st.st_size - from), limit));
    const ssize_t n = pread(fd, text.data(), text.size(), from);
    text.resize(n > 0 ? static_cast<size_t>(n) : 0);
  }
  close(fd);
  return text;
}

// SOURCE_DATE_EPOCH: a decimal count of seconds since 1970 that fits the table header's 32 bits,
// or nothing (unset or empty). `problem` says why a value that is set cannot be used.
std::optional<int64_t> source_date_epoch(const char* value, std::string& problem) {
  if (value == nullptr || *value == '\0') return std::nullopt;
  const std::string_view text = value;
  int64_t seconds = 0;
  for (char c : text) {
    if (c < '0' || c > '9') {
      problem = "SOURCE_DATE_EPOCH '" + std::string(text) + "' is not a count of seconds since 1970";
      return std::nullopt;
    }
    seconds = seconds * 10 + (c - '0');
    if (seconds > int64_t{UINT32_MAX}) {
      problem = "SOURCE_DATE_EPOCH '" + std::string(text) + "' lies beyond the year 2106, which a table cannot hold";
      return std::nullopt;
    }
  }
  return seconds;
}

// Writes `text` to `path` through `path`.tmp, renamed into place, so that a reader sees the old
// file or the new one, never a part; a signal meanwhile removes the temporary file. Empty, or
// why it could not be written.
std::string replace_file(const std::string& path, std::string_view text) {
  const std::string work = path + ".tmp";
  copy_name(g_cleanup.work_name, work);
  unlink(work.c_str());
  const OpenedOutput out = open_output(work, OutputMode::truncate);
  bool written = out.fd >= 0;
  int err = out.fd >= 0 ? 0 : errno;
  for (size_t done = 0; written && done < text.size();) {
    const ssize_t n = write(out.fd, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      err = n < 0 ? errno : ENOSPC;
      written = false;
    } else {
      done += static_cast<size_t>(n);
    }
  }
  if (out.fd >= 0 && close(out.fd) != 0 && written) {
    err = errno;
    written = false;
  }
  if (written && rename(work.c_str(), path.c_str()) != 0) {
    err = errno;
    written = false;
  }
  if (!written) unlink(work.c_str());
  copy_name(g_cleanup.work_name, "");
  return written ? std::string() : out.problem.empty() ? std::strerror(err) : out.problem;
}

// The byte-packed record access every operations-table record relies on.
bool record_access_works() {
  const uint8_t record[5] = {0x11, 0x22, 0x33, 0xff, 0xaa};
  if (get16(record + 3) != 0xffaa) return false;
  uint8_t word[4];
  put32(word, 0xfedcba98);
  return get32(word) == 0xfedcba98 && word[0] == 0xfe;
}

class Driver {
 public:
  Driver(int argc, char** argv)
      : argc_(argc), argv_(argv), diag_(display_, false, false) {}

  [[noreturn]] void run();

 private:
  void start_up();
  void compile_file(const std::string& argument);
  void name_files(FileContext& file);
  bool preprocess(FileContext& file);
  void compile_and_write(FileContext& file);
  void report_result(FileContext& file);
  void show_summary(FileContext& file);
  void write_statistics();
  void run_nls(const FileContext& file);
  void show_stop(const std::string& message);
  [[noreturn]] void stop_run(const RunStop& stop);
  void write_outputs(FileContext& file);
  void open_dictionaries();
  void open_language_files();
  void register_program(const FileContext& file);
  void add_files_read(const FileContext& file);
  void fix_time(CompileSettings& settings);
  void say(txt::Text message);
  void show(std::string_view text);
  void start_diagnostics_output();
  void finish_file(const FileContext& file, bool preprocessed);
  void keep_problem(txt::Text code, std::string message, std::string context);
  FileDiagnostics take_file_diagnostics(const std::string& source);
  void keep_stop(const RunStop& stop);
  bool write_xref();
  int final_status() const;
  void explain(const std::string& text);
  void explain_not_started(const std::string& path, int err);
  void explain_preprocessor_messages(const std::string& listing, off_t from);
  bool refuse_unusual_source(const std::string& source);
  [[noreturn]] void cleanup_exit(int status);

  int argc_;
  char** argv_;
  RunContext run_;
  Display display_;
  Diagnostics diag_;
  std::unique_ptr<DictionaryFiles> dictionaries_;  // open from start-up to exit; none with -n
  std::unique_ptr<CompilerStores> compiler_;       // made once the options are known
  nls::LanguageFiles language_files_;              // open from start-up while TAVLANGDIR asks
  std::unique_ptr<nls::Catalogue> catalogue_;
  std::string temp_name_;
  bool had_errors_ = false;
  int files_attempted_ = 0;
  int earlier_errors_ = 0;  // the error counts of the files before the current one
  time_t summary_start_ = 0;
  std::vector<std::string> explanations_;  // held back while the progress window is on the screen
  // A diagnostics format: the model is collected and written through diagnostics_out_.
  bool modern_ = false;
  std::unique_ptr<DiagnosticsOutput> diagnostics_out_;
  // --xref: each program's cross reference, written when the run ends.
  nlohmann::ordered_json xref_programs_ = nlohmann::ordered_json::array();
  std::string records_name_;             // the preprocessor's message records of the file
  std::vector<Diagnostic> run_problems_;  // the file's failures beside its messages
  std::string current_source_;            // the file being compiled, for a stop of the run
  bool run_failed_ = false;              // a file had errors or was not preprocessed, written, registered
};

void Driver::run() {
  start_up();
  for (const std::string& source : run_.options.sources) compile_file(source);
  cleanup_exit(final_status());
}

// The classic status is the first-error value of the last file; for build tools, 1 when any
// file failed.
int Driver::final_status() const {
  if (run_.options.error_status) return run_failed_ ? 1 : 0;
  return diag_.first_error();
}

void Driver::start_up() {
  run_.program_name = argv_[0];
  struct sigaction sa {};
  sa.sa_handler = on_signal;
  sigfillset(&sa.sa_mask);
  for (int sig : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) sigaction(sig, &sa, nullptr);
  // A closed output pipe and the file-size limit are write errors, reported where they happen,
  // not signals that end the run before it can clean up.
  signal(SIGPIPE, SIG_IGN);
  signal(SIGXFSZ, SIG_IGN);
  g_cleanup.display = &display_;
  g_cleanup.diag = &diag_;
  diag_.on_listing_refused([this](const std::string& why) { explain(why); });

  std::string usage_problem;
  std::optional<Options> options = parse_options(argc_ - 1, argv_ + 1, std::getenv("TAVCMPINC"), &usage_problem);

  const char* tavrin = std::getenv("TAVRIN");
  run_.product_dir = tavrin ? tavrin : "/usr/tavrin";
  if (!ends_with_separator(run_.product_dir)) run_.product_dir += '/';
  run_.bin_dir = run_.product_dir + "bin/";
  run_.lib_dir = run_.product_dir + "lib/";

  if (!options) {
    std::fputs(kUsageText, stdout);
    std::fflush(stdout);
    explain(usage_problem);
    std::exit(255);
  }
  if (options->help) {
    std::printf("%s\n%s", kUsageText, kHelpText);
    std::exit(std::fflush(stdout) == 0 ? 0 : 255);
  }
  if (options->version) std::exit(print_version("tavcmp") == 0 ? 0 : 255);
  run_.options = std::move(*options);
  if (run_.options.diagnostics_format != DiagnosticsFormat::classic) start_diagnostics_output();
  if (!run_.options.xref_output.empty()) diag_.set_collecting(true);  // the places of the names
  const Options& o = run_.options;
  diag_.set_suppression(o.no_warning, o.no_info);
  summary_start_ = o.summary_start;

  // Without a terminal the progress window does not open and output stays plain.
  if (o.screen) display_.open_screen(product_version() + " Compiler");
  if (std::string_view bad = check_verb_table(); !bad.empty()) {
    show(format_text(txt::verb_table_out_of_order, {bad}));
    display_.wait_ack();
    cleanup_exit(255);
  }
  if (!record_access_works()) {
    show(text_of(txt::record_access_broken));
    display_.wait_ack();
    cleanup_exit(255);
  }
  if (o.dictionaries) open_dictionaries();
  open_language_files();

  CompileSettings settings;
  settings.debug_ops = o.debug_ops;
  settings.debug_level = o.debug_level;
  settings.dict_check = o.dict_check;
  settings.system_name = o.system_name;
  settings.dates = conv::DateSettings::from_env();
  const char* no_prev_warning = std::getenv("TAVNOPREVWARN");
  settings.get_prev_warning = no_prev_warning == nullptr || no_prev_warning[0] == '\0';
  fix_time(settings);
  // A reproducible table names each dictionary as the run was told it, not where the search
  // found it on this machine.
  for (int d = 0; dictionaries_ && d < dictionaries_->open_count(); ++d)
    settings.dictionaries.emplace_back(settings.fixed_time >= 0 ? dictionaries_->name(d) : dictionaries_->path(d),
                                       dictionaries_->version(d));
  compiler_ = std::make_unique<CompilerStores>(diag_, std::move(settings));
  compiler_->dictionaries = dictionaries_.get();
  compiler_->catalogue = catalogue_.get();
  compiler_->tok.set_include_chain(modern_);
  compiler_->syms.set_keep_xref(!run_.options.xref_output.empty());
}

// With SOURCE_DATE_EPOCH the tables are reproducible: their compile time is the variable's, and
// what depends on the time of day (today's date, the local time zone) is taken from it in UTC.
// A value that cannot be used is told, and the clock is used.
void Driver::fix_time(CompileSettings& settings) {
  std::string problem;
  const std::optional<int64_t> epoch = source_date_epoch(std::getenv("SOURCE_DATE_EPOCH"), problem);
  if (!problem.empty()) explain(problem + "; the tables get the current time");
  if (!epoch) return;
  constexpr int64_t kSecondsPerDay = 86400;
  settings.fixed_time = *epoch;
  settings.dates.today = static_cast<int32_t>(conv::kEpochDay + *epoch / kSecondsPerDay);
  settings.dates.utc = true;
}

// A diagnostics format takes standard output (json, sarif) or standard error (gcc) for itself:
// the progress window stays closed and the classic lines reach only the listings.
void Driver::start_diagnostics_output() {
  Options& o = run_.options;
  modern_ = true;
  o.error_status = true;
  o.screen = false;
  display_.set_plain_output(nullptr);
  diag_.set_collecting(true);
  diagnostics_out_ = std::make_unique<DiagnosticsOutput>(o.diagnostics_format, o.diagnostics_output, product_version());
  if (std::string problem; !diagnostics_out_->open(problem)) {
    explain(problem);
    std::exit(255);
  }
}

// The language files of TAVLANGDIR and TAVLANGUAGE, and the message catalogue of TAVLANGUAGE.
// Files that cannot be used are reported, and the run goes on without them.
void Driver::open_language_files() {
  const char* language = std::getenv("TAVLANGUAGE");
  catalogue_ = std::make_unique<nls::Catalogue>(run_.product_dir, language ? language : "");
  catalogue_->note_files_in(&run_.files_read);
  std::string message;
  if (language_files_.open(std::getenv("TAVLANGDIR"), language, message) < 0) show(message);
}

// Every program compiled gets its number in the program index of the language files.
void Driver::register_program(const FileContext& file) {
  std::string message;
  if (language_files_.register_program(run_.options.system_name, file.source_name, message) < 0)
    show(message);
}

// The user dictionary, then the global one; the dictionaries of the environment when neither
// is given. A dictionary that cannot be used ends the run.
void Driver::open_dictionaries() {
  constexpr uint16_t kAlwaysOpen = 0x001F;  // object, field, record, key, documentation
  constexpr uint16_t kVersionFile = 0x0400;
  const Options& o = run_.options;
  dictionaries_ = std::make_unique<DictionaryFiles>(kAlwaysOpen | o.dict_open_mask | kVersionFile);
  dictionaries_->note_files_in(&run_.files_read);
  std::vector<std::string> names;
  if (o.have_user_dict) names.push_back(o.user_dict);
  if (o.have_global_dict) names.push_back(o.global_dict);
  try {
    dictionaries_->open_all(names, true);
  } catch (const RunStop& stop) {
    // No source is open yet.
    if (!stop.explanation.empty()) explain(stop.explanation);
    if (modern_) keep_stop(stop);
    else show_stop(stop.message);
    cleanup_exit(255);
  }
}

void Driver::compile_file(const std::string& argument) {
  // The operator acknowledges the previous file's errors; cancelling there ends the run.
  if (had_errors_ && display_.screen() && display_.wait_ack() < 0) cleanup_exit(0);

  FileContext file;
  if (files_attempted_++ > 0) earlier_errors_ += diag_.error_count();
  diag_.start_file();
  diag_.set_source(nullptr);
  file.source_name = argument;

  if (!display_.screen()) {
    display_.print("\n%s:", file.source_name.c_str());
    std::fflush(stdout);
  } else {
    display_.clear_messages();
    display_.set_title_line("Program : " + file.source_name);
  }

  name_files(file);
  current_source_ = file.source_name;

  if (access(file.source_name.c_str(), F_OK) != 0) {
    diag_.set_listing("");
    diag_.error_text(txt::cant_open_source_file, file.source_name);
    if (display_.screen()) display_.wait_ack();
    had_errors_ = true;
    finish_file(file, true);
    return;
  }

  // Two compiles of the same source take their turns: they share its listing and its table.
  // Only a regular file is locked: opening a FIFO to lock it would wait for a writer for ever,
  // and a device is no source either. The preprocessor refuses them, with its message.
  std::optional<FileLock> same_source;
  if (!refuse_unusual_source(file.source_name)) same_source.emplace(file.source_name);
  // A file the preprocessor refused has its message and no result line.
  const bool preprocessed = preprocess(file);
  if (preprocessed) {
    if (compiler_->tok.open_source(temp_name_) != 0) {
      int err = errno;
      const std::string message = format_text(txt::cant_open_temporary, {temp_name_, std::to_string(err)});
      show(message);
      display_.wait_ack();
      keep_problem(txt::cant_open_temporary, message, "");
    } else {
      compile_and_write(file);
      if (run_.options.write_dependencies) add_files_read(file);
    }
    report_result(file);
  }
  had_errors_ = diag_.error_count() > 0;
  finish_file(file, preprocessed);

  compiler_->reset();
}

// What the file's compile reported, with the preprocessor's messages first, goes to the
// diagnostics output; a file that failed in any way fails the run for build tools.
void Driver::finish_file(const FileContext& file, bool preprocessed) {
  if (diag_.error_count() > 0 || !preprocessed || file.registration_failed || !run_problems_.empty())
    run_failed_ = true;
  current_source_.clear();
  if (!modern_) {
    run_problems_.clear();
    diag_.take_collected();  // kept for the cross reference's places only
    return;
  }
  diagnostics_out_->file_done(take_file_diagnostics(file.source_name));
}

// What the file reported: the preprocessor's messages, the compile's, then its failures.
FileDiagnostics Driver::take_file_diagnostics(const std::string& source) {
  FileDiagnostics done;
  done.source = source;
  if (!records_name_.empty()) {
    done.items = read_pp_records(records_name_);
    unlink(records_name_.c_str());
  }
  for (Diagnostic& d : diag_.take_collected()) done.items.push_back(std::move(d));
  for (Diagnostic& d : run_problems_) done.items.push_back(std::move(d));
  run_problems_.clear();
  return done;
}

// With a diagnostics format a stop of the run is the document's last entry, after what the file
// being compiled reported so far (on its own before the first file).
void Driver::keep_stop(const RunStop& stop) {
  run_problems_.push_back(stop_diagnostic(stop));
  diagnostics_out_->file_done(take_file_diagnostics(current_source_));
  current_source_.clear();
}

// A failure that is not a message of the compile (the preprocessor refused the file, the table
// could not be written): in the model, about the file as a whole.
void Driver::keep_problem(txt::Text code, std::string message, std::string context) {
  run_problems_.push_back(problem_diagnostic(code, std::move(message), std::move(context)));
}

void Driver::name_files(FileContext& file) {
  file.source_name = with_extension(file.source_name, ".spl");
  const Options& o = run_.options;
  std::string base = file.source_name;
  if (o.have_output_dir) {
    base = o.output_dir;
    if (!ends_with_separator(base)) base += '/';
    base += last_component(file.source_name);
  }
  file.err_name = with_extension(base, ".err");
  file.op6_name = with_extension(base, ".op6");
}

bool Driver::preprocess(FileContext& file) {
  const Options& o = run_.options;
  if (temp_name_.empty()) {
    const char* tmpdir = std::getenv("TMPDIR");
    std::string name = std::string(tmpdir && *tmpdir ? tmpdir : "/tmp") + "/ppXXXXXX";
    // The file exists from mkstemp on: the signal handler must know its name by then.
    sigset_t all, old;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, &old);
    int fd = mkstemp(name.data());
    if (fd >= 0) close(fd);
    std::snprintf(g_cleanup.temp_name, sizeof g_cleanup.temp_name, "%s", name.c_str());
    sigprocmask(SIG_SETMASK, &old, nullptr);
    temp_name_ = name;
  } else {
    unlink(temp_name_.c_str());
  }
  diag_.close_listing();
  unlink(file.err_name.c_str());
  diag_.set_listing(file.err_name);

  std::vector<std::string> args{run_.product_dir + "bin/tavpp"};
  if (std::optional<std::vector<std::string>> macros = release_macro_args())
    args.insert(args.end(), macros->begin(), macros->end());
  else
    show(text_of(txt::unknown_release_number));
  for (const std::string& inc : o.includes) args.push_back(inc);
  if (o.write_dependencies) {
    // The preprocessor knows every file it opened: it writes the make rule for the table.
    args.push_back("-MF" + with_extension(file.op6_name, ".d"));
    args.push_back("-MT" + file.op6_name);
  }
  if (modern_) {
    // The include chain for the "in file included from" notes, and the messages as records.
    records_name_ = temp_name_ + ".msg";
    copy_name(g_cleanup.records_name, records_name_);
    args.push_back("--include-chain");
    args.push_back("--message-records=" + records_name_);
  }
  args.push_back("-o" + file.err_name);
  // Names are never options to the preprocessor, whatever they begin with.
  if (file.source_name.rfind('-', 0) == 0 || temp_name_.rfind('-', 0) == 0) args.push_back("--");
  args.push_back(file.source_name);
  args.push_back(temp_name_);

  for (const std::string& inc : o.includes)
    diag_.info_text(txt::custom_include_path, std::string_view(inc).substr(2));
  if (o.include_overflow)
    diag_.info_text(txt::too_many_include_directories);

  const off_t listed_before = size_of(file.err_name);
  if (const int result = run_program(args); result != 0) {
    const int err = errno;
    if (modern_) {
      // The preprocessor's messages are in the model, and so is the refusal.
      if (result < 0) explain_not_started(args[0], err);
      keep_problem(txt::errors_during_preprocessing, std::string(text_of(txt::errors_during_preprocessing)), "");
      return false;
    }
    say(txt::errors_during_preprocessing);
    if (result < 0) explain_not_started(args[0], err);
    else explain_preprocessor_messages(file.err_name, listed_before);
    return false;
  }
  return true;
}

void Driver::compile_and_write(FileContext& file) {
  CompilerStores& c = *compiler_;
  register_program(file);
  diag_.set_source(&c.tok);
  try {
    // Each file reads the dictionaries as one snapshot, as they are when its compile begins.
    if (dictionaries_) dictionaries_->begin_snapshots();
    compile_program(c, file);
  } catch (const FileAbort&) {
    // The abort is counted; go on to close the source, which writes nothing now.
  } catch (const RunStop& stop) {
    stop_run(stop);
  }
  if (dictionaries_) dictionaries_->end_snapshots();
  if (!run_.options.xref_output.empty()) xref_programs_.push_back(xref_json(build_xref(c), file.source_name));
  c.tok.close_source();
  try {
    if (diag_.first_error() == 0 && !run_.options.test_only) write_outputs(file);
  } catch (const FileAbort& abort) {
    // The file's output is abandoned; the rest of this phase is skipped. The message is shown,
    // not listed (the listing keeps the compile's messages only); standard error has the path
    // and the system's words for the error.
    // With a diagnostics format both are the entry's.
    keep_problem(txt::table_not_written, std::string(text_of(txt::table_not_written)),
                 abort.reason.empty() ? abort.message : abort.reason);
    if (modern_) {
      if (!abort.message.empty() && !abort.reason.empty()) run_problems_.back().notes.push_back({abort.message, {}});
    } else {
      if (!abort.message.empty()) show_stop(abort.message);
      if (!abort.reason.empty()) explain(abort.reason);
    }
  } catch (const RunStop& stop) {
    stop_run(stop);
  }
  diag_.set_source(nullptr);
}

// The dictionary entries of the program, its table, and the table's language texts.
void Driver::write_outputs(FileContext& file) {
  CompilerStores& c = *compiler_;
  const ProgramEntriesFailure failure =
      write_po_entries(c.stores.ops, dictionaries_.get(), run_.options.system_name, file.source_name);
  file.registration_failed = failure.failed();
  if (failure.failed() && modern_) {
    keep_problem(failure.code, failure.message, "");  // an entry of the diagnostics, not a window line
  } else if (failure.wait_for_ack) {
    show_stop(failure.message);
  } else if (!failure.message.empty()) {
    show(failure.message);
  }
  OptableWriter writer(c.stores, c.settings, file, run_.program_name,
                       [](const std::string& work) { copy_name(g_cleanup.work_name, work); });
  writer.write();
  run_nls(file);
}

// The preprocessor's make rule names the source and its includes; the table also depends on
// the dictionary tables, libraries and catalogue files the compile read, which are added to it.
// Rules that cannot be completed are removed rather than left incomplete: a build tool then
// compiles the table again instead of trusting rules that miss a prerequisite.
void Driver::add_files_read(const FileContext& file) {
  std::vector<std::string> more = run_.files_read.paths();
  for (const std::string& library : file.libraries_read.paths()) more.push_back(library);
  if (more.empty()) return;
  const std::string rules_name = with_extension(file.op6_name, ".d");
  const std::string rules = read_tail(rules_name, 0, std::string::npos);
  if (rules.empty()) return;  // the preprocessor wrote none
  const std::string text = add_prerequisites(rules, more);
  if (const std::string why = replace_file(rules_name, text); !why.empty()) {
    unlink(rules_name.c_str());
    explain("cannot write '" + rules_name + "': " + why + "; the rules were removed");
    run_failed_ = true;
  }
}


// A fault that makes the rest of the run pointless (a damaged dictionary): shown, then the run ends.
void Driver::stop_run(const RunStop& stop) {
  compiler_->tok.close_source();
  if (!stop.explanation.empty()) explain(stop.explanation);
  if (modern_) keep_stop(stop);
  else show_stop(stop.message);
  cleanup_exit(255);
}

// Shows a message that is not a compile diagnostic and waits for it to be acknowledged.
void Driver::show_stop(const std::string& message) {
  show(message);
  display_.wait_ack();
}

// A message about the run rather than the program: in the progress window, or on a line of its
// own in plain mode.
void Driver::say(txt::Text message) {
  const std::string_view text = text_of(message);
  if (modern_)
    explain(std::string(text));
  else if (display_.screen())
    show(text);
  else
    display_.print("%.*s\n", static_cast<int>(text.size()), text.data());
}

// A message about the run shown in the progress window or on standard output; with a
// diagnostics format, which keeps those for itself, on standard error.
void Driver::show(std::string_view text) {
  if (modern_) explain(std::string(text));
  else display_.show(text);
}

// Why something failed, for the person running the compiler: a line on standard error, which
// leaves the classic output alone. While the progress window holds the terminal the lines wait
// until it is closed.
void Driver::explain(const std::string& text) {
  if (text.empty()) return;
  std::string line = run_.program_name + ": " + text + "\n";
  if (display_.screen()) {
    explanations_.push_back(std::move(line));
    return;
  }
  std::fflush(stdout);  // the explanation follows what standard output has said so far
  std::fputs(line.c_str(), stderr);
}

// A companion program that could not be started at all: usually TAVRIN does not name the
// product directory.
void Driver::explain_not_started(const std::string& path, int err) {
  const char* tavrin = std::getenv("TAVRIN");
  std::string hint = tavrin ? "TAVRIN is '" + std::string(tavrin) + "'" : "TAVRIN is not set, so /usr/tavrin is used";
  explain("cannot run '" + path + "': " + std::strerror(err) + " (" + hint +
          "; it must name the product directory, whose bin/ holds tavpp and tavcmpnls)");
}

// The preprocessor's own messages are in the listing; in plain mode they are shown as well, so
// that nobody has to open the listing to see why a file was refused.
void Driver::explain_preprocessor_messages(const std::string& listing, off_t from) {
  if (display_.screen()) return;
  constexpr size_t kShownBytes = 64 * 1024;
  std::string text = read_tail(listing, from, kShownBytes);
  const size_t start = text.find_first_not_of('\n');
  if (start == std::string::npos) return;
  text.erase(0, start);
  while (!text.empty() && text.back() == '\n') text.pop_back();
  std::fflush(stdout);
  std::fprintf(stderr, "%s\n", text.c_str());
}

// A source that exists but is not a regular file (a FIFO, a device, a directory) is not opened
// here; the reason is told, and the preprocessor refuses it.
bool Driver::refuse_unusual_source(const std::string& source) {
  struct stat st {};
  if (stat(source.c_str(), &st) != 0 || S_ISREG(st.st_mode)) return false;
  const char* kind = S_ISFIFO(st.st_mode) ? "a FIFO" : S_ISDIR(st.st_mode) ? "a directory"
                     : S_ISCHR(st.st_mode) || S_ISBLK(st.st_mode) ? "a device" : "not a regular file";
  explain("source '" + source + "' is " + kind + ", not a regular file: not compiled");
  return true;
}

// With language-text processing on, the post-processor records the table's texts.
void Driver::run_nls(const FileContext& file) {
  const char* language = std::getenv("TAVLANGUAGE");
  const char* dir = std::getenv("TAVLANGDIR");
  if (!language || !*language || !dir || !*dir) return;
  const std::string program = run_.bin_dir + "tavcmpnls";
  if (const int result = run_program({program, as_operand(file.op6_name)}); result != 0) {
    const int err = errno;
    say(txt::errors_during_nls_processing);
    if (result < 0) explain_not_started(program, err);
  }
}

void Driver::report_result(FileContext& file) {
  const Options& o = run_.options;
  if (o.summary && display_.screen() && file.have_table) {
    show_summary(file);
    summary_start_ = std::time(nullptr);
    return;
  }
  if (display_.screen()) return;
  if (diag_.error_count() > 0) {
    display_.print("\n*** Errors found = %d", diag_.error_count());
  } else if (!o.no_info && !o.no_warning) {
    display_.print("\nNo errors found%s", o.test_only ? " - test compile only" : "");
  }
  std::fflush(stdout);
}

void Driver::show_summary(FileContext& file) {
  constexpr int kSummaryRows = 14;
  constexpr int kColumn = 5;
  const Options& o = run_.options;
  if (display_.rows_left() < kSummaryRows) {
    display_.wait_ack();
    display_.clear_messages();
  }
  std::vector<std::string> lines;
  char buf[512];
  auto add = [&](const char* fmt, auto... args) {
    std::snprintf(buf, sizeof buf, fmt, args...);
    lines.emplace_back(buf);
  };
  lines.emplace_back("COMPILATION SUMMARY");
  lines.emplace_back("");
  if (diag_.error_count() > 0)
    add("Errors found = %d", diag_.error_count());
  else
    lines.emplace_back(o.test_only ? "No errors found - test compile only" : "No errors found");
  lines.emplace_back("");
  const OpSpace& ops = compiler_->stores.ops;
  if (uint32_t entry = ops.get24(hdr::h_entry_section); entry != 0)
    add("Initial screen = \"%s\"", std::string(compiler_->syms.text(ops.get24(entry + ssym::s_name))).c_str());
  long elapsed = static_cast<long>(std::time(nullptr) - summary_start_);
  if (elapsed < 1) elapsed = 1;
  add("Elapsed time = %ld seconds", elapsed);
  uint32_t per_minute = static_cast<uint32_t>(compiler_->tok.source_lines() * 600u / static_cast<uint32_t>(elapsed));
  add("Average lines processed per minute = %ld.%ld", static_cast<long>(per_minute / 10),
      static_cast<long>(per_minute % 10));
  std::string version = "Operations table version = 6." + std::to_string(file.opt_version);
  if (file.opt_version != 3) version += " (base version = 6.3)";
  lines.push_back(version);
  lines.emplace_back("");
  lines.emplace_back("TOTAL:");
  add("Fields = %u", ops.get16(hdr::h_field_count));
  add("Objects = %u", ops.get16(hdr::h_object_count));
  add("Screens = %u", ops.get16(hdr::h_screen_count));
  add("Source Lines = %d", static_cast<int>(compiler_->tok.source_lines()));
  add("Source Words = %d", static_cast<int>(compiler_->tok.source_words()));
  if (diag_.error_count() == 0) {
    lines.emplace_back("SIZES:");
    add("Operations Table = %ld", file.table_size);
    add("Data = %ld", file.data_size);
  }
  for (const std::string& line : lines) {
    display_.next_row();
    display_.print_at(display_.row(), kColumn, line);
  }
  display_.flush();
  if (o.debug_level == 99 && diag_.error_count() == 0) write_statistics();
}

void Driver::write_statistics() {
  const OpenedOutput opened = open_output("tavcmp.out", OutputMode::truncate);
  FILE* f = opened.fd >= 0 ? fdopen(opened.fd, "w") : nullptr;
  if (!f) {
    if (opened.fd >= 0) close(opened.fd);
    show(text_of(txt::cant_create_statistics));
    const std::string why = opened.problem.empty() ? std::strerror(errno) : opened.problem;
    explain("cannot write 'tavcmp.out': " + why);
    return;
  }
  const auto& stats = compiler_->stores.builder.stats();
  for (int op = 0; op < 255; ++op)
    if (stats[static_cast<size_t>(op)] > 0) std::fprintf(f, "op=%d, cnt=%d\n", op, static_cast<int>(stats[static_cast<size_t>(op)]));
  std::fclose(f);
}

// The cross reference document of the run, replacing FILE at once: a reader never sees half of it.
bool Driver::write_xref() {
  const std::string& path = run_.options.xref_output;
  nlohmann::ordered_json doc{{"version", 1}, {"tool", product_version()}, {"programs", std::move(xref_programs_)}};
  const std::string why = replace_file(path, doc.dump(1) + "\n");
  if (why.empty()) return true;
  std::fprintf(stderr, "%s: cannot write the cross reference '%s': %s\n", run_.program_name.c_str(), path.c_str(),
               why.c_str());
  return false;
}

void Driver::cleanup_exit(int status) {
  if (!temp_name_.empty()) unlink(temp_name_.c_str());
  if (!run_.options.xref_output.empty() && compiler_ && !write_xref()) status = 255;
  dictionaries_.reset();
  language_files_.close();
  diag_.close_listing();
  if (diagnostics_out_) {
    if (std::string problem; !diagnostics_out_->finish(problem)) {
      std::fprintf(stderr, "%s: %s\n", run_.program_name.c_str(), problem.c_str());
      status = 255;
    }
  } else if (!display_.screen()) {
    std::fputs("\n", stdout);
    if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
      // Standard output was lost (a closed pipe, a full disk): the results never arrived.
      std::fprintf(stderr, "%s: standard output: %s\n", run_.program_name.c_str(), std::strerror(errno));
      if (status == 0) status = 255;
    }
  } else {
    // The last acknowledgement tells how the run went.
    const int errors = earlier_errors_ + diag_.error_count();
    display_.wait_ack(format_text(txt::run_totals, {std::to_string(files_attempted_), std::to_string(errors)}));
    display_.end();
    for (const std::string& line : explanations_) std::fputs(line.c_str(), stderr);
  }
  std::exit(status & 0xff);
}

}  // namespace

void run_tavcmp(int argc, char** argv) {
  static Driver* driver = new Driver(argc, argv);  // lives until exit()
  driver->run();
}

}  // namespace tav
