// The application-state table's flush against a hand-written loop on the
// same SQLite that owns its rows the same way (heap rows taken from a list,
// freed once all are stepped): the anchor the flush is measured by. Both run
// in the same iteration, one after the other, so that they share the
// machine's moods (a WAL file's speed moves by tens of percent between
// runs); the time reported is the flush's, and `flush_vs_raw` is the raw
// loop's time over the flush's (1.0: as fast as the hand-written loop).
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <chrono>
#include <filesystem>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "db/LMDatabase.h"

namespace {

using Clock = std::chrono::steady_clock;

// A temporary folder for database files, removed afterwards.
class TempDir {
 public:
  TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "gorv-flush-XXXXXX").string();
    if (mkdtemp(pattern.data()) != nullptr) mPath = pattern + "/";
  }
  ~TempDir() { std::filesystem::remove_all(mPath); }
  const std::string& path() const { return mPath; }

 private:
  std::string mPath;
};

void Exec(sqlite3* db, const char* sql) { sqlite3_exec(db, sql, nullptr, nullptr, nullptr); }

// The hand-written loop: one prepared insert, one transaction, rows taken
// from the front of a list, bound without copies and freed at the end.
class RawTable {
 public:
  RawTable(const std::string& name, bool wal) {
    sqlite3_open_v2(name.c_str(), &mDb, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    if (wal) Exec(mDb, "PRAGMA journal_mode=WAL");
    Exec(mDb,
         "CREATE TABLE apps(intcol1 INTEGER, appName TEXT NOT null, rsvdName TEXT, blob BLOB)");
    sqlite3_prepare_v2(mDb, "INSERT INTO apps(intcol1, appName, rsvdName, blob) VALUES (?,?,?,?)",
                       -1, &mInsert, nullptr);
  }
  ~RawTable() {
    sqlite3_finalize(mInsert);
    sqlite3_close(mDb);
  }
  RawTable(const RawTable&) = delete;
  RawTable& operator=(const RawTable&) = delete;

  void Write(std::list<AppState*>& queued) {
    std::list<AppState*> written;
    Exec(mDb, "BEGIN IMMEDIATE TRANSACTION;");
    while (!queued.empty()) {
      written.splice(written.end(), queued, queued.begin());
      AppState& row = *written.back();
      sqlite3_bind_int(mInsert, 1, row.intcol1);
      sqlite3_bind_text(mInsert, 2, row.appName.c_str(), static_cast<int>(row.appName.size()),
                        SQLITE_STATIC);
      sqlite3_bind_blob(mInsert, 4, row.blob, 4, SQLITE_STATIC);
      sqlite3_step(mInsert);
      sqlite3_reset(mInsert);
    }
    for (AppState* row : written) delete row;
    Exec(mDb, "COMMIT TRANSACTION;");
  }

 private:
  sqlite3* mDb = nullptr;
  sqlite3_stmt* mInsert = nullptr;
};

std::unique_ptr<AppState> MakeRow(size_t i, const std::string& name) {
  auto row = std::make_unique<AppState>();
  row->intcol1 = static_cast<int32_t>(i);
  row->appName = name;
  return row;
}

double Seconds(Clock::duration d) { return std::chrono::duration<double>(d).count(); }

// Queues one row per name (not timed: the producers' work) and times a flush.
Clock::duration TimeFlush(LMDatabase<AppState>& db, const std::vector<std::string>& names) {
  for (size_t i = 0; i < names.size(); ++i) db.queueRow(MakeRow(i, names[i]));
  Clock::time_point start = Clock::now();
  db.LMDatabaseWriteCachedToDisk();
  return Clock::now() - start;
}

// The same rows, written by the hand-written loop.
Clock::duration TimeRaw(RawTable& raw, const std::vector<std::string>& names) {
  std::list<AppState*> queued;
  for (size_t i = 0; i < names.size(); ++i) queued.push_back(MakeRow(i, names[i]).release());
  Clock::time_point start = Clock::now();
  raw.Write(queued);
  return Clock::now() - start;
}

// Args: rows per flush, 1 for a WAL file (0: ":memory:"). Queuing is the
// producers' work, done whenever they have a row; it is not timed.
void BM_Flush(benchmark::State& state) {
  TempDir dir;
  bool wal = state.range(1) != 0;
  LMDatabase<AppState> db("apps", dir.path(), wal ? "apps.db" : "");
  if (db.LMDatabaseInit() != 0) state.SkipWithError("cannot open the table");
  RawTable raw(wal ? dir.path() + "raw.db" : ":memory:", wal);
  std::vector<std::string> names;
  for (int64_t i = 0; i < state.range(0); ++i) {
    names.push_back("com.example.app" + std::to_string(i));
  }
  double flushSeconds = 0.0;
  double rawSeconds = 0.0;
  bool flushFirst = true;
  for (auto _ : state) {
    Clock::duration flush{};
    Clock::duration hand{};
    // Turn about, so that neither side always finds the caches the other
    // left.
    if (flushFirst) {
      flush = TimeFlush(db, names);
      hand = TimeRaw(raw, names);
    } else {
      hand = TimeRaw(raw, names);
      flush = TimeFlush(db, names);
    }
    flushFirst = !flushFirst;
    flushSeconds += Seconds(flush);
    rawSeconds += Seconds(hand);
    state.SetIterationTime(Seconds(flush));
  }
  if (flushSeconds <= 0.0 || rawSeconds <= 0.0) return;
  double rows = static_cast<double>(names.size()) * static_cast<double>(state.iterations());
  state.counters["flush_rows_per_s"] = rows / flushSeconds;
  state.counters["raw_rows_per_s"] = rows / rawSeconds;
  state.counters["flush_vs_raw"] = rawSeconds / flushSeconds;
}
BENCHMARK(BM_Flush)
    ->ArgNames({"rows", "wal"})
    ->ArgsProduct({{1, 100, 10000}, {0, 1}})
    ->UseManualTime()
    ->Repetitions(5)
    ->ReportAggregatesOnly(true)
    ->Unit(benchmark::kMicrosecond);

}  // namespace
