// The media database of the lab beside its catalogue in a file: what a call answers is held against
// what SQL says.
#pragma once

#include <optional>

#include "lab_fixture.h"
#include "packed_attrs.h"
#include "sqlite_handle.h"
#include "temp_dir.h"
#include "xdr_records.h"

namespace qvr::test {

using ids_t = std::vector<std::string>;

class mmdb_test : public lab_test {
 protected:
  static void SetUpTestSuite() {
    directory.emplace();
    lab_options options = test_options();
    options.store = directory->file("catalogue");
    std::string why;
    lab = new lab_installation;
    ASSERT_TRUE(lab->start(options, why)) << why;
    sqlite3 *opened = nullptr;
    ASSERT_EQ(sqlite3_open(options.store.c_str(), &opened), SQLITE_OK);
    database.reset(opened);
  }
  static void TearDownTestSuite() {
    database.reset();
    directory.reset();
    lab_test::TearDownTestSuite();
  }

  // The first column of the rows.
  static ids_t sql(const std::string &query) {
    ids_t list;
    sqlite_statement rows(database.get(), query.c_str());
    while (rows.step()) list.emplace_back(rows.text(0));
    EXPECT_TRUE(rows.good()) << query;
    return list;
  }
  static ksui id(const std::string &text) {
    ksui out;
    if (text != "0") ksui_parse(text, out);
    return out;
  }
  static std::string raw_id(const ksui &id) {
    return {reinterpret_cast<const char *>(id.bytes.data()), id.bytes.size()};
  }
  static std::string attrs(const attrlist &list) {
    return list.empty() ? raw_out().u32(0).bytes
                        : raw_out().u32(1).raw(packed_attrs::pack(list)).bytes;
  }

  // The answer of a call that gives a list.
  struct list_answer {
    std::uint32_t status = 0;
    arena page;
    std::vector<ss_t> savesets;
    std::vector<vol_t> volumes;
    std::vector<hist> changes;
    std::int32_t more = -1;  // what follows the list, when something does
    bool whole = false;      // decoded to its end
    ids_t ids() const {
      ids_t list;
      for (const ss_t &ss : savesets) list.push_back(ksui_text(ss.ssid, ksui_form::long_form));
      for (const vol_t &vol : volumes) list.push_back(ksui_text(vol.volid, ksui_form::long_form));
      return list;
    }
  };
  template <class Record>
  static std::unique_ptr<list_answer> ask(raw_client &client, std::uint32_t procedure,
                                          const std::string &arguments,
                                          std::vector<Record> list_answer::*list,
                                          bool (*get)(XDR &, arena &, Record &),
                                          bool optional_record = true) {
    auto result = std::make_unique<list_answer>();
    raw_reply reply = client.call(procedure, arguments);
    EXPECT_TRUE(reply.arrived && reply.accept == 0 && !reply.denied);
    xdr_memory_reader in(reply.results);
    bool another = false, present = true;
    if (!in.get_u32(result->status) || result->status != 2 || !in.get_bool(another)) return result;
    while (another) {
      Record record;
      if ((optional_record && !in.get_bool(present)) || !present ||
          !get(in, result->page, record) || !in.get_bool(another))
        return result;
      (*result.*list).push_back(record);
    }
    if (in.remaining() == 4) in.get_i32(result->more);
    result->whole = in.remaining() == 0;
    return result;
  }
  static std::unique_ptr<list_answer> savesets(raw_client &client, std::uint32_t procedure,
                                               const std::string &arguments) {
    return ask(client, procedure, arguments, &list_answer::savesets, xdr_get_ss);
  }
  static std::unique_ptr<list_answer> volumes(raw_client &client, std::uint32_t procedure,
                                              const std::string &arguments) {
    return ask(client, procedure, arguments, &list_answer::volumes, xdr_get_vol);
  }

  struct range_args {
    std::string client{}, name{};
    attrlist attrs{};
    std::uint64_t start = 0, end = 0;
    std::int64_t count = 0;
    std::int32_t level = 0;
    attrlist filter{};
    ksui last{};
    bool full = true;
  };
  static std::string range(const range_args &args) {
    return raw_out()
        .text(args.client)
        .text(args.name)
        .raw(attrs(args.attrs))
        .u32(1)
        .u64(args.start)
        .u64(args.end)
        .u64(static_cast<std::uint64_t>(args.count))
        .u32(static_cast<std::uint32_t>(args.level))
        .raw(attrs(args.filter))
        .u32(1)
        .raw(raw_id(args.last))
        .u32(args.full ? 1 : 0)
        .bytes;
  }

  static inline std::optional<temp_dir> directory;
  static inline sqlite_database database;
};

}  // namespace qvr::test
