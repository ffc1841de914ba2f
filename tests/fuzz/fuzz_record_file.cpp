// A record file of any content: loading it and looking it up end, and take no more than the file
// bears out.
#include "bhquay.h"
#include "fake_storage.h"
#include "fuzz.h"
#include "storage_load.h"

void fuzz(std::string_view bytes) {
  using namespace qvr;
  constexpr char PATH[] = "/1700000000.rec";
  if (bhquay_register() != 0) return;
  test::fake_storage storage;
  storage.put(PATH, std::string(bytes));
  cat_session session;
  memory_database memory;
  if (storage.connect({}, session.connection) != nullptr || memory.open() != nullptr) return;
  if (load_record(session, memory, PATH, true) != nullptr) return;
  arena page;
  ss_t *record = nullptr;
  lookup_ss_db(memory, {}, 1700000000, PATH, page, record);
  std::string name;
  lookup_file_name(memory, name);
  load_save_sqldb(session, memory, PATH, true);
}
