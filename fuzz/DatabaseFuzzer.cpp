// Fuzzes the application-state table on an in-memory database: the input is
// decoded into rows of any content (new rows and updates, any row id, set and
// unset fields, text with quotes and NULs), flushes, and selection keys.
// After each flush the table holds exactly the rows TableModel expects and
// the cache is empty. A key's WHERE clause leaves the query untouched when
// no field is set; for a key whose text has no quote (nor NUL) the clause
// must compile as the whole tail of a SELECT and select the same rows as the
// equivalent query with bound parameters. Keys with quotes only must not
// crash: their text is copied unescaped by contract.
#include <android/log.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "db/LMDatabase.h"
#include "fuzz/TableModel.h"

namespace {

constexpr int kMaxSteps = 300;
constexpr int32_t kUnset = 2147483647;
const char* const kPrefix = "SELECT COUNT(*) FROM apps ";

[[noreturn]] void Fail(const std::string& what) {
  std::fprintf(stderr, "==gorv-fuzz== %s\n", what.c_str());
  std::abort();
}

// The table's own error lines are expected here (constraint failures).
void DiscardLogLine(const __android_logger_data* /*data*/, const char* /*message*/) {}

std::string DecodeText(FuzzedDataProvider& input) {
  if (input.ConsumeBool()) return "";
  if (input.ConsumeBool()) return input.PickValueInArray({"a.b", "x", "y", "com.example.game"});
  return input.ConsumeRandomLengthString(16);
}

int32_t DecodeInt(FuzzedDataProvider& input) {
  return input.ConsumeBool() ? kUnset : input.ConsumeIntegralInRange<int32_t>(-3, 3);
}

std::unique_ptr<AppState> DecodeRow(FuzzedDataProvider& input) {
  auto row = std::make_unique<AppState>();
  switch (input.ConsumeIntegralInRange(0, 3)) {
    case 0:
    case 1:
      row->rowid = 0;
      break;
    case 2:
      row->rowid = input.ConsumeIntegralInRange<int64_t>(1, 8);
      break;
    default:
      row->rowid = input.ConsumeIntegral<int64_t>();
      break;
  }
  row->intcol1 = input.ConsumeBool() ? DecodeInt(input) : input.ConsumeIntegral<int32_t>();
  row->appName = DecodeText(input);
  row->rsvdName = DecodeText(input);
  for (uint8_t& byte : row->blob) byte = input.ConsumeIntegral<uint8_t>();
  return row;
}

int64_t Count(sqlite3* db, const std::string& sql, const LMDBDataRowKey* bound) {
  sqlite3_stmt* statement = nullptr;
  const char* tail = nullptr;
  int rc = sqlite3_prepare_v2(db, sql.c_str(), static_cast<int>(sql.size()), &statement, &tail);
  if (rc != SQLITE_OK || statement == nullptr) {
    Fail("does not compile: " + sql + " (" + sqlite3_errmsg(db) + ")");
  }
  if (tail != sql.c_str() + sql.size()) Fail("text left over after the statement: " + sql);
  if (bound != nullptr) {
    sqlite3_bind_text(statement, 1, bound->appName.data(), static_cast<int>(bound->appName.size()),
                      SQLITE_STATIC);
    sqlite3_bind_text(statement, 2, bound->rsvdName.data(),
                      static_cast<int>(bound->rsvdName.size()), SQLITE_STATIC);
    sqlite3_bind_int(statement, 3, bound->intcol1);
  }
  if (sqlite3_step(statement) != SQLITE_ROW) Fail("no result row: " + sql);
  int64_t count = sqlite3_column_int64(statement, 0);
  sqlite3_finalize(statement);
  return count;
}

// The rows a key selects, asked with bound parameters.
int64_t CountBound(sqlite3* db, const LMDBDataRowKey& key) {
  std::string sql = "SELECT COUNT(*) FROM apps WHERE 1";
  if (!key.appName.empty()) sql += " AND appName = ?1";
  if (!key.rsvdName.empty()) sql += " AND rsvdName = ?2";
  if (key.intcol1 != kUnset) sql += " AND intcol1 = ?3";
  return Count(db, sql, &key);
}

bool Quoted(const std::string& text) {
  return text.find('\'') != std::string::npos || text.find('\0') != std::string::npos;
}

void CheckClause(LMDatabase<AppState>& table, FuzzedDataProvider& input) {
  LMDBDataRowKey key;
  key.intcol1 = input.ConsumeBool() ? DecodeInt(input) : input.ConsumeIntegral<int32_t>();
  key.appName = DecodeText(input);
  key.rsvdName = DecodeText(input);
  std::string query = kPrefix;
  table.build_query_for_where_clause(key, query);
  if (query.compare(0, std::strlen(kPrefix), kPrefix) != 0) Fail("the query's start was changed");
  bool anySet = !key.appName.empty() || !key.rsvdName.empty() || key.intcol1 != kUnset;
  if (!anySet) {
    if (query != kPrefix) Fail("a key with no field set appended " + query);
    return;
  }
  if (Quoted(key.appName) || Quoted(key.rsvdName)) return;
  int64_t selected = Count(table.connection(), query, nullptr);
  if (selected != CountBound(table.connection(), key)) {
    Fail("the clause selects other rows than its key: " + query);
  }
}

void Flush(LMDatabase<AppState>& table, TableModel& model) {
  if (table.LMDatabaseWriteCachedToDisk() != 0) Fail("a flush failed");
  model.Flush();
  if (table.cachedRows() != 0) Fail("rows left in the cache after a flush");
  int64_t rows = Count(table.connection(), "SELECT COUNT(*) FROM apps", nullptr);
  if (rows != model.rows()) {
    Fail("the table holds " + std::to_string(rows) + " rows, expected " +
         std::to_string(model.rows()));
  }
}

void CheckCopy(FuzzedDataProvider& input) {
  unsigned char source[16] = {};
  unsigned char target[8] = {};
  size_t sourceSize = input.ConsumeIntegralInRange<size_t>(0, sizeof source);
  size_t targetSize = input.ConsumeIntegralInRange<size_t>(0, sizeof target);
  for (size_t i = 0; i < sourceSize; ++i) source[i] = static_cast<unsigned char>(i + 1);
  size_t copied = LMDatabase<AppState>::LMDB_memscpy(target, targetSize, source, sourceSize);
  size_t expected = sourceSize < targetSize ? sourceSize : targetSize;
  if (copied != expected || std::memcmp(target, source, expected) != 0) Fail("LMDB_memscpy");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  __android_log_set_logger(DiscardLogLine);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  LMDatabase<AppState> table("apps", "", "");
  if (table.LMDatabaseInit() != 0) Fail("an in-memory database could not be opened");
  TableModel model;
  for (int step = 0; step < kMaxSteps && input.remaining_bytes() > 0; ++step) {
    switch (input.ConsumeIntegralInRange(0, 5)) {
      case 0:
      case 1:
      case 2: {
        std::unique_ptr<AppState> row = DecodeRow(input);
        model.Queue(*row);
        table.queueRow(std::move(row));
        break;
      }
      case 3:
        Flush(table, model);
        break;
      case 4:
        CheckClause(table, input);
        break;
      default:
        CheckCopy(input);
        break;
    }
  }
  Flush(table, model);
  return 0;
}
