// Texts and error objects of RPC failures, and the create error of the calling thread.
#pragma once

#include <string>
#include <string_view>

#include "client.h"
#include "errobj.h"

namespace qvr {

// Why the thread's last constructor gave no handle.
struct rpc_create_err_t {
  clnt_stat status = RPC_SUCCESS;
  rpc_err_t error;  // its status is the second status; errno or why
};
// The calling thread's. Valid for the thread's life.
rpc_create_err_t &clnt_create_err();
void set_create_err(clnt_stat status, int error_or_why = 0);
// Keeps the error of a handle that could not be set up as the create error.
void set_create_err(const rpc_err_t &error);

// "Timed out" and its like; "Unknown error code: %d" for others. Valid as a small text is.
const char *rpc_status_text(int status);
const char *rpc_why_text(int why);
// The error of the handle's last call in one line, behind "prefix: " when there is one.
std::string clnt_error_text(const CLIENT &client, std::string_view prefix = {});
std::string rpc_error_text(const rpc_err_t &error, std::string_view prefix = {});
std::string clnt_create_error_text(std::string_view prefix = {});
// "RPC: %s" to standard error.
void clnt_print_status(int status);

// The code of an error object: the status, for an authentication error with a severity by the why.
int rpc_error_code(int status, int why);
errobj_t *rpc_error_object(const rpc_err_t &error);

}  // namespace qvr
