// Where rows go.
#pragma once

#include "records.h"

namespace qvr {

// A report's output, as those who decide on rows see it. Main thread.
class row_sink {
 public:
  virtual ~row_sink() = default;
  // Prints the header; called before the first row, and as often as one likes.
  virtual void header() = 0;
  // Anything printed yet, the header counted, whether or not the form has one.
  virtual bool printed() const = 0;
  // Prints a row. With `search` a row of volume and save set takes the first fragment of the save
  // set on that volume, and is not printed when there is none.
  virtual void row(const vol_t *vol, ss_t *ss, const clone_t *clone, const frag_t *frag,
                   bool search) = 0;
  // True for a linear report, which prints save sets in place of rows.
  virtual bool linear() const = 0;
  virtual void save_set(ss_t &ss, const vol_t *vol) = 0;
};

}  // namespace qvr
