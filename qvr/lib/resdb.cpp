#include "resdb.h"

#include "debug_words.h"
#include "err_class.h"

namespace qvr {

namespace {

constexpr int NOT_SUPPORTED = 1;  // of the class of resource errors

errobj_t *lacking() {
  return err_from_table(ERR_RAP, NOT_SUPPORTED);
}

errobj_t *report(errobj_t *error) {
  KS_DEBUG(1, "RAP Database query failed. errnum = %d and errstr = %s\n", error->code,
           error->text.c_str());
  return error;
}

}  // namespace

errobj_t *resdb_t::rap_create(const attrlist &, resid_t &) {
  return lacking();
}
errobj_t *resdb_t::rap_delete(const resid_t &) {
  return lacking();
}
errobj_t *resdb_t::rap_update(const resource_t &) {
  return lacking();
}
errobj_t *resdb_t::rap_append(const resource_t &) {
  return lacking();
}
errobj_t *resdb_t::rap_retrieve_one(const resid_t &, resource_t &) {
  return lacking();
}
errobj_t *resdb_t::rap_retrieve(const std::vector<resid_t> &, const attrlist &, reslist_t &) {
  return lacking();
}
errobj_t *resdb_t::rap_query(const attrlist &, std::uint32_t, std::vector<resid_t> &) {
  return lacking();
}
errobj_t *resdb_t::rap_modify_time(std::int64_t &) {
  return lacking();
}

errobj_t *resdb_query(resdb_t *handle, const attrlist &query, const attrlist &wanted,
                      std::uint32_t limit, reslist_t *found) {
  if (found == nullptr) {
    return err_create(85179, 35017,
                      "Unable to return a list of resources from a database: the resource list "
                      "pointer passed is null.");
  }
  found->clear();
  if (handle == nullptr) {
    return err_create(85180, 35017,
                      "Unable to return a list of resources from a database: the resource database "
                      "for query is null.");
  }
  std::vector<resid_t> ids;
  if (errobj_t *error = handle->rap_query(query, limit, ids)) return report(error);
  if (ids.empty()) return nullptr;
  if (errobj_t *error = handle->rap_retrieve(ids, wanted, *found)) {
    found->clear();
    return report(error);
  }
  return nullptr;
}

}  // namespace qvr
