#include "record_file_writer.h"

#include <filesystem>
#include <fstream>

#include "sqlite_handle.h"
#include "xdr_records.h"

namespace qvr {

namespace {

namespace fs = std::filesystem;

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

bool put_file(const fs::path &path, const std::string &bytes) {
  std::error_code failed;
  fs::create_directories(path.parent_path(), failed);
  std::ofstream file(path, std::ios::binary);
  file << bytes;
  return file.flush().good();
}

}  // namespace

std::string record_file_bytes(const ss_t &ss, const std::string &filename, int page_size,
                              const char *more) {
  sqlite3 *opened = nullptr;
  int status = sqlite3_open(":memory:", &opened);
  sqlite_database database(opened);
  std::string settings = "PRAGMA page_size = " + std::to_string(page_size);
  if (status != SQLITE_OK ||
      sqlite3_exec(opened, settings.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK ||
      !fill(opened, ss, filename) ||
      (more != nullptr && sqlite3_exec(opened, more, nullptr, nullptr, nullptr) != SQLITE_OK))
    return {};
  sqlite3_int64 size = 0;
  std::unique_ptr<unsigned char, decltype(&sqlite3_free)> bytes(
      sqlite3_serialize(opened, "main", &size, 0), sqlite3_free);
  if (bytes == nullptr) return {};
  return {reinterpret_cast<const char *>(bytes.get()), static_cast<std::size_t>(size)};
}

void record_file_sink::add_ss(const ss_t &ss) {
  if (!why_.empty()) return;
  storage_paths paths(place_.device, storage_client_name(ss.client), place_.appid);
  std::string record = place_.root + paths.record_file(place_.layout, place_.subspace, ss.savetime);
  std::string stub = place_.root + paths.data_stub(place_.layout, place_.subspace, ss.savetime);
  std::error_code failed;
  if (fs::exists(record, failed)) {
    doubles_++;
    return;
  }
  std::string bytes =
      record_file_bytes(ss, "save." + std::to_string(ss.savetime), place_.page_size);
  if (bytes.empty() || !put_file(record, bytes) || !put_file(stub, {}))
    why_ = "cannot write " + record;
}

}  // namespace qvr
