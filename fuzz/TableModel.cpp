#include "fuzz/TableModel.h"

void TableModel::Queue(const AppState& row) {
  mPending.push_back(Pending{row.rowid == 0, !row.appName.empty()});
}

void TableModel::Flush() {
  bool appNameBound = false;  // on this flush's insert statement
  for (const Pending& row : mPending) {
    if (!row.insert) continue;
    appNameBound = appNameBound || row.hasAppName;
    if (appNameBound) ++mRows;
  }
  mPending.clear();
}
