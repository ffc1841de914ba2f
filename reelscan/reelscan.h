// The command: settings, request and the reports that serve it.
#pragma once

#include "command.h"
#include "field_catalogue.h"
#include "history_report.h"
#include "inventory.h"
#include "options.h"
#include "request.h"
#include "run_report.h"
#include "settings.h"
#include "summary_report.h"
