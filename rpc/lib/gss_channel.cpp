#include "gss_channel.h"

#include <utility>

#include "kstr_auth.h"

namespace qvr {

namespace {

// More than this is not kept from one fragment to the next.
constexpr std::size_t kept_memory = 1 << 20;

gss_channel &of(void *context) {
  return *static_cast<gss_channel *>(context);
}

using pass_t = errobj_t *(*)(gss_ctx &, std::string_view, gss_buffer &);

errobj_t *pass(void *context, pass_t how, const xdrrec_buf_t &in, xdrrec_buf_t &out) {
  gss_channel &channel = of(context);
  out = {};
  if (!channel.context) {
    return err_create(0, GSS_FAILED_CODE, "The GSS context of the channel is gone");
  }
  // A release during the operation must not take the context away below it.
  std::shared_ptr<gss_ctx> held = channel.context;
  gss_buffer buffer;
  if (how == gss_unwrap) buffer = std::exchange(channel.spare, {});
  std::string_view bytes(reinterpret_cast<const char *>(in.data), in.size);
  if (errobj_t *error = how(*held, bytes, buffer)) return error;
  if (buffer.size > UINT32_MAX) {
    return err_create(0, GSS_FAILED_CODE, "The data is too long to be wrapped");
  }
  out.size = static_cast<std::uint32_t>(buffer.size);
  if (how == gss_unwrap) {
    channel.lent = buffer.data.get();
    channel.lent_room = buffer.room;
  }
  out.data = buffer.data.release();
  return nullptr;
}

errobj_t *encrypt(void *context, const xdrrec_buf_t &in, xdrrec_buf_t &out) {
  return pass(context, gss_wrap, in, out);
}

errobj_t *decrypt(void *context, const xdrrec_buf_t &in, xdrrec_buf_t &out) {
  return pass(context, gss_unwrap, in, out);
}

void release(void *context, xdrrec_buf_t &buffer) {
  std::unique_ptr<std::uint8_t[]> taken_back(buffer.data);
  gss_channel &channel = of(context);
  if (buffer.data != nullptr && buffer.data == channel.lent) {
    channel.lent = nullptr;
    if (channel.lent_room <= kept_memory)
      channel.spare = {std::move(taken_back), 0, channel.lent_room};
  }
  buffer = {};
}

bool needs_refresh(void *context) {
  std::int64_t expiry = of(context).expiry;
  return expiry != 0 && expiry - get_kstr_clock().now() <= GSS_EXPIRY_MARGIN;
}

// A context that dies is replaced by a new connection only.
errobj_t *refresh(void *) {
  return nullptr;
}

errobj_t *reauth(void *context) {
  gss_channel &channel = of(context);
  if (channel.lost != nullptr) return channel.lost(channel.owner);
  return err_create(143915, 23004, "Failed to authenticate using GSS");
}

}  // namespace

xdrrec_crypt_ops gss_channel_ops(const std::shared_ptr<gss_channel> &channel) {
  xdrrec_crypt_ops ops;
  ops.context = channel.get();
  ops.owner = channel;
  ops.encrypt = encrypt;
  ops.decrypt = decrypt;
  ops.release = release;
  ops.needs_refresh = needs_refresh;
  ops.refresh = refresh;
  ops.reauth = reauth;
  return ops;
}

}  // namespace qvr
