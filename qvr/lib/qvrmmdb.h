// What a program includes that asks the media database: start of the library, session, questions,
// records, resources, and the values and messages that these are made of.
//
// The order of calls, as docs/examples/list_savesets.cpp has it:
//
// 1. Once, on the main thread and before others run: ks_runtime_start, ks_set_progname (the name
//    in messages), kstr_set_application (which program this is to the server), gss_install
//    (encrypted channels), ks_getlocalhost and qvr_client_init (this host's ports, methods and
//    tokens).
// 2. In each thread that asks: mif_set_server, then mif_connect. Session, caches and last error
//    are the thread's own (session.h).
// 3. Questions (queries.h). A list owns its records; their texts, attributes and copies are views
//    that end with it (records.h). An empty list is an answer, unless mif_last_error() tells of a
//    failure.
// 4. err_print prints an error. An errobj_t lies in a ring of its thread and gives way to newer
//    ones (errobj.h). mif_close ends a connection.
//
// Times are seconds since 1970 UTC, with two values for ever; sizes of save sets count bytes, those
// of volumes kilobytes.
#pragma once

#include "client_start.h"
#include "gss_install.h"
#include "ks.h"
#include "mmdb.h"
#include "msg.h"
#include "resdb.h"
#include "rpc.h"
