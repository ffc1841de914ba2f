#include "usage.h"

#include "msg.h"

namespace qvr {

int usage(std::string_view program, const char *refusal) {
  constexpr std::int32_t code = 13022;
  if (refusal != nullptr) {
    msg_print(4690, code, MSG_STDERR | MSG_NO_PREFIX, "%s\n", {{MSG_ARG_TEXT, refusal}});
  }
  msg_print(101432, code, MSG_STDOUT,
            "usage: %s [-akvV] [-o order] [-s server] [-x exportspec] [report] [query] "
            "[volname...]\n\n",
            {{MSG_ARG_PROGRAM, program}});
  msg_print(203965, code, MSG_STDOUT,
            "<report>: [ -m | -p | -B | -C | -O | -S | -L | -X | -r reportspec ]\n");
  msg_print(6146, code, MSG_STDOUT, "<query>:  [-c client] [-N name] [-t time] [-q queryspec]\n");
  msg_print(198541, code, MSG_STDOUT, "\nor\n       %s -h [vV] [-s server] [report] [query]\n\n",
            {{MSG_ARG_PROGRAM, program}});
  msg_print(198542, code, MSG_STDOUT, "<report>: [-r reportspec]\n");
  msg_print(199012, code, MSG_STDOUT,
            "<query>:  [-c client] [-N name] [-t starttime] [-T endtime] [-q queryspec]\n");
  return 1;
}

}  // namespace qvr
