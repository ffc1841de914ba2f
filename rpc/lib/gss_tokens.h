// What the two sides of the mechanism "GSS Kestro" version 1 tell each other, and its XDR
// (RFC 4506): identities, tokens of a context, answers of the authentication service, application
// tokens.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "attrlist.h"
#include "errobj.h"
#include "secrets.h"
#include "xdr.h"

namespace qvr {

inline constexpr std::uint32_t GSS_BYTES_MAX = 32744;
inline constexpr std::uint32_t GSS_GROUPS_MAX = 512;
inline constexpr std::uint32_t GSS_PATH_MAX = 12288;

struct gss_user_identity {
  struct group {
    std::string name, second;  // the second is empty on this platform
  };
  std::string user, second, third;  // second and third are empty on this platform
  std::string host;
  std::string domain_type, domain;
  std::vector<group> groups;
  std::int32_t application = 0;
  attrlist attributes, more_attributes;
};

// How the machine of a daemon is named; it decides which of the three texts holds the name.
enum gss_name_type : int {
  GSS_NAME_NONE = 0,
  GSS_NAME_HOST = 1,  // the second text
  GSS_NAME_FIRST = 2,
  GSS_NAME_THIRD = 3,
};

struct gss_daemon_identity {
  std::string name1, name2, name3;
  std::int32_t program = 0;
  std::int32_t version = 0;
};
// A null `name` goes with GSS_NAME_NONE only; what does not fit is logged and leaves the texts
// empty.
gss_daemon_identity gss_name_daemon(int type, const char *name, std::uint32_t program,
                                    std::uint32_t version);

enum gss_identity_kind : std::uint32_t {
  GSS_IDENTITY_NONE = 1,
  GSS_IDENTITY_DAEMON = 2,
  GSS_IDENTITY_USER = 3,
};
// Who a peer is.
struct gss_identity {
  std::uint32_t kind = GSS_IDENTITY_NONE;
  gss_daemon_identity daemon;
  gss_user_identity user;
};
// How a peer prints. An error object (143916) for a user without a name, or null.
struct gss_peer_names {
  std::string name;  // of the user, or "daemon:<program>:<version>"
  std::string user;  // whose rights it has
  std::string host;
};
errobj_t *gss_peer_names_of(const gss_identity &identity, gss_peer_names &names);

// Tags of tokens and kinds of credentials are the same numbers.
enum gss_token_tag : std::uint32_t {
  GSS_TOKEN_INSECURE = 1,
  GSS_TOKEN_USER = 2,
  GSS_TOKEN_DAEMON = 3,
  GSS_TOKEN_SESSION = 4,
  GSS_TOKEN_SESSION_DAEMON = 5,
  GSS_TOKEN_REDIRECT = 6,
};

struct gss_init_token {
  std::uint32_t tag = GSS_TOKEN_INSECURE;
  gss_user_identity user;      // USER
  gss_daemon_identity daemon;  // USER, DAEMON, REDIRECT
  std::string text;            // DAEMON, REDIRECT
  std::int32_t number = 0;     // REDIRECT
  attrlist attributes;         // REDIRECT
  std::uint64_t session = 0;   // SESSION, SESSION_DAEMON
  bool mutual = false;         // SESSION
  std::int32_t counter = 0;    // SESSION_DAEMON
  std::string proof;           // SESSION, SESSION_DAEMON
  secret_bytes nonce;          // SESSION, SESSION_DAEMON
};
bool xdr_put_init_token(XDR &xdr, const gss_init_token &token);
bool xdr_get_init_token(XDR &xdr, gss_init_token &token);

enum gss_reply_tag : std::uint32_t {
  GSS_REPLY_ERROR = 0,
  GSS_REPLY_FILE = 1,
  GSS_REPLY_PIPE = 2,
};
struct gss_reply_token {
  std::uint32_t tag = GSS_REPLY_ERROR;
  errobj_t *error = nullptr;  // GSS_REPLY_ERROR; in the thread's ring, may be null
  std::string path;           // GSS_REPLY_FILE, GSS_REPLY_PIPE
  std::string challenge;      // GSS_REPLY_FILE
};
bool xdr_put_reply_token(XDR &xdr, const gss_reply_token &token);
bool xdr_get_reply_token(XDR &xdr, gss_reply_token &token);

// What a client hands a daemon once their context is up.
enum gss_app_tag : std::uint32_t { GSS_APP_NUMBER = 1, GSS_APP_BYTES = 2 };
struct gss_app_token {
  std::uint32_t tag = GSS_APP_BYTES;
  std::int32_t number = 0;  // GSS_APP_NUMBER
  secret_bytes bytes;       // GSS_APP_BYTES
  bool flag = false;        // GSS_APP_BYTES
};
bool xdr_put_app_token(XDR &xdr, const gss_app_token &token);
bool xdr_get_app_token(XDR &xdr, gss_app_token &token);

bool xdr_put_user_identity(XDR &xdr, const gss_user_identity &user);
bool xdr_get_user_identity(XDR &xdr, gss_user_identity &user);
bool xdr_put_daemon_identity(XDR &xdr, const gss_daemon_identity &daemon);
bool xdr_get_daemon_identity(XDR &xdr, gss_daemon_identity &daemon);

}  // namespace qvr
