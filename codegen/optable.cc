#include "codegen/optable.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "codegen/compilation.h"
#include "codegen/header.h"
#include "codegen/opspace.h"
#include "diag/diag.h"
#include "runtime/file_lock.h"

namespace tav {

namespace {

constexpr uint32_t round8(uint32_t n) { return (n + 7) & ~7u; }
constexpr int kNoSpace = 28;  // what a short write without a system error reports

// Writes all of `size` bytes, then zeros up to `padded`. Returns 0 or the error number.
int write_image(int fd, const uint8_t* bytes, uint32_t size, uint32_t padded) {
  static const uint8_t kZeros[8] = {};
  auto put = [fd](const uint8_t* p, size_t n) -> int {
    while (n > 0) {
      ssize_t w = ::write(fd, p, n);
      if (w < 0 && errno == EINTR) continue;
      if (w <= 0) return w < 0 && errno != 0 ? errno : kNoSpace;
      p += w;
      n -= static_cast<size_t>(w);
    }
    return 0;
  };
  if (int err = put(bytes, size)) return err;
  return put(kZeros, padded - size);
}

std::string with_tmp_extension(const std::string& name) {
  size_t slash = name.find_last_of("/\\");
  size_t dot = name.rfind('.');
  if (dot != std::string::npos && (slash == std::string::npos || dot > slash))
    return name.substr(0, dot) + ".tmp";
  return name + ".tmp";
}

}  // namespace

OptableWriter::OptableWriter(Stores& stores, const CompileSettings& settings, FileContext& file,
                             std::string program, WorkFileHook note_work_file)
    : stores_(stores), settings_(settings), file_(file), program_(std::move(program)),
      note_(std::move(note_work_file)) {}

void OptableWriter::fail(const std::string& message, const std::string& path, int err) {
  if (!work_name_.empty()) {
    unlink(work_name_.c_str());
    if (note_) note_("");
  }
  std::string reason = "cannot write '" + file_.op6_name + "'";
  if (path != file_.op6_name) reason += " (its work file '" + path + "')";
  stores_.diag.abort_file(message, reason + ": " + std::strerror(err));
}

void OptableWriter::fill_header() {
  OpSpace& ops = stores_.ops;
  uint16_t flags = hdr::kFlagsAlways;
  if (settings_.debug_ops) flags |= hdr::kFlagDebug;
  ops.put16(hdr::h_flags, flags);
  constexpr uint32_t kDictionaryTexts[][2] = {
      {hdr::h_dict0, hdr::h_dict0_version}, {hdr::h_dict1, hdr::h_dict1_version}, {hdr::h_dict2, hdr::h_dict2_version}};
  for (size_t d = 0; d < settings_.dictionaries.size() && d < std::size(kDictionaryTexts); ++d) {
    const auto& [path, version] = settings_.dictionaries[d];
    ops.put24(kDictionaryTexts[d][0], ops.store_text(path));
    if (!version.empty()) ops.put24(kDictionaryTexts[d][1], ops.store_text(version));
  }
  for (int i = 0; i < 4; ++i) ops.at(hdr::h_magic)[i] = hdr::kMagic[i];
  ops.put16(hdr::h_version, static_cast<uint32_t>(file_.opt_version));

  const bool fixed = settings_.fixed_time >= 0;
  const std::time_t now = fixed ? static_cast<std::time_t>(settings_.fixed_time) : std::time(nullptr);
  char date[64];
  std::tm tm_now{};
  if (fixed) gmtime_r(&now, &tm_now);  // the build machine's time zone must not show
  else localtime_r(&now, &tm_now);
  std::strftime(date, sizeof date, "%a %b %e %H:%M:%S %Y\n", &tm_now);  // the 24-character form
  std::string compile_text = "@(#) " + file_.source_name + " compiled on " + date;
  ops.put24(hdr::h_compile_text, ops.store_text(compile_text));
  ops.put32(hdr::h_compile_time, static_cast<uint32_t>(now));
  ops.store_text("@(#) Operations table version " + std::to_string(file_.opt_version));
  ops.put24(hdr::h_system_name, ops.store_text(settings_.system_name));
}

void OptableWriter::write() {
  OpSpace& ops = stores_.ops;
  DataArea& data = stores_.data;
  TextItems& texts = stores_.texts;
  const std::string& prog = program_;

  fill_header();

  // Two compiles writing the same table into one directory take their turns, so that neither
  // removes or renames the other's work file.
  const FileLock lock(directory_of(file_.op6_name));
  work_name_ = with_tmp_extension(file_.op6_name);
  // Only a work file that exists has to go; a path that cannot name a file (a missing
  // directory, or a plain file where the directory should be) is left to the create below.
  if (unlink(work_name_.c_str()) != 0 && errno != ENOENT && errno != ENOTDIR) {
    int err = errno;
    std::string name = work_name_;
    work_name_.clear();  // not ours to remove
    fail(format_text(txt::cant_remove_work_file, {prog, name, std::to_string(err)}), name, err);
  }
  if (note_) note_(work_name_);
  int fd = open(work_name_.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0666);
  if (fd < 0) {
    int err = errno;
    std::string name = work_name_;
    if (note_) note_("");
    work_name_.clear();
    fail(format_text(txt::cant_create_work_file, {prog, name, std::to_string(err)}), name, err);
  }

  if (texts.used()) {
    int n = texts.count();
    int count = n != 0 ? n + 1 : 0;
    uint32_t copy = ops.copy_in(texts.entry(0), static_cast<uint32_t>(count) * TextItems::kEntrySize);
    ops.put24(hdr::h_text, copy);
    ops.put16(hdr::h_text_count, static_cast<uint32_t>(count));
  }

  uint32_t data_used = data.brk();
  uint32_t ops_used = ops.brk();
  uint32_t d = round8(data_used);
  uint32_t s = round8(ops_used);
  ops.put32(hdr::h_ops_size, s);
  ops.put32(hdr::h_data_size, d);

  if (int err = write_image(fd, ops.at(0), ops_used, s)) {
    close(fd);
    fail(format_text(txt::error_writing_table, {prog, std::to_string(err)}), work_name_, err);
  }
  if (d != 0) {
    if (int err = write_image(fd, data.at(0), data_used, d)) {
      close(fd);
      fail(format_text(txt::error_writing_data_area, {prog, std::to_string(err)}), work_name_, err);
    }
  }
  file_.table_size = static_cast<long>(s) + static_cast<long>(d);
  file_.data_size = static_cast<long>(d);
  if (close(fd) != 0) {
    const int err = errno;
    fail(format_text(txt::error_writing_table, {prog, std::to_string(err)}), work_name_, err);
  }

  // The rename replaces a previous table in one step, also when that one is read-only.
  if (rename(work_name_.c_str(), file_.op6_name.c_str()) != 0) {
    int err = errno;
    fail(format_text(txt::cant_link_table, {prog, work_name_, file_.op6_name, std::to_string(err)}),
         file_.op6_name, err);
  }
  if (note_) note_("");
  work_name_.clear();
}

}  // namespace tav
