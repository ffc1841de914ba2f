// A catalogue in an SQLite 3 file, with the tables of schema.sql.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "catalogue_sink.h"

namespace qvr {

// Writes a new catalogue file, which is whole after close(). One thread at a time.
class catalogue_writer final : public catalogue_sink {
 public:
  // Replaces what is at `path`. Failures are kept and told by close().
  explicit catalogue_writer(const std::string &path);
  ~catalogue_writer() override;

  void set_meta(const std::string &key, const std::string &value);
  void add_client(const lab_client &client) override;
  void add_resource(const lab_resource &resource) override;
  void add_vol(const vol_t &vol) override;
  void add_ss(const ss_t &ss) override;
  void add_history(const lab_history &history) override;

  // Ends the transaction. On failure `why` names it, and the file is of no use.
  bool close(std::string &why);

 private:
  struct state_t;
  std::unique_ptr<state_t> state_;
};

// How an identifier stands in the file: its long form, "0" for the null and "invalid" for the
// invalid one. Reading also takes a decimal number for an identifier known only by it.
std::string catalogue_id_text(const ksui &id);
ksui catalogue_id(std::string_view text);

// Reads a catalogue file into `sink`. On failure `why` names it.
bool read_catalogue_file(const std::string &path, catalogue_sink &sink, std::string &why);

}  // namespace qvr
