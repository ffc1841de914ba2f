// The report writer, whole.
#pragma once

#include "columns.h"
#include "export_spec.h"
#include "fields.h"
#include "layout.h"
#include "rpt.h"
#include "rptout.h"
#include "writer.h"
#include "xml_report.h"
