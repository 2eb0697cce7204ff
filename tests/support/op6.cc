#include "tests/support/op6.h"

#include <gtest/gtest.h>

#include "codegen/header.h"
#include "symbols/records.h"

namespace tavtest {

RunResult tavcmp(const std::string& cwd, std::vector<std::string> args, Env env) {
  args.insert(args.begin(), program("tavcmp"));
  RunOptions options;
  options.cwd = cwd;
  bool own_tavrin = false;
  for (const std::string& e : env.set) own_tavrin |= e.rfind("TAVRIN=", 0) == 0;
  for (const std::string& u : env.unset) own_tavrin |= u == "TAVRIN";
  if (!own_tavrin) options.env.push_back("TAVRIN=" + product_dir());
  for (std::string& e : env.set) options.env.push_back(std::move(e));
  options.unset = {"TAVCMPINC", "TAVLANGUAGE", "TAVLANGDIR", "TAVNOPREVWARN", "TERM"};
  for (std::string& u : env.unset) options.unset.push_back(std::move(u));
  return run(args, options);
}

uint32_t Op6::word(uint32_t off, uint32_t n) const {
  if (static_cast<size_t>(off) + n > bytes_.size()) {
    ADD_FAILURE() << n << " bytes at " << off << " are past the end of the " << bytes_.size() << "-byte image";
    return 0;
  }
  uint32_t v = 0;
  for (uint32_t i = 0; i < n; ++i) v = v << 8 | static_cast<uint8_t>(bytes_[off + i]);
  return v;
}

std::string Op6::text(uint32_t off) const {
  if (off == 0) return "";
  if (off >= bytes_.size()) {
    ADD_FAILURE() << "text at " << off << " is past the end of the " << bytes_.size() << "-byte image";
    return "";
  }
  return std::string(bytes_.c_str() + off);
}

std::string Op6::data(uint32_t off, uint32_t n) const {
  const size_t at = static_cast<size_t>(u32(tav::hdr::h_ops_size)) + off;
  EXPECT_LE(at + n, bytes_.size()) << "data past the end of the image";
  return at < bytes_.size() ? bytes_.substr(at, n) : "";
}

std::vector<uint32_t> Op6::list(uint32_t head) const {
  std::vector<uint32_t> out;
  for (uint32_t r = head; r != 0 && out.size() < 10000; r = u24(r)) out.push_back(r);
  return out;
}

std::vector<tav::Op> Op6::codes(uint32_t head) const {
  std::vector<tav::Op> out;
  for (uint32_t op : list(head)) out.push_back(opcode(op));
  return out;
}

std::vector<uint32_t> Op6::sections() const {
  std::vector<uint32_t> out;
  for (uint32_t s = u24(tav::hdr::h_screens); s != 0 && out.size() < 1000; s = u24(s + tav::ssym::s_next))
    out.push_back(s);
  return out;
}

uint32_t Op6::section_named(const std::string& name) const {
  for (uint32_t s : sections())
    if (text(u24(s + tav::ssym::s_name)) == name) return s;
  return 0;
}

uint32_t Op6::detail() const { return u24(u24(tav::hdr::h_screens) + tav::ssym::s_detail); }

uint32_t Op6::object(const std::string& name) const {
  for (uint32_t o : list(u24(tav::hdr::h_objects)))
    if (text(u24(o + tav::osym::o_name)) == name) return o;
  return 0;
}

uint32_t Op6::field(const std::string& name) const {
  for (uint32_t f : list(u24(tav::hdr::h_fields)))
    if (text(u24(f + tav::fsym::f_name)) == name) return f;
  return 0;
}

Compiled compile(const TempDir& dir, const std::string& source, const std::string& name,
                 std::vector<std::string> options, Env env) {
  write_file(dir / name, source);
  options.insert(options.begin(), {"-l", "-n"});
  options.push_back(name);
  Compiled c;
  c.result = tavcmp(dir.path(), std::move(options), std::move(env));
  const std::string op6 = dir / (name.substr(0, name.rfind('.')) + ".op6");
  if (file_exists(op6)) c.image = Op6(read_file(op6));
  return c;
}

}  // namespace tavtest
