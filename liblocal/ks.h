// The runtime foundation, gathered.
#pragma once

#include "atexit_list.h"
#include "attrlist.h"
#include "dates.h"
#include "debug_words.h"
#include "hosts.h"
#include "ks_clock.h"
#include "ks_errors.h"
#include "ks_list.h"
#include "ks_mutex.h"
#include "ks_object.h"
#include "ks_sockets.h"
#include "ks_threads.h"
#include "ks_wrappers.h"
#include "progname.h"
#include "thread_queue.h"
