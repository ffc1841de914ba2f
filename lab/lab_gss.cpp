#include "lab_gss.h"

#include "auth_handle.h"
#include "lab_reply.h"
#include "lab_state.h"

namespace qvr {

namespace {

// More than any client needs on one connection.
constexpr std::size_t CONTEXTS_MAX = 16;
constexpr std::uint32_t WINDOW = 128;

std::string xid_word(std::uint32_t xid) {
  std::uint8_t word[4];
  XDR::store32(word, xid);
  return {reinterpret_cast<const char *>(word), 4};
}

const char *proc_name(std::uint32_t proc, bool encrypted) {
  switch (proc) {
    case RPCSEC_GSS_DATA:
      return encrypted ? "RPCSEC_GSS on the channel" : "RPCSEC_GSS";
    case RPCSEC_GSS_INIT:
      return "RPCSEC_GSS init";
    case RPCSEC_GSS_CONTINUE_INIT:
      return "RPCSEC_GSS continue";
    case RPCSEC_GSS_APP_TOKEN:
      return "RPCSEC_GSS token";
    case RPCSEC_GSS_CHANNEL:
      return "RPCSEC_GSS channel";
    default:
      return "RPCSEC_GSS unknown";
  }
}

std::string encoded(const gss_init_result &result) {
  xdr_memory_writer out;
  xdr_put_gss_init_result(out, result);
  return out.take();
}

// What a fault rule makes of a right answer.
void spoil(const lab_fault &fault, gss_init_result &result) {
  if (fault.gss == "nohandle") result.handle.clear();
  if (fault.gss == "major") result.major = 2;
  if (fault.gss == "continue") result.major = GSS_CONTINUE_NEEDED;
  if (fault.gss == "done") result.major = GSS_COMPLETE;
  if (fault.gss == "notoken") result.token.clear();
  if (fault.gss == "badtoken" && !result.token.empty()) {
    result.token.back() = static_cast<char>(result.token.back() ^ 1);
  }
}

}  // namespace

lab_gss::~lab_gss() {
  lab_.sessions.drop_file(session_file_);
}

errobj_t *lab_gss::find_session(std::uint64_t session, session_record &record) {
  return lab_.sessions.find(session, record);
}

bool lab_gss::takes_insecure() const {
  return lab_.options.insecure;
}

errobj_t *lab_gss::open_session(const gss_init_token &claim, session_record &record,
                                gss_reply_token &answer) {
  if (claim.tag != GSS_TOKEN_USER) {
    return err_create(0, GSS_FAILED_CODE, "The lab's authentication service serves users only");
  }
  lab_.sessions.drop_file(session_file_);
  answer.tag = GSS_REPLY_FILE;
  errobj_t *error = lab_.sessions.make(claim.user, record, answer.path, answer.challenge);
  session_file_ = answer.path;
  return error;
}

// No handle stands for the connection's only context.
lab_gss::context_ptr lab_gss::context_of(const std::string &handle) {
  if (handle.empty()) return contexts_.size() == 1 ? contexts_.begin()->second : nullptr;
  auto at = contexts_.find(handle);
  return at == contexts_.end() ? nullptr : at->second;
}

// The user is that of the peer; the channel comes up with the answer that goes out now.
void lab_gss::finish(const context_ptr &context) {
  gss_peer_names names;
  if (gss_peer_names_of(context->gss.peer, names) == nullptr && context->user.empty()) {
    context->user = names.user;
  }
  gss_log_channel(context->channel_wanted, peer_);
  if (context->channel_wanted) next_channel_ = context;
}

void lab_gss::handshake(const gss_call &call, const gss_call_cred &cred, const lab_fault &fault,
                        lab_judgement &verdict) {
  gss_init_args args;
  verdict.deny = AUTH_BADCRED;
  if (!xdr_get_gss_init_args(call.in, args)) return;
  bool first = cred.proc == RPCSEC_GSS_INIT;
  context_ptr context = first ? std::make_shared<context_t>() : context_of(cred.handle);
  verdict.deny = AUTH_GSS_CREDPROBLEM;
  if (!context || (first && contexts_.size() >= CONTEXTS_MAX)) return;
  context->app_token_follows = args.app_token_follows;
  context->channel_wanted = args.channel_wanted;
  gss_init_result result;
  std::uint32_t flags = 0;
  errobj_t *error =
      gss_accept_sec_context(*this, context->gss, args.token, result.token, result.major, flags);
  result.handle = cred.handle;
  if (first) {
    result.handle = "lab context " + std::to_string(++last_handle_);
    contexts_[result.handle] = context;
  }
  if (error != nullptr) {
    contexts_.erase(result.handle);
    verdict.deny = result.major == GSS_BAD_SIGNATURE ? AUTH_GSS_CREDPROBLEM : AUTH_REJECTEDCRED;
    return;
  }
  result.window = WINDOW;
  verdict.deny = AUTH_OK;
  verdict.silent = (flags & GSS_FLAG_NO_REPLY) != 0;
  if (result.major == GSS_COMPLETE) {
    lab_.sessions.drop_file(session_file_);
    session_file_.clear();
    if (!context->app_token_follows) finish(context);
  }
  spoil(fault, result);
  verdict.answer = encoded(result);
}

void lab_gss::app_token(const gss_call &call, context_t &context, lab_judgement &verdict) {
  gss_init_args args;
  verdict.deny = AUTH_BADCRED;
  gss_buffer plain;
  if (!xdr_get_gss_init_args(call.in, args) ||
      gss_unwrap(context.gss, args.token, plain) != nullptr) {
    return;
  }
  xdr_memory_reader in(plain.view());
  gss_app_token token;
  if (!xdr_get_app_token(in, token)) return;
  verdict.deny = AUTH_OK;
  if (token.tag != GSS_APP_BYTES) return;
  context.user = lab_.credentials.user_of(token.bytes.view());
  if (context.user.empty()) verdict.deny = AUTH_REJECTEDCRED;
}

void lab_gss::switch_channel(const gss_call &call, const context_ptr &context,
                             lab_judgement &verdict) {
  bool on = false;
  verdict.deny = AUTH_BADCRED;
  if (!call.in.get_bool(on)) return;
  verdict.deny = AUTH_OK;
  verdict.silent = true;
  if (on) next_channel_ = context;
  leaving_ = !on;
}

// On the channel an empty verifier is enough: nobody else can speak there.
bool lab_gss::verifies(const gss_call &call, const gss_call_cred &cred, context_t &context) const {
  if (context.gss.state != GSS_CTX_COMPLETE) return false;
  if (channel_ && call.verifier.body.empty()) return true;
  return gss_verify_mic(context.gss, call.signed_part, call.verifier.body, nullptr, cred.seq) ==
         nullptr;
}

void lab_gss::data(const gss_call &call, const gss_call_cred &cred, context_t &context,
                   const lab_fault &fault, lab_judgement &verdict) {
  verdict.deny = AUTH_GSS_CREDPROBLEM;
  if (cred.seq != call.xid) return;
  verdict.deny = AUTH_OK;
  verdict.user = context.user;
  verdict.verifier.flavour = fault.gss == "flavour" ? AUTH_NONE : RPCSEC_GSS;
  verdict.verifier.body.clear();
  if (channel_) return;
  gss_get_mic(context.gss, call.xid, xid_word(call.xid), verdict.verifier.body);
  if (fault.gss == "badmic")
    verdict.verifier.body[0] = static_cast<char>(~verdict.verifier.body[0]);
  if (fault.gss == "nomic") verdict.verifier.body.clear();
}

lab_judgement lab_gss::judge(const gss_call &call, const lab_fault &fault) {
  lab_judgement verdict;
  verdict.deny = AUTH_BADCRED;
  verdict.kind = "RPCSEC_GSS";
  xdr_memory_reader body(call.credential.body);
  gss_call_cred cred;
  if (!xdr_get_gss_cred(body, cred) || cred.version != RPCSEC_GSS_VERSION ||
      cred.service != RPCSEC_GSS_SVC_NONE) {
    return verdict;
  }
  verdict.kind = proc_name(cred.proc, encrypted());
  verdict.own = cred.proc != RPCSEC_GSS_DATA;
  if (fault.lose) {
    contexts_.clear();
    lost_ = channel_ != nullptr;
    next_channel_.reset();
  }
  if (cred.proc == RPCSEC_GSS_INIT || cred.proc == RPCSEC_GSS_CONTINUE_INIT) {
    handshake(call, cred, fault, verdict);
    return verdict;
  }
  context_ptr context = context_of(cred.handle);
  verdict.deny = AUTH_GSS_CREDPROBLEM;
  if (!context) return verdict;
  if (!verifies(call, cred, *context)) return verdict;
  if (cred.proc == RPCSEC_GSS_APP_TOKEN) {
    app_token(call, *context, verdict);
    if (verdict.deny == AUTH_OK) finish(context);
  } else if (cred.proc == RPCSEC_GSS_CHANNEL) {
    switch_channel(call, context, verdict);
  } else if (cred.proc == RPCSEC_GSS_DATA) {
    data(call, cred, *context, fault, verdict);
  } else {
    verdict.deny = AUTH_BADCRED;
  }
  return verdict;
}

void lab_gss::settle() {
  if (leaving_) channel_.reset();
  leaving_ = false;
  if (next_channel_) channel_ = std::move(next_channel_);
  next_channel_.reset();
}

bool lab_gss::take_loss() {
  if (!lost_) return false;
  lost_ = false;
  channel_.reset();
  return true;
}

bool lab_gss::unwrap(std::string_view fragment, std::string &bytes) {
  gss_buffer plain;
  if (gss_unwrap(channel_->gss, fragment, plain) != nullptr) return false;
  bytes.append(plain.view());
  return true;
}

bool lab_gss::wrap(std::string_view bytes, std::string &fragment) {
  gss_buffer wrapped;
  if (gss_wrap(channel_->gss, bytes, wrapped) != nullptr) return false;
  fragment.assign(wrapped.view());
  return true;
}

}  // namespace qvr
