// The application-state table's flush against the best a hand-written loop
// on the same SQLite does (one prepared statement, one transaction): the
// anchor the flush is measured by.
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "db/LMDatabase.h"

namespace {

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

std::vector<std::string> Names(int64_t rows) {
  std::vector<std::string> names;
  for (int64_t i = 0; i < rows; ++i) names.push_back("com.example.app" + std::to_string(i));
  return names;
}

void SetRate(benchmark::State& state, int64_t rows) {
  state.counters["rows_per_second"] =
      benchmark::Counter(static_cast<double>(rows), benchmark::Counter::kIsIterationInvariantRate);
}

// Args: rows per flush, 1 for a WAL file (0: ":memory:").
void BM_Flush(benchmark::State& state) {
  TempDir dir;
  LMDatabase<AppState> db("apps", dir.path(), state.range(1) ? "apps.db" : "");
  if (db.LMDatabaseInit() != 0) state.SkipWithError("cannot open the table");
  std::vector<std::string> names = Names(state.range(0));
  for (auto _ : state) {
    // Queuing is the producers' work, done whenever they have a row; the
    // flush is what is measured.
    state.PauseTiming();
    for (size_t i = 0; i < names.size(); ++i) {
      auto row = std::make_unique<AppState>();
      row->intcol1 = static_cast<int32_t>(i);
      row->appName = names[i];
      db.queueRow(std::move(row));
    }
    state.ResumeTiming();
    db.LMDatabaseWriteCachedToDisk();
  }
  SetRate(state, state.range(0));
}
BENCHMARK(BM_Flush)
    ->ArgNames({"rows", "wal"})
    ->ArgsProduct({{1, 100, 10000}, {0, 1}})
    ->Unit(benchmark::kMicrosecond);

void Exec(sqlite3* db, const char* sql) { sqlite3_exec(db, sql, nullptr, nullptr, nullptr); }

void BM_RawSqliteInsert(benchmark::State& state) {
  TempDir dir;
  std::string name = state.range(1) ? dir.path() + "raw.db" : ":memory:";
  sqlite3* db = nullptr;
  sqlite3_open_v2(name.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
  if (state.range(1)) Exec(db, "PRAGMA journal_mode=WAL");
  Exec(db, "CREATE TABLE apps(intcol1 INTEGER, appName TEXT NOT null, rsvdName TEXT, blob BLOB)");
  sqlite3_stmt* insert = nullptr;
  sqlite3_prepare_v2(db, "INSERT INTO apps(intcol1, appName, rsvdName, blob) VALUES (?,?,?,?)", -1,
                     &insert, nullptr);
  std::vector<std::string> names = Names(state.range(0));
  const unsigned char blob[4] = {};
  for (auto _ : state) {
    Exec(db, "BEGIN IMMEDIATE TRANSACTION;");
    for (size_t i = 0; i < names.size(); ++i) {
      sqlite3_bind_int(insert, 1, static_cast<int>(i));
      sqlite3_bind_text(insert, 2, names[i].c_str(), static_cast<int>(names[i].size()),
                        SQLITE_STATIC);
      sqlite3_bind_blob(insert, 4, blob, 4, SQLITE_STATIC);
      sqlite3_step(insert);
      sqlite3_reset(insert);
    }
    Exec(db, "COMMIT TRANSACTION;");
  }
  sqlite3_finalize(insert);
  sqlite3_close(db);
  SetRate(state, state.range(0));
}
BENCHMARK(BM_RawSqliteInsert)
    ->ArgNames({"rows", "wal"})
    ->ArgsProduct({{1, 100, 10000}, {0, 1}})
    ->Unit(benchmark::kMicrosecond);

}  // namespace
