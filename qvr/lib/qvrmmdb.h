// What a program includes that asks the media database: start of the library, session, questions,
// records, resources, and the values and messages that these are made of.
#pragma once

#include "client_start.h"
#include "gss_install.h"
#include "ks.h"
#include "mmdb.h"
#include "msg.h"
#include "resdb.h"
#include "rpc.h"
