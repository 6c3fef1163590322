// How many rows the application-state table must hold after each flush, from
// the rows queued before it. A flush writes its rows with one insert and one
// update statement prepared for it; a parameter that a row leaves unset keeps
// what that statement last bound (NULL at first). An inserted row therefore
// lands unless its appName and those of all the inserts before it in the
// same flush are empty (NOT NULL); updates never change the count.
#pragma once

#include <cstdint>
#include <vector>

#include "db/AppState.h"

class TableModel {
 public:
  void Queue(const AppState& row);
  // The queued rows were flushed.
  void Flush();
  int64_t rows() const { return mRows; }

 private:
  struct Pending {
    bool insert;
    bool hasAppName;
  };
  std::vector<Pending> mPending;
  int64_t mRows = 0;
};
