// Save set names that hold a client's id.
#pragma once

#include <string>
#include <string_view>

#include "arena.h"
#include "errobj.h"
#include "function_view.h"
#include "ksui.h"
#include "records.h"

namespace qvr {

// The name of the client with that id; an empty text without error when there is none.
using client_namer = errobj_t *(*)(const ksui &id, std::string &name);

// Where a name takes part: the text in front of the colon, the id, and what follows it. False for
// a name without a client's id behind its first colon.
struct name_parts_t {
  std::string_view prefix;
  ksui client;
  std::string_view rest;
};
bool split_client_name(std::string_view name, name_parts_t &parts);

// Shows a client's name in the place of its id. The record keeps the mapped name, whose text lives
// as long as this object. A failed look-up is printed and leaves the name. Main thread.
class mapped_names {
 public:
  explicit mapped_names(client_namer namer) : namer_(namer) {}
  std::string_view name_of(ss_t &ss);

 private:
  client_namer namer_;
  arena texts_;
};

}  // namespace qvr
