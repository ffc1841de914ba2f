#include "rap_protocol.h"

#include "xdr_lists.h"
#include "xdr_shared.h"

namespace qvr {

namespace {

template <class Reply, class Data>
bool put_reply(XDR &xdr, const Reply &reply, Data data) {
  if (!xdr.put_i32(reply.status)) return false;
  if (reply.status != RAP_DATA && !xdr_put_errinfo(xdr, reply.error)) return false;
  return reply.status == RAP_ERROR || data();
}

// A status that the protocol does not have is a reply that cannot be read.
template <class Reply, class Data>
bool get_reply(XDR &xdr, Reply &reply, Data data) {
  reply.error = nullptr;
  if (!xdr.get_i32(reply.status)) return false;
  if (reply.status < RAP_DATA || reply.status > RAP_ERROR) return false;
  if (reply.status != RAP_DATA && !xdr_get_errinfo(xdr, reply.error)) return false;
  return reply.status == RAP_ERROR || data();
}

}  // namespace

bool xdr_put_resid(XDR &xdr, const resid_t &id) {
  return xdr.put_bytes(id.id, sizeof id.id) && xdr.put_u32(id.sequence);
}
bool xdr_get_resid(XDR &xdr, resid_t &id) {
  return xdr.get_bytes(id.id, sizeof id.id) && xdr.get_u32(id.sequence);
}

bool xdr_put_resource(XDR &xdr, const resource_t &resource) {
  return xdr_put_optional_attrlist(xdr, resource.attrs) && xdr_put_resid(xdr, resource.id);
}
bool xdr_get_resource(XDR &xdr, resource_t &resource) {
  return xdr_get_optional_attrlist(xdr, resource.attrs) && xdr_get_resid(xdr, resource.id);
}

bool xdr_put_args(XDR &xdr, const rap_query_args &args) {
  return xdr.put_u32(args.limit) && xdr_put_attrlist(xdr, args.query);
}
bool xdr_get_args(XDR &xdr, rap_query_args &args) {
  return xdr.get_u32(args.limit) && xdr_get_attrlist(xdr, args.query);
}

bool xdr_put_args(XDR &xdr, const rap_get_args &args) {
  if (args.ids.empty() || !xdr.put_u32(args.limit)) return false;
  for (std::size_t i = 0; i < args.ids.size(); i++) {
    if (!xdr_put_resid(xdr, args.ids[i]) || !xdr.put_bool(i + 1 < args.ids.size())) return false;
  }
  return xdr_put_optional_attrlist(xdr, args.query) && xdr_put_optional_attrlist(xdr, args.wanted);
}
bool xdr_get_args(XDR &xdr, rap_get_args &args) {
  args.ids.clear();
  return xdr.get_u32(args.limit) &&
         xdr_get_direct_list(xdr, [&] { return xdr_get_resid(xdr, args.ids.emplace_back()); }) &&
         xdr_get_optional_attrlist(xdr, args.query) && xdr_get_optional_attrlist(xdr, args.wanted);
}

bool xdr_put_reply(XDR &xdr, const rap_ids_reply &reply) {
  return put_reply(xdr, reply, [&] {
    return xdr.put_i32(reply.rap_mark) &&
           xdr_put_optional_list(xdr, reply.ids,
                                 [&](const resid_t &id) { return xdr_put_resid(xdr, id); });
  });
}
bool xdr_get_reply(XDR &xdr, rap_ids_reply &reply) {
  reply.ids.clear();
  return get_reply(xdr, reply, [&] {
    return xdr.get_i32(reply.rap_mark) &&
           xdr_get_optional_list(xdr, [&] { return xdr_get_resid(xdr, reply.ids.emplace_back()); });
  });
}

bool xdr_put_reply(XDR &xdr, const rap_res_reply &reply) {
  return put_reply(xdr, reply, [&] {
    return xdr_put_optional_list(xdr, reply.resources, [&](const resource_t &resource) {
      return xdr_put_resource(xdr, resource);
    });
  });
}
bool xdr_get_reply(XDR &xdr, rap_res_reply &reply) {
  reply.resources.clear();
  return get_reply(xdr, reply, [&] {
    return xdr_get_optional_list(
        xdr, [&] { return xdr_get_resource(xdr, reply.resources.emplace_back()); });
  });
}

}  // namespace qvr
