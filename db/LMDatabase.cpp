#include "db/LMDatabase.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <utility>

#include "platform/Log.h"

namespace {

constexpr const char* kTag = "LMDB";
constexpr int32_t kIntNotSet = 2147483647;
constexpr int kBlobSize = 4;

}  // namespace

LMDatabase<AppState>::LMDatabase(std::string tableName, std::string dbDir, std::string dbFile)
    : mTableName(std::move(tableName)), mDbDir(std::move(dbDir)), mDbFile(std::move(dbFile)) {}

// Nothing here is caught: an exception (a lock that cannot be taken) ends
// the process rather than leaving rows and a connection behind unnoticed.
LMDatabase<AppState>::~LMDatabase() {
  writeCachedDRToDisk();
  closeLMdb();
  std::string().swap(mDbFile);
  std::string().swap(mDbDir);
  size_t left = cachedRows();
  if (left != 0) {
    GORV_LOG(kTag, "~LMDBDataTable", "ERROR:Dbt=%s blstSz=%d, clstSz=%d\n", mTableName.c_str(), 0,
             static_cast<int>(left));
  }
  std::lock_guard<std::mutex> lock(mCacheMutex);
  freeRows(mRowCache);
}

std::string LMDatabase<AppState>::databaseName() const {
  return mDbFile.empty() ? ":memory:" : mDbDir + mDbFile;
}

int LMDatabase<AppState>::LMDatabaseInit() { return openLMdb(); }

