// A record file of any content: loading it and looking it up end, and take no more than the file
// bears out.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "bhquay.h"
#include "storage_load.h"

namespace {

using namespace qvr;

class bytes_file final : public storage_file {
 public:
  explicit bytes_file(std::string_view bytes) : bytes_(bytes) {}
  errobj_t *read(std::int64_t offset, std::span<char> to, std::size_t &got) override {
    std::size_t at = std::min(static_cast<std::size_t>(offset), bytes_.size());
    got = bytes_.copy(to.data(), to.size(), at);
    return nullptr;
  }
  errobj_t *write(std::int64_t, std::string_view, std::size_t &put) override {
    put = 0;
    return nullptr;
  }
  errobj_t *size(std::int64_t &bytes) override {
    bytes = static_cast<std::int64_t>(bytes_.size());
    return nullptr;
  }
  errobj_t *close() override { return nullptr; }

 private:
  std::string_view bytes_;
};

class bytes_connection final : public storage_connection {
 public:
  explicit bytes_connection(std::string_view bytes) : bytes_(bytes) {}
  errobj_t *open_directory(const std::string &, std::unique_ptr<storage_directory> &) override {
    return err_from_table(1, 2);
  }
  errobj_t *test(const std::string &) override { return err_from_table(1, 2); }
  errobj_t *open_file(const std::string &, unsigned, unsigned,
                      std::unique_ptr<storage_file> &file) override {
    file = std::make_unique<bytes_file>(bytes_);
    return nullptr;
  }
  errobj_t *tier(const std::string &, int &) override { return nullptr; }

 private:
  std::string_view bytes_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);
int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  static const int registered = qvr::bhquay_register();
  if (registered != 0) return 0;
  cat_session session;
  session.connection = std::make_unique<bytes_connection>(
      std::string_view(reinterpret_cast<const char *>(data), size));
  memory_database memory;
  if (memory.open() != nullptr) return 0;
  if (load_record(session, memory, "/1700000000.rec", true) != nullptr) return 0;
  arena page;
  ss_t *record = nullptr;
  lookup_ss_db(memory, {}, 1700000000, "/1700000000.rec", page, record);
  std::string name;
  lookup_file_name(memory, name);
  return 0;
}
