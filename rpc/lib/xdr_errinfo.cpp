// The error part of replies: a code, and a text that is plain or carries the whole error object.
#include <string>

#include "xdr_shared.h"

namespace qvr {

namespace {

constexpr std::uint32_t text_max = 18432;

}  // namespace

bool xdr_put_errinfo(XDR &xdr, const errobj_t *error) {
  if (error == nullptr) return xdr.put_i32(0) && xdr.put_counted({});
  std::string text = err_to_wire(*error);
  // One that is too long keeps its code and the start of its text.
  if (text.size() > text_max) text = error->text.substr(0, text_max);
  return xdr.put_i32(error->code) && xdr.put_counted(text);
}

bool xdr_get_errinfo(XDR &xdr, errobj_t *&error) {
  std::int32_t code = 0;
  std::string text;
  error = nullptr;
  if (!xdr.get_i32(code) || !xdr.get_counted(text, text_max)) return false;
  if (code != 0) error = err_from_wire(code, text);
  return true;
}

}  // namespace qvr
