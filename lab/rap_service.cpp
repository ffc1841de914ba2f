// Reading configuration resources: the RAP programs of qvrd and qvrexecd.
#include <algorithm>
#include <cstring>

#include "lab_exchange.h"
#include "lab_state.h"
#include "xdr_shared.h"

namespace qvr {

namespace {

constexpr std::uint32_t RAP_DATA = 0, RAP_ERROR = 2;
constexpr std::size_t RESID_SIZE = 32;
// More ids in one request than any client has a use for.
constexpr std::size_t IDS_MAX = 65536;

const char *database_of(const lab_exchange &call) {
  return call.program == RAP_PROGRAM.number ? "qvrd" : "qvrexecd";
}

// Every attribute that the query names must share a value with the resource's, in any case; one
// without values must be there.
bool matches(const attrlist &resource, const attrlist &query) {
  return std::all_of(query.begin(), query.end(), [&](const attr_t &wanted) {
    if (wanted.name.empty()) return true;
    const attr_t *attr = attrlist_find(resource, wanted.name);
    if (attr == nullptr) return false;
    return wanted.values.empty() ||
           std::any_of(wanted.values.begin(), wanted.values.end(), [&](const std::string &value) {
             return attrlist_has(resource, wanted.name, value);
           });
  });
}

// A resource's identifier is the text of its place in the catalogue, filled with zeros.
std::string resid_of(std::size_t place) {
  std::string id = "lab resource " + std::to_string(place);
  id.resize(RESID_SIZE);
  return id;
}

void put_resid(lab_reply &out, std::size_t place) {
  out.put_bytes(resid_of(place));
  out.put_u32(1);
}

std::vector<std::size_t> query(const lab_exchange &call, const attrlist &wanted,
                               std::uint32_t limit) {
  std::vector<std::size_t> places;
  auto resources = call.lab.catalogue.resources();
  for (std::size_t i = 0; i < resources.size() && places.size() < limit; i++) {
    if (resources[i].database == database_of(call) && matches(resources[i].attrs, wanted))
      places.push_back(i);
  }
  return places;
}

bool put_status(lab_exchange &call) {
  call.out.put_u32(call.fault.error ? RAP_ERROR : RAP_DATA);
  if (call.fault.error) put_told_failure(call);
  return !call.fault.error;
}

void put_resource(lab_exchange &call, std::size_t place, const attrlist &wanted) {
  attrlist attrs = call.lab.catalogue.resources()[place].attrs;
  bool all = std::all_of(wanted.begin(), wanted.end(),
                         [](const attr_t &attr) { return attr.name.empty(); });
  if (!all)
    std::erase_if(attrs,
                  [&](const attr_t &attr) { return attrlist_find(wanted, attr.name) == nullptr; });
  call.out.put_bool(true);  // of the list
  call.out.put_bool(!attrs.empty());
  if (!attrs.empty()) put_attrs(call.out, attrs);
  put_resid(call.out, place);
  call.records++;
}

// A direct list: the first node without a presence word, each followed by the word that says
// whether another comes.
bool get_ids(lab_exchange &call, std::vector<std::size_t> &places) {
  std::size_t count = call.lab.catalogue.resources().size();
  bool more = true;
  for (std::size_t n = 0; more; n++) {
    char id[RESID_SIZE];
    std::uint32_t sequence = 0;
    if (n >= IDS_MAX || !call.in.get_bytes(id, sizeof id) || !call.in.get_u32(sequence) ||
        !call.in.get_bool(more))
      return false;
    for (std::size_t place = 0; place < count; place++) {
      if (std::memcmp(resid_of(place).data(), id, sizeof id) == 0) places.push_back(place);
    }
  }
  return true;
}

constexpr lab_procedure PROCEDURES[] = {
    {0, "NULL", lab_null},
    {101, "RAP_QUERY", rap_query},
    {102, "RAP_GET", rap_get},
    {123, "kstr_challenge", auth_challenge},
    {124, "kstr_auth", auth_request},
    {125, "kstr_reauth", auth_renewal},
};

}  // namespace

bool rap_query(lab_exchange &call) {
  std::uint32_t limit = 0;
  attrlist wanted;
  if (!call.in.get_u32(limit) || !xdr_get_attrlist(call.in, wanted)) return false;
  if (call.telling) call.args.add("limit", limit).add_raw("query", tell_attrs(wanted));
  if (!put_status(call)) return true;
  call.out.put_i32(0);  // rap_mark
  for (std::size_t place : query(call, wanted, limit)) {
    call.out.put_bool(true);
    put_resid(call.out, place);
    call.records++;
  }
  call.out.put_bool(false);
  return true;
}

bool rap_get(lab_exchange &call) {
  std::uint32_t limit = 0;
  std::vector<std::size_t> places;
  attrlist condition, wanted;
  if (!call.in.get_u32(limit) || !get_ids(call, places) ||
      !xdr_get_optional_attrlist(call.in, condition) || !xdr_get_optional_attrlist(call.in, wanted))
    return false;
  if (call.telling) {
    call.args.add("limit", limit).add("ids", std::uint64_t{places.size()});
    call.args.add_raw("query", tell_attrs(condition)).add_raw("wanted", tell_attrs(wanted));
  }
  if (!put_status(call)) return true;
  for (std::size_t place : places) {
    const lab_resource &resource = call.lab.catalogue.resources()[place];
    if (call.records < limit && resource.database == database_of(call) &&
        matches(resource.attrs, condition))
      put_resource(call, place, wanted);
  }
  call.out.put_bool(false);
  return true;
}

const lab_program RAP_PROGRAM = {"qvrd", 390109, 2, PROCEDURES};

}  // namespace qvr
