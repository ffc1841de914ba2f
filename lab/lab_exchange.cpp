#include "lab_exchange.h"

#include "lab_state.h"
#include "packed_attrs.h"
#include "xdr_shared.h"

namespace qvr {

bool lab_null(lab_exchange &call) {
  if (call.login_challenge) call.out.put_counted(call.lab.credentials.new_challenge());
  return true;
}

void put_failure(lab_exchange &call, std::int32_t code, std::string_view text) {
  call.out.put_i32(code);
  call.out.put_counted(text);
  call.status = "error " + std::to_string(code);
}

void put_told_failure(lab_exchange &call) {
  if (!call.fault.structured) {
    put_failure(call, *call.fault.error, call.fault.error_text);
    return;
  }
  xdr_memory_writer writer;
  xdr_put_errinfo(writer, err_create(0, *call.fault.error, "the lab says: %s",
                                     {{MSG_ARG_TEXT, call.fault.error_text}}));
  call.out.put_bytes(writer.bytes());
  call.status = "error " + std::to_string(*call.fault.error);
}

void put_attrs(lab_reply &out, const attrlist &list) {
  // No attributes: one without a name.
  static const attrlist nameless = {{"", {}}};
  out.put_bytes(packed_attrs::pack(list.empty() ? nameless : list));
}

std::string tell_id(const ksui &id) {
  return json_quote(id.is_null() ? std::string("0") : ksui_text(id, ksui_form::long_form));
}

std::string tell_attrs(const attrlist &list) {
  json_line line;
  for (const attr_t &attr : list)
    line.add_raw(attr.name, json_array(attr.values,
                                       [](const std::string &value) { return json_quote(value); }));
  return line.text();
}

}  // namespace qvr