int LMDatabase<AppState>::openLMdb() {
  std::string name = databaseName();
  int rc = sqlite3_open_v2(name.c_str(), &mDb, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
  if (rc != 0) {
    GORV_LOG(kTag, "openLMdb", "ERROR:Db=%s sql open failed, err=%d\n", name.c_str(), rc);
    closeLMdb();
    // The handle SQLite returned with the error is freed now; left stale, the
    // destructor's flush and close would use the freed connection.
    mDb = nullptr;
    return -1;
  }
  // WAL keeps a flush atomic and the file whole across crashes; an
  // in-memory database has no journal to choose.
  if (!mDbFile.empty() &&
      sqlite3_exec(mDb, "PRAGMA journal_mode=WAL", nullptr, nullptr, nullptr) != 0) {
    GORV_LOG_SHORT("openLMdb", "sql:ERROR:Dbt=%s info=%s\n", name.c_str(), sqlite3_errmsg(mDb));
  }
  return createLMdbTables();
}

int LMDatabase<AppState>::createLMdbTables() {
  if (mDb == nullptr) return 0;
  std::string sql;
  try {
    sql = "CREATE TABLE IF NOT EXISTS " + mTableName +
          "(intcol1 INTEGER, appName TEXT NOT null, rsvdName TEXT, blob BLOB)";
  } catch (const std::exception& e) {
    GORV_LOG(kTag, "createLMdbTables", "Caught exception: %s in %s", e.what(), "createLMdbTables");
    return 0;
  } catch (...) {
    GORV_LOG(kTag, "createLMdbTables", "Caught Exception in %s", "createLMdbTables");
    return 0;
  }
  if (sqlite3_exec(mDb, sql.c_str(), nullptr, nullptr, nullptr) != 0) {
    GORV_LOG_SHORT("createLMdbTables", "ERROR:Dbt=%s info=%s\n", mTableName.c_str(),
                   sqlite3_errmsg(mDb));
    return -1;
  }
  return 0;
}

int LMDatabase<AppState>::closeLMdb() {
  if (mDb == nullptr) return 0;
  std::string name = databaseName();
  int rc = sqlite3_close(mDb);
  if (rc != 0) {
    GORV_LOG(kTag, "closeLMdb", "ERROR:Db=%s sql close failed, err=%d\n", name.c_str(), rc);
    return -1;
  }
  return 0;
}

int LMDatabase<AppState>::LMDatabaseWriteCachedToDisk() {
  return writeCachedDRToDisk() != 0 ? -1 : 0;
}

void LMDatabase<AppState>::execOrLog(const char* sql) {
  if (sqlite3_exec(mDb, sql, nullptr, nullptr, nullptr) != 0) logExecError();
}

void LMDatabase<AppState>::execOrRollBack(const char* sql) {
  if (sqlite3_exec(mDb, sql, nullptr, nullptr, nullptr) != 0) {
    logExecError();
    execOrLog("ROLLBACK TRANSACTION;");
  }
}

int LMDatabase<AppState>::finalizeStatements(sqlite3_stmt* insert, sqlite3_stmt* update) {
  int result = 0;
  for (sqlite3_stmt* statement : {insert, update}) {
    int rc = sqlite3_finalize(statement);
    if (rc != 0) {
      logStepError(rc);
      result = -1;
    }
  }
  return result;
}

void LMDatabase<AppState>::logExecError() {
  GORV_LOG_SHORT("writeCachedDRToDisk", "sql:ERROR:Dbt=%s info=%s\n", mTableName.c_str(),
                 sqlite3_errmsg(mDb));
}

void LMDatabase<AppState>::logStepError(int code) {
  GORV_LOG_SHORT("writeCachedDRToDisk", "sql:ERROR:Dbt=%s info=%d\n", mTableName.c_str(), code);
}

int LMDatabase<AppState>::writeCachedDRToDisk() {
  if (mDb == nullptr) return 0;
  // Declared outside the handler, which must not leave a statement, an open
  // transaction or a taken row behind.
  sqlite3_stmt* insert = nullptr;
  sqlite3_stmt* update = nullptr;
  std::list<AppState*> written;
  try {
    // Both texts first: nothing below the first prepare builds a string.
    std::string insertSql =
        "INSERT INTO " + mTableName + "(intcol1, appName, rsvdName, blob) VALUES (?,?,?,?)";
    std::string updateSql =
        "UPDATE " + mTableName + " " +
        "SET (intcol1, appName, rsvdName, blob) = (?,?,?,?) WHERE (rowid) = (?)";
    if (!prepareOrLog(insertSql, &insert) || !prepareOrLog(updateSql, &update)) {
      sqlite3_finalize(insert);  // or the connection could never close
      return -1;
    }
    execOrRollBack("BEGIN IMMEDIATE TRANSACTION;");

    // Rows are bound without copies, so every row taken stays alive until
    // all of them have been stepped.
    for (auto next = written.end(); takeRows(written, &next);) {
      for (; next != written.end(); ++next) writeRow(**next, insert, update);
    }
    freeRows(written);

    execOrRollBack("COMMIT TRANSACTION;");
    return finalizeStatements(insert, update);
  } catch (const std::exception& e) {
    abandonFlush(insert, update, written);
    GORV_LOG(kTag, "writeCachedDRToDisk", "Caught exception: %s in %s", e.what(),
             "writeCachedDRToDisk");
  } catch (...) {
    abandonFlush(insert, update, written);
    GORV_LOG(kTag, "writeCachedDRToDisk", "Caught Exception in %s", "writeCachedDRToDisk");
  }
  return 0;
}

bool LMDatabase<AppState>::prepareOrLog(const std::string& sql, sqlite3_stmt** statement) {
  if (sqlite3_prepare_v2(mDb, sql.c_str(), static_cast<int>(sql.size()), statement, nullptr) == 0) {
    return true;
  }
  GORV_LOG_SHORT("writeCachedDRToDisk", "ERROR:Dbt=%s info=%s\n", mTableName.c_str(),
                 sqlite3_errmsg(mDb));
  return false;
}

void LMDatabase<AppState>::abandonFlush(sqlite3_stmt* insert, sqlite3_stmt* update,
                                        std::list<AppState*>& written) {
  sqlite3_finalize(insert);
  sqlite3_finalize(update);
  if (sqlite3_get_autocommit(mDb) == 0) {
    sqlite3_exec(mDb, "ROLLBACK TRANSACTION;", nullptr, nullptr, nullptr);
  }
  freeRows(written);
}

void LMDatabase<AppState>::freeRows(std::list<AppState*>& rows) {
  for (AppState* row : rows) delete row;
  rows.clear();
}

bool LMDatabase<AppState>::takeRows(std::list<AppState*>& written,
                                    std::list<AppState*>::iterator* first) {
  std::lock_guard<std::mutex> lock(mCacheMutex);
  if (mRowCache.empty()) return false;
  // Moves the list nodes themselves: nothing is allocated, nothing can be
  // lost, and the lock is held for a moment however many rows wait.
  *first = mRowCache.begin();
  written.splice(written.end(), mRowCache);
  return true;
}

void LMDatabase<AppState>::writeRow(AppState& row, sqlite3_stmt* insert, sqlite3_stmt* update) {
  sqlite3_stmt* statement = row.rowid != 0 ? update : insert;
  bindRow(statement, row);
  int rc = sqlite3_step(statement);
  if (rc != SQLITE_DONE) logStepError(rc);
  // Bindings are not cleared: a skipped parameter keeps the value this
  // statement was last bound with.
  rc = sqlite3_reset(statement);
  if (rc != 0) logStepError(rc);
}

void LMDatabase<AppState>::bindRow(sqlite3_stmt* statement, AppState& row) {
  auto check = [this](int rc) {
    if (rc != 0) logStepError(rc);
  };
  if (row.intcol1 != kIntNotSet) check(sqlite3_bind_int(statement, 1, row.intcol1));
  if (!row.appName.empty()) {
    check(sqlite3_bind_text(statement, 2, row.appName.c_str(), static_cast<int>(row.appName.size()),
                            SQLITE_STATIC));
  }
  if (!row.rsvdName.empty()) {
    check(sqlite3_bind_text(statement, 3, row.rsvdName.c_str(),
                            static_cast<int>(row.rsvdName.size()), SQLITE_STATIC));
  }
  check(sqlite3_bind_blob(statement, 4, row.blob, kBlobSize, SQLITE_STATIC));
  // Only the low 32 bits of the row id reach SQLite, as the table's
  // writers have always bound it.
  if (row.rowid != 0) {
    check(sqlite3_bind_int(statement, 5, static_cast<int32_t>(static_cast<uint32_t>(row.rowid))));
  }
}

void LMDatabase<AppState>::queueRow(std::unique_ptr<AppState> row) {
  std::lock_guard<std::mutex> lock(mCacheMutex);
  // The list takes ownership only once push_back has succeeded.
  mRowCache.push_back(row.get());  // cppcheck-suppress danglingLifetime
  static_cast<void>(row.release());
}

size_t LMDatabase<AppState>::cachedRows() {
  std::lock_guard<std::mutex> lock(mCacheMutex);
  return mRowCache.size();
}

void LMDatabase<AppState>::build_query_for_where_clause(LMDBDataRowKey& key, std::string& query) {
  try {
    bool hasApp = !key.appName.empty();
    bool hasRsvd = !key.rsvdName.empty();
    bool hasInt = key.intcol1 != kIntNotSet;
    if (!hasApp && !hasRsvd && !hasInt) return;
    const char* separator = "";
    query += "WHERE (";
    for (auto [set, name] :
         {std::pair{hasApp, "appName"}, {hasRsvd, "rsvdName"}, {hasInt, "intcol1"}}) {
      if (!set) continue;
      query += separator;
      query += name;
      separator = ",";
    }
    query += ") = (";
    separator = "";
    if (hasApp) {
      query += "'" + key.appName + "'";
      separator = ",";
    }
    if (hasRsvd) {
      query += separator;
      query += "'" + key.rsvdName + "'";
      separator = ",";
    }
    if (hasInt) {
      query += separator;
      query += std::to_string(key.intcol1);
    }
    query += ") ";
  } catch (const std::exception& e) {
    GORV_LOG(kTag, "build_query_for_where_clause", "Caught exception: %s", e.what());
  } catch (...) {
    GORV_LOG(kTag, "build_query_for_where_clause", "Error in std::string operations");
  }
}

size_t LMDatabase<AppState>::LMDB_memscpy(void* dst, size_t dstSize, const void* src,
                                          size_t srcSize) {
  size_t count = std::min(dstSize, srcSize);
  std::memcpy(dst, src, count);
  return count;
}
