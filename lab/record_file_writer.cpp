#include "record_file_writer.h"

#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "sqlite_handle.h"
#include "xdr_records.h"

namespace qvr {

namespace {

constexpr char TABLES[] =
    "CREATE TABLE IF NOT EXISTS tbl_idx_records (filename TEXT, fid TEXT, savetime INTEGER, xdr "
    "BLOB);"
    "CREATE TABLE IF NOT EXISTS tbl_ss_records (ss_name TEXT, ss_time INTEGER, xdr BLOB)";

bool fill(sqlite3 *database, const ss_t &ss, const std::string &filename) {
  xdr_memory_writer out;
  if (!xdr_put_ss(out, ss)) return false;
  if (sqlite3_exec(database, TABLES, nullptr, nullptr, nullptr) != SQLITE_OK) return false;
  sqlite_statement index(database, "INSERT INTO tbl_idx_records VALUES (?, '1', ?, NULL)");
  index.bind(filename).bind(ss.savetime).run();
  sqlite_statement record(database, "INSERT INTO tbl_ss_records SELECT ?, ?, CAST(? AS BLOB)");
  record.bind(ss.name).bind(ss.savetime).bind(std::string_view(out.bytes())).run();
  return index.good() && record.good();
}

}  // namespace

std::string write_record_file(const record_place &place, const ss_t &ss,
                              const std::string &filename, std::string &why) {
  std::string client(ss.client);
  for (char &c : client) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  storage_paths paths(place.device, client, place.appid);
  std::string path = place.root + paths.record_file(place.layout, place.subspace, ss.savetime);
  std::string stub = place.root + paths.data_stub(place.layout, place.subspace, ss.savetime);
  std::error_code failed;
  for (const std::string &each : {path, stub})
    std::filesystem::create_directories(std::filesystem::path(each).parent_path(), failed);
  std::filesystem::remove(path, failed);
  std::ofstream(stub).flush();
  sqlite3 *opened = nullptr;
  int status = sqlite3_open(path.c_str(), &opened);
  sqlite_database database(opened);
  std::string settings = "PRAGMA page_size = " + std::to_string(place.page_size) +
                         "; PRAGMA journal_mode = off; PRAGMA synchronous = off; BEGIN";
  if (status == SQLITE_OK &&
      sqlite3_exec(opened, settings.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK &&
      fill(opened, ss, filename) &&
      sqlite3_exec(opened, "COMMIT", nullptr, nullptr, nullptr) == SQLITE_OK)
    return path;
  why = "cannot write " + path + ": " + sqlite3_errmsg(opened);
  return {};
}

void record_file_sink::add_ss(const ss_t &ss) {
  if (!why_.empty()) return;
  if (!write_record_file(place_, ss, "save." + std::to_string(ss.savetime), why_).empty())
    written_++;
}

}  // namespace qvr
