// RPC status numbers, those of the published library and the system's own.
#pragma once

#include <cstdint>

namespace qvr {

enum clnt_stat : int {
  RPC_SUCCESS = 0,
  RPC_CANTENCODEARGS = 1,
  RPC_CANTDECODERES = 2,
  RPC_CANTSEND = 3,
  RPC_CANTRECV = 4,
  RPC_TIMEDOUT = 5,
  RPC_VERSMISMATCH = 6,
  RPC_AUTHERROR = 7,
  RPC_PROGUNAVAIL = 8,
  RPC_PROGVERSMISMATCH = 9,
  RPC_PROCUNAVAIL = 10,
  RPC_CANTDECODEARGS = 11,
  RPC_SYSTEMERROR = 12,
  RPC_UNKNOWNHOST = 13,
  RPC_PMAPFAILURE = 14,
  RPC_PROGNOTREGISTERED = 15,
  RPC_FAILED = 16,
  RPC_UNKNOWNPROTO = 17,
  RPC_INTR = 18,
  RPC_UNKNOWNADDR = 19,
  RPC_TLIERROR = 20,
  RPC_NOBROADCAST = 21,
  RPC_N2AXLATEFAILURE = 22,
  RPC_UDERROR = 23,
  RPC_INPROGRESS = 24,
  RPC_STALERACHANDLE = 25,
  RPC_CANTCONNECT = 26,
  RPC_XPRTFAILED = 27,
  RPC_CANCELLED = 28,  // by the cancel callback; its text is the published one of the number
  RPC_CANTSTORE = 29,
};

}  // namespace qvr
