#include "mmdb_fixture.h"

namespace qvr::test {
namespace {

class mmdb_volumes : public mmdb_test {};

TEST_F(mmdb_volumes, requests_select_as_sql_does) {
  ids_t any = sql("SELECT volid FROM volume ORDER BY id LIMIT 2");
  ksui number;
  number.set_word(0, 1);
  number.set_word(1, id(any[1]).word(1));
  auto by_text = [](const char *text) { return raw_out().text(text).u32(0).bytes; };
  struct {
    int line;
    std::uint32_t procedure;
    std::string arguments;
    const char *where;
  } rows[] = {
      {__LINE__, 63, raw_out().text("tape").text("").u32(0).u32(0).u32(0).bytes, "family = 'tape'"},
      {__LINE__, 63, raw_out().text("").text("LTO Ultrium-7").u32(0).u32(0).u32(0).bytes,
       "type = 'LTO Ultrium-7'"},
      {__LINE__, 63, raw_out().text("disk").text("adv_file").u32(0x20).u32(0x20).u32(0).bytes,
       "type = 'adv_file' AND volflags & 32"},
      {__LINE__, 63, raw_out().text("").text("").u32(0x210).u32(0x200).u32(0).bytes,
       "volflags & 528 = 512"},
      {__LINE__, 64, raw_out().u32(1).raw(raw_id(id(any[0]))).u32(0).bytes, "id = 1"},
      {__LINE__, 64, raw_out().u32(1).raw(raw_id(number)).u32(0).bytes, "id = 2"},
      {__LINE__, 64, raw_out().u32(0).u32(0).bytes, "0"},
      {__LINE__, 65, by_text(""), "1"},
      {__LINE__, 65, by_text("vault.001.RO"), "volume = 'vault.001.RO'"},
      {__LINE__, 65, by_text("VAULT.001"), "0"},
      {__LINE__, 68, raw_out().text("Archive").u32(0).u32(0).u32(0).bytes, "pool = 'Archive'"},
      {__LINE__, 68, raw_out().text("Archive").u32(0x40).u32(0x40).u32(0).bytes,
       "pool = 'Archive' AND volflags & 64"},
      {__LINE__, 69, by_text("X00001L7"), "barcode = 'X00001L7'"},
      {__LINE__, 70, raw_out().text("Keller Süd").u64(0).u64(0).u64(0).u32(0).bytes,
       "location = 'Keller Süd'"},
  };
  raw_client client = mmdb();
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    auto answer = volumes(client, row.procedure, row.arguments);
    EXPECT_TRUE(answer->whole);
    ids_t wanted = sql(std::string("SELECT volid FROM volume WHERE ") + row.where + " ORDER BY id");
    EXPECT_EQ(answer->ids(), wanted);
    EXPECT_EQ(wanted.empty(), std::string_view(row.where) == "0");
  }
}

TEST_F(mmdb_volumes, full_records_list_their_save_sets) {
  raw_client client = mmdb();
  auto whole = volumes(client, 65, raw_out().text("").u32(1).bytes);
  auto head = volumes(client, 65, raw_out().text("").u32(0).bytes);
  ASSERT_EQ(whole->volumes.size(), head->volumes.size());
  for (std::size_t i = 0; i < whole->volumes.size(); i++) {
    const vol_t &vol = whole->volumes[i];
    SCOPED_TRACE(vol.volume);
    ids_t listed;
    for (const ksui &one : vol.savesets()) listed.push_back(ksui_text(one, ksui_form::long_form));
    std::sort(listed.begin(), listed.end());
    EXPECT_EQ(listed, sql("SELECT DISTINCT ssid FROM saveset JOIN fragment ON fragment.saveset = "
                          "saveset.id WHERE volid = '" +
                          ksui_text(vol.volid, ksui_form::long_form) + "' ORDER BY 1"));
    EXPECT_EQ(head->volumes[i].nssids, 0u);
    EXPECT_EQ(head->volumes[i].written, vol.written);
    EXPECT_EQ(head->volumes[i].volattrs.series(), vol.volattrs.series());
  }
}

class mmdb_history : public mmdb_test {};

TEST_F(mmdb_history, conditions_select_as_sql_does) {
  std::string ssid = sql("SELECT ssid FROM history WHERE operation = 2 LIMIT 1")[0];
  std::string cloneid = sql("SELECT cloneid FROM history WHERE cloneid <> 0 LIMIT 1")[0];
  std::uint64_t start = LAB_NOW - 6 * 86400, end = LAB_NOW - 3 * 86400;
  std::string in_time =
      "timestamp BETWEEN " + std::to_string(start) + " AND " + std::to_string(end);
  struct {
    int line;
    std::string ssid;
    std::string clone;
    std::uint64_t start, end;
    std::uint64_t count;
    attrlist attrs;
    std::string where;
  } rows[] = {
      {__LINE__, "0", "0", 0, 0x7fffffff, 1000, {}, "1 LIMIT 1000"},
      {__LINE__, "0", "0", 0, 0x7fffffff, 10, {}, "1 LIMIT 10"},
      {__LINE__, ssid, "0", 0, 0, 0, {}, "ssid = '" + ssid + "'"},
      {__LINE__, "0", cloneid, 0, 0, 0, {}, "cloneid = " + cloneid},
      {__LINE__, "0", "0", start, end, 0, {}, in_time},
      {__LINE__, "0", "0", 0, 0, 0, {{"client_name", {"MARS"}}}, "client = 'mars'"},
      {__LINE__, "0", "0", 0, 0, 0, {{"label", {"/", "/home"}}}, "name IN ('/', '/home')"},
      {__LINE__, "0", "0", 0, 0, 0, {{"operation", {"delete"}}}, "operation = 2"},
      {__LINE__,
       "0",
       "0",
       0,
       0,
       0,
       {{"operation", {"1"}}, {"property", {"clretent"}}},
       "operation = 1 AND property = 'clretent'"},
      {__LINE__,
       "0",
       "0",
       0,
       0,
       0,
       {{"user", {"operator@localhost"}}},
       "user = 'operator@localhost'"},
      {__LINE__, "0", "0", 0, 0, 0, {{"new_value", {"100% checked"}}}, "newvalue = '100% checked'"},
      {__LINE__, "0", "0", 0, 0, 0, {{"validity", {"5"}}}, "0"},
  };
  raw_client client = mmdb();
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    raw_out out;
    out.u32(1).raw(raw_id(id(row.ssid))).u64(std::stoull(row.clone));
    out.u32(1).u64(row.start).u64(row.end).u64(row.count).raw(attrs(row.attrs)).u32(0);
    auto answer = ask(client, 96, out.bytes, &list_answer::changes, xdr_get_hist, false);
    EXPECT_TRUE(answer->whole);
    ids_t seen;
    for (const hist &change : answer->changes)
      seen.push_back(std::to_string(change.timestamp) + " " + std::string(change.property));
    std::string order = " ORDER BY timestamp, substr(ssid, 10), id";
    std::size_t limit = row.where.find(" LIMIT");
    std::string where = row.where;
    where.insert(limit == std::string::npos ? where.size() : limit, order);
    ids_t wanted = sql("SELECT timestamp || ' ' || property FROM history WHERE " + where);
    EXPECT_EQ(seen, wanted);
    EXPECT_EQ(wanted.empty(), row.where == "0");

    attrlist count = row.attrs;
    attrlist_set(count, "change count", "Yes");
    out = {};
    out.u32(1).raw(raw_id(id(row.ssid))).u64(std::stoull(row.clone));
    out.u32(1).u64(row.start).u64(row.end).u64(row.count).raw(attrs(count)).u32(0);
    answer = ask(client, 96, out.bytes, &list_answer::changes, xdr_get_hist, false);
    ASSERT_EQ(answer->changes.size(), 1u);
    EXPECT_EQ(std::to_string(answer->changes[0].changes),
              sql("SELECT count(*) FROM history WHERE " + row.where.substr(0, limit))[0]);
  }
}

}  // namespace
}  // namespace qvr::test
