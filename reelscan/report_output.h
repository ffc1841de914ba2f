// A report's rows on their way to the writer.
#pragma once

#include "cells.h"
#include "long_listing.h"
#include "request.h"
#include "row_sink.h"
#include "rpt.h"
#include "settings.h"
#include "writer.h"

namespace qvr {

// The output of one run: sink, writer, cells and, for a linear report, its record. It must outlive
// the records that it prints (see cell_renderer). Main thread.
class report_output : public row_sink {
 public:
  // `columns` are those of a tabular report; they may change until the header is printed.
  report_output(const settings_t &settings, bool old_forever, report_columns_t &columns);

  void header() override;
  bool printed() const override { return printed_; }
  void row(const vol_t *vol, ss_t *ss, const clone_t *clone, const frag_t *frag,
           bool search) override;
  bool linear() const override { return listing_.has_value(); }
  void save_set(ss_t &ss, const vol_t *vol) override;
  void trailer() { writer_->rpt_print_trailer(); }

 private:
  cell_renderer cells_;
  std::optional<long_listing> listing_;  // of a linear report
  std::unique_ptr<rpt_writer> writer_;
  bool printed_ = false;
};

}  // namespace qvr
