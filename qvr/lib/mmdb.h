// The media database: everything that its users need, gathered.
#pragma once

#include "clone_attrs.h"
#include "clone_retention.h"
#include "keyed_lookups.h"
#include "ksui.h"
#include "mdb_ops.h"
#include "queries.h"
#include "records.h"
#include "session.h"
#include "ss_flags.h"
#include "ss_levels.h"
