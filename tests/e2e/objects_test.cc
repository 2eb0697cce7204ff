// OBJECT statements compiled by tavcmp: the records in the .op6 file, the data image, the
// messages, and files whose definitions exhaust the data area or the op space.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "symbols/records.h"
#include "tests/support/op6.h"
#include "tests/support/support.h"

namespace {

using tavtest::Op6;
using namespace tav;
using tavtest::TempDir;

constexpr char kMain[] = "procedure main\n  pause\nend\n";

// "field@offset ..." along the object's chain, checking each link names the object.
std::string record(const Op6& t, uint32_t o) {
  std::string out;
  for (uint32_t l = t.u24(o + osym::o_fldobj); l; l = t.u24(l + folink::fo_fldobj)) {
    EXPECT_EQ(t.u24(l + folink::fo_object), o);
    out += (out.empty() ? "" : " ") + t.text(t.u24(t.u24(l + folink::fo_field) + fsym::f_name)) + "@" +
           std::to_string(t.u16(l + folink::fo_offs));
  }
  return out;
}
// The objects holding a field, along the field's chain.
std::string holders(const Op6& t, uint32_t f) {
  std::string out;
  for (uint32_t l = t.u24(f + fsym::f_join); l; l = t.u24(l + folink::fo_join)) {
    EXPECT_EQ(t.u24(l + folink::fo_field), f);
    out += (out.empty() ? "" : " ") + t.text(t.u24(t.u24(l + folink::fo_object) + osym::o_name));
  }
  return out;
}

TEST(Objects, RecordsKeysAndJoinedDataInTheTable) {
  TempDir dir;
  const auto c = tavtest::compile(dir,
                                  "object stock type indexed file 'stock.dat'\n"
                                  "  record item pic x(6) qty pic 9(3) type zoned price pic 9(5)v99 end-record\n"
                                  "  key item unique key qty desc item\n"
                                  "object moves type sequential record item qty end-record\n"
                                  "object old like stock no-joins\n"
                                  "object feed type external record item end-record\n" +
                                      std::string(kMain),
                                  "t.spl");
  ASSERT_EQ(c.result.status, 0) << c.result.out;
  const Op6& t = c.image;

  const uint32_t stock = t.object("stock"), moves = t.object("moves"), old = t.object("old");
  const uint32_t feed = t.object("feed");
  ASSERT_NE(stock, 0u);
  EXPECT_EQ(t.u24(stock + osym::o_next), moves);
  EXPECT_EQ(t.text(t.u24(stock + osym::o_file)), "stock.dat");
  EXPECT_EQ(t.u8(stock + osym::o_filtype), 'I');
  EXPECT_EQ(t.u16(stock + osym::o_recsize), 6u + 3 + 4);
  EXPECT_EQ(t.u16(stock + osym::o_attr), 0x0010u);
  EXPECT_EQ(static_cast<int16_t>(t.u16(stock + osym::o_dictno)), -1);
  EXPECT_EQ(t.u16(old + osym::o_attr), 0x0030u);  // NO-JOINS, and the attributes copied from stock
  EXPECT_EQ(t.u24(old + osym::o_like), stock);
  EXPECT_EQ(t.u8(feed + osym::o_separator), '|');

  EXPECT_EQ(record(t, stock), "item@0 qty@6 price@9");
  EXPECT_EQ(record(t, moves), "item@0 qty@6");
  EXPECT_EQ(record(t, old), "item@0 qty@6 price@9");
  const uint32_t item = t.field("item"), qty = t.field("qty"), price = t.field("price");
  EXPECT_EQ(holders(t, item), "feed old moves stock");
  EXPECT_EQ(holders(t, price), "old stock");

  // Keys: numbers, flags, parts with their directions; the copy shares the parts.
  const uint32_t k1 = t.u24(stock + osym::o_keylist), k2 = t.u24(k1 + keyrec::k_next);
  const uint32_t p1 = t.u24(k2 + keyrec::k_parts), p2 = t.u24(p1 + keypart::kp_next);
  EXPECT_EQ((std::vector<uint32_t>{t.u8(k1 + keyrec::k_index), t.u16(k1 + keyrec::k_flags), t.u24(t.u24(k1 + keyrec::k_parts) + keypart::kp_field),
                                   t.u8(k2 + keyrec::k_index), t.u24(p1 + keypart::kp_field), t.u16(p1 + keypart::kp_desc),
                                   t.u24(p2 + keypart::kp_field), t.u16(p2 + keypart::kp_desc)}),
            (std::vector<uint32_t>{1, 1, item, 2, qty, 1, item, 0}));
  EXPECT_EQ(t.u24(t.u24(old + osym::o_keylist) + keyrec::k_parts), t.u24(k1 + keyrec::k_parts));
  EXPECT_EQ(t.u24(feed + osym::o_keylist), 0u);

  // Buffers: 13 bytes take 14; feed's record is the one the item field joins last.
  const uint32_t sbuf = t.u24(stock + osym::o_record), mbuf = t.u24(moves + osym::o_record), obuf = t.u24(old + osym::o_record);
  const uint32_t fbuf = t.u24(feed + osym::o_record);
  EXPECT_EQ(mbuf, sbuf + 16);  // 14 bytes, the next even allocation on a multiple of 4
  EXPECT_EQ(t.u24(item + fsym::f_addr), fbuf);
  EXPECT_EQ(t.u24(qty + fsym::f_addr), mbuf + 6);
  EXPECT_EQ(t.u24(price + fsym::f_addr), sbuf + 9);

  // Initial data: blanks for the alphanumeric, zeros for the zoned quantity, everywhere the
  // field is held, NO-JOINS records included.
  EXPECT_EQ(t.data(fbuf, 6), "      ");
  for (uint32_t buf : {sbuf, mbuf, obuf}) EXPECT_EQ(t.data(buf, 9), "      000") << buf;
}

TEST(Objects, DiagnosticsStopTheTable) {
  TempDir dir;
  const std::string source = "object a type indexed record f1 pic x end-record\n"
                             "object b type text record f2 pic x(1000) occurs 4 f3 pic x(97) end-record key f2\n"
                             "object b like b\n" + std::string(kMain);
  const auto r = tavtest::compile(dir, source, "t.spl").result;
  for (const char* message : {"t.spl, line 1: ERROR  No keys defined for object", "line 2: ERROR  Record size for object is invalid",
                              "line 2: ERROR  Key field cannot be an array - 'f2'", "line 2: ERROR  File cannot have keys",
                              "line 3: ERROR  Object already defined or referenced - 'b'"})
    EXPECT_NE(r.out.find(message), std::string::npos) << message << r.out;
  EXPECT_FALSE(tavtest::file_exists(dir / "t.op6"));
}

// A file that fills a store is abandoned with the store's fatal message; the next file of the
// same run compiles cleanly.
TEST(Objects, ExhaustedStoresAbandonOnlyTheirFile) {
  TempDir dir;
  // 70 records of 4096 bytes need more than the 256 KB data area.
  std::string data = "object r0 record big pic x(1000) occurs 4 pad pic x(96) end-record\n";
  for (int i = 1; i < 70; ++i) data += "object r" + std::to_string(i) + " like r0\n";
  tavtest::write_file(dir / "data.spl", data + kMain);
  // Each copy of an object with 30 fields and 16 keys takes about 560 bytes of op space and only
  // 30 bytes of data: 8000 copies overflow the 4 MB op space first.
  std::string ops = "object base type indexed record";
  std::string key = " key";
  for (int i = 0; i < 30; ++i) {
    ops += " k" + std::to_string(i) + " pic x";
    if (i < 8) key += " k" + std::to_string(i);
  }
  ops += " end-record";
  for (int i = 0; i < 16; ++i) ops += key;
  ops += "\n";
  for (int i = 0; i < 8000; ++i) ops += "object c" + std::to_string(i) + " like base\n";
  tavtest::write_file(dir / "ops.spl", ops + kMain);
  tavtest::write_file(dir / "clean.spl", "object ok record v pic x end-record\n" + std::string(kMain));

  const auto r = tavtest::tavcmp(dir.path(), {"-l", "-n", "data.spl", "clean.spl", "ops.spl", "clean.spl"});
  EXPECT_NE(r.out.find("FATAL  Can't allocate sufficient data space"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("FATAL  Exceeded maximum operations table limit"), std::string::npos) << r.out;
  EXPECT_FALSE(tavtest::file_exists(dir / "data.op6"));
  EXPECT_FALSE(tavtest::file_exists(dir / "ops.op6"));
  ASSERT_TRUE(tavtest::file_exists(dir / "clean.op6"));
  EXPECT_EQ(r.status, 0) << r.out;  // the last file decides the status
  const Op6 t{tavtest::read_file(dir / "clean.op6")};
  EXPECT_EQ(record(t, t.object("ok")), "v@0");
  EXPECT_EQ(t.u16(37), 1u);  // one object: nothing left of the abandoned file
}

}  // namespace
