#include "gss_tokens.h"

#include "debug_words.h"
#include "xdr_shared.h"

namespace qvr {

namespace {

bool put_text(XDR &xdr, std::string_view text, std::uint32_t limit = GSS_BYTES_MAX) {
  return text.size() <= limit && xdr.put_counted(text);
}

bool get_text(XDR &xdr, std::string &text, std::uint32_t limit = GSS_BYTES_MAX) {
  return xdr.get_counted(text, limit);
}

bool put_secret(XDR &xdr, const secret_bytes &bytes) {
  return put_text(xdr, bytes.view());
}

bool get_secret(XDR &xdr, secret_bytes &bytes) {
  bytes.wipe();
  return xdr.get_counted(bytes.bytes(), GSS_BYTES_MAX);
}

bool put_number(XDR &xdr, std::int32_t number) {
  return xdr.put_i32(number);
}

// The part of a token behind its tag.
struct token_row {
  std::uint32_t tag;
  bool (*put)(XDR &xdr, const gss_init_token &token);
  bool (*get)(XDR &xdr, gss_init_token &token);
};

constexpr token_row token_rows[] = {
    {GSS_TOKEN_INSECURE, [](XDR &, const gss_init_token &) { return true; },
     [](XDR &, gss_init_token &) { return true; }},
    {GSS_TOKEN_USER,
     [](XDR &xdr, const gss_init_token &t) {
       return xdr_put_user_identity(xdr, t.user) && xdr_put_daemon_identity(xdr, t.daemon);
     },
     [](XDR &xdr, gss_init_token &t) {
       return xdr_get_user_identity(xdr, t.user) && xdr_get_daemon_identity(xdr, t.daemon);
     }},
    {GSS_TOKEN_DAEMON,
     [](XDR &xdr, const gss_init_token &t) {
       return put_text(xdr, t.text) && xdr_put_daemon_identity(xdr, t.daemon);
     },
     [](XDR &xdr, gss_init_token &t) {
       return get_text(xdr, t.text) && xdr_get_daemon_identity(xdr, t.daemon);
     }},
    {GSS_TOKEN_SESSION,
     [](XDR &xdr, const gss_init_token &t) {
       return xdr.put_u64(t.session) && xdr.put_bool(t.mutual) && put_text(xdr, t.proof) &&
              put_secret(xdr, t.nonce);
     },
     [](XDR &xdr, gss_init_token &t) {
       return xdr.get_u64(t.session) && xdr.get_bool(t.mutual) && get_text(xdr, t.proof) &&
              get_secret(xdr, t.nonce);
     }},
    {GSS_TOKEN_SESSION_DAEMON,
     [](XDR &xdr, const gss_init_token &t) {
       return xdr.put_u64(t.session) && put_number(xdr, t.counter) && put_text(xdr, t.proof) &&
              put_secret(xdr, t.nonce);
     },
     [](XDR &xdr, gss_init_token &t) {
       return xdr.get_u64(t.session) && xdr.get_i32(t.counter) && get_text(xdr, t.proof) &&
              get_secret(xdr, t.nonce);
     }},
    {GSS_TOKEN_REDIRECT,
     [](XDR &xdr, const gss_init_token &t) {
       return put_text(xdr, t.text) && put_number(xdr, t.number) &&
              xdr_put_daemon_identity(xdr, t.daemon) && xdr_put_attrlist(xdr, t.attributes);
     },
     [](XDR &xdr, gss_init_token &t) {
       return get_text(xdr, t.text) && xdr.get_i32(t.number) &&
              xdr_get_daemon_identity(xdr, t.daemon) && xdr_get_attrlist(xdr, t.attributes);
     }},
};

const token_row *row_of(std::uint32_t tag) {
  for (const token_row &row : token_rows) {
    if (row.tag == tag) return &row;
  }
  return nullptr;
}

std::string *name_of(gss_daemon_identity &daemon, int type) {
  switch (type) {
    case GSS_NAME_HOST:
      return &daemon.name2;
    case GSS_NAME_FIRST:
      return &daemon.name1;
    case GSS_NAME_THIRD:
      return &daemon.name3;
    default:
      return nullptr;
  }
}

}  // namespace

gss_daemon_identity gss_name_daemon(int type, const char *name, std::uint32_t program,
                                    std::uint32_t version) {
  gss_daemon_identity daemon;
  daemon.program = static_cast<std::int32_t>(program);
  daemon.version = static_cast<std::int32_t>(version);
  if (type == GSS_NAME_NONE) return daemon;
  std::string *text = name_of(daemon, type);
  if (text == nullptr) {
    KS_DEBUG(1, "An invalid daemon machine name type was passed in.\n");
  } else if (name == nullptr) {
    KS_DEBUG(1,
             "One must at least specify the machine the daemon that authentication is requested "
             "for is running on.\n");
  } else {
    *text = name;
  }
  return daemon;
}

errobj_t *gss_peer_names_of(const gss_identity &identity, gss_peer_names &names) {
  names = {};
  if (identity.kind == GSS_IDENTITY_DAEMON) {
    const gss_daemon_identity &daemon = identity.daemon;
    char text[64];
    snprintf(text, sizeof text, "%s%u:%u", "daemon:", static_cast<unsigned>(daemon.program),
             static_cast<unsigned>(daemon.version));
    names.name = text;
    names.user = "root";
    for (const std::string *host : {&daemon.name2, &daemon.name1, &daemon.name3}) {
      if (names.host.empty()) names.host = *host;
    }
  } else if (identity.kind == GSS_IDENTITY_USER) {
    if (identity.user.user.empty()) {
      return err_create(143916, 25007, "Username missing for GSS authentication");
    }
    names.name = names.user = identity.user.user;
    names.host = identity.user.host;
  } else {
    names.name = names.user = "ZRDUserNone";
    names.host = "ZRDHostNone";
  }
  return nullptr;
}

bool xdr_put_user_identity(XDR &xdr, const gss_user_identity &user) {
  for (const std::string *text :
       {&user.user, &user.second, &user.third, &user.host, &user.domain_type, &user.domain}) {
    if (!put_text(xdr, *text)) return false;
  }
  if (user.groups.size() > GSS_GROUPS_MAX ||
      !xdr.put_u32(static_cast<std::uint32_t>(user.groups.size()))) {
    return false;
  }
  for (const auto &group : user.groups) {
    if (!put_text(xdr, group.name) || !put_text(xdr, group.second)) return false;
  }
  return xdr.put_i32(user.application) && xdr_put_attrlist(xdr, user.attributes) &&
         xdr_put_attrlist(xdr, user.more_attributes);
}

bool xdr_get_user_identity(XDR &xdr, gss_user_identity &user) {
  for (std::string *text :
       {&user.user, &user.second, &user.third, &user.host, &user.domain_type, &user.domain}) {
    if (!get_text(xdr, *text)) return false;
  }
  std::uint32_t count = 0;
  user.groups.clear();
  if (!xdr.get_u32(count) || count > GSS_GROUPS_MAX) return false;
  for (std::uint32_t i = 0; i < count; i++) {
    auto &group = user.groups.emplace_back();
    if (!get_text(xdr, group.name) || !get_text(xdr, group.second)) return false;
  }
  return xdr.get_i32(user.application) && xdr_get_attrlist(xdr, user.attributes) &&
         xdr_get_attrlist(xdr, user.more_attributes);
}

bool xdr_put_daemon_identity(XDR &xdr, const gss_daemon_identity &daemon) {
  return put_text(xdr, daemon.name1) && put_text(xdr, daemon.name2) &&
         put_text(xdr, daemon.name3) && xdr.put_i32(daemon.program) && xdr.put_i32(daemon.version);
}

bool xdr_get_daemon_identity(XDR &xdr, gss_daemon_identity &daemon) {
  return get_text(xdr, daemon.name1) && get_text(xdr, daemon.name2) &&
         get_text(xdr, daemon.name3) && xdr.get_i32(daemon.program) && xdr.get_i32(daemon.version);
}

bool xdr_put_init_token(XDR &xdr, const gss_init_token &token) {
  const token_row *row = row_of(token.tag);
  return row != nullptr && xdr.put_u32(token.tag) && row->put(xdr, token);
}

bool xdr_get_init_token(XDR &xdr, gss_init_token &token) {
  if (!xdr.get_u32(token.tag)) return false;
  const token_row *row = row_of(token.tag);
  return row != nullptr && row->get(xdr, token);
}

bool xdr_put_reply_token(XDR &xdr, const gss_reply_token &token) {
  if (!xdr.put_u32(token.tag)) return false;
  switch (token.tag) {
    case GSS_REPLY_ERROR:
      return xdr.put_bool(token.error != nullptr) &&
             (token.error == nullptr || xdr_put_errinfo(xdr, token.error));
    case GSS_REPLY_FILE:
      return put_text(xdr, token.path, GSS_PATH_MAX) && put_text(xdr, token.challenge);
    default:
      return token.tag == GSS_REPLY_PIPE && put_text(xdr, token.path, GSS_PATH_MAX);
  }
}

bool xdr_get_reply_token(XDR &xdr, gss_reply_token &token) {
  bool present = false;
  token.error = nullptr;
  if (!xdr.get_u32(token.tag)) return false;
  switch (token.tag) {
    case GSS_REPLY_ERROR:
      return xdr.get_bool(present) && (!present || xdr_get_errinfo(xdr, token.error));
    case GSS_REPLY_FILE:
      return get_text(xdr, token.path, GSS_PATH_MAX) && get_text(xdr, token.challenge);
    default:
      return token.tag == GSS_REPLY_PIPE && get_text(xdr, token.path, GSS_PATH_MAX);
  }
}

bool xdr_put_app_token(XDR &xdr, const gss_app_token &token) {
  if (!xdr.put_u32(token.tag)) return false;
  if (token.tag == GSS_APP_NUMBER) return xdr.put_i32(token.number);
  return token.tag == GSS_APP_BYTES && put_secret(xdr, token.bytes) && xdr.put_bool(token.flag);
}

bool xdr_get_app_token(XDR &xdr, gss_app_token &token) {
  if (!xdr.get_u32(token.tag)) return false;
  if (token.tag == GSS_APP_NUMBER) return xdr.get_i32(token.number);
  return token.tag == GSS_APP_BYTES && get_secret(xdr, token.bytes) && xdr.get_bool(token.flag);
}

}  // namespace qvr
