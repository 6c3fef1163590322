// The learning-module framework's persistence layer over SQLite: one table
// of rows "(intcol1 INTEGER, appName TEXT NOT null, rsvdName TEXT, blob
// BLOB)". Rows are queued in memory (queueRow, any thread) and written to
// disk in one transaction per flush (LMDatabaseWriteCachedToDisk) and once
// more when the object is destroyed.
//
// What a flush guarantees: the rows it takes are written in one BEGIN
// IMMEDIATE ... COMMIT transaction (on a WAL journal for a file), so a
// crash, a full disk or a failed COMMIT (rolled back, logged) loses that
// flush's rows and never leaves a half-written flush or a corrupt file.
// Rows queued while a flush runs are written by that flush or the next one.
// Every row taken is consumed: a row whose write fails (a constraint, an I/O
// error) is logged and not retried. When BEGIN fails, the flush rolls back
// and writes its rows one by one, each in its own implicit transaction.
// A flush that throws (out of memory) leaves no prepared statement and no
// open transaction; the rows it had taken are dropped. Rows queued while
// the destructor's final flush runs are reported and dropped.
//
// The owner's own queries on connection(): a transaction the owner leaves
// open makes the next flush's BEGIN fail; the flush then rolls the owner's
// transaction back (its changes are lost), writes its rows one by one and
// logs the failed BEGIN, COMMIT and second ROLLBACK. Commit first.
//
// Threads: queueRow may be called from any thread at any time; the cache is
// guarded by mCacheMutex, which is never held during SQLite calls (a flush
// takes the waiting rows out under it, writes them, and looks again until it
// finds the cache empty). Everything else (init, flush, close, destruction,
// connection()) must come from one owner, one call at a time: the
// connection and statements have no lock.
#pragma once

#include <sqlite3.h>

#include <cstddef>
#include <list>
#include <memory>
#include <mutex>
#include <string>

#include "db/AppState.h"
#include "db/LMDBDataRowKey.h"

template <typename Row>
class LMDatabase;

template <>
class LMDatabase<AppState> {
 public:
  // The database is `dbDir` followed directly by `dbFile` (`dbDir` carries
  // its own trailing slash); an empty `dbFile` means an in-memory database.
  LMDatabase(std::string tableName, std::string dbDir, std::string dbFile);
  // Flushes, closes, and reports (then drops) rows queued after the flush.
  ~LMDatabase();

  LMDatabase(const LMDatabase&) = delete;
  LMDatabase& operator=(const LMDatabase&) = delete;

  // Opens the database and creates the table. 0 or -1.
  int LMDatabaseInit();
  int openLMdb();
  // Closes the connection (mDb keeps its stale value). 0 or -1.
  int closeLMdb();
  // Writes and empties the row cache in one transaction. 0, or -1 when the
  // statements could not be prepared or finalized.
  int LMDatabaseWriteCachedToDisk();
  int writeCachedDRToDisk();

  // Queues `row` for the next flush; the database owns it from now on. Any
  // thread.
  void queueRow(std::unique_ptr<AppState> row);

  // Appends "WHERE (names) = (values) " for the set fields of `key` to
  // `query` (nothing when none is set). Text is copied UNESCAPED, quotes
  // included: never give it untrusted text.
  void build_query_for_where_clause(LMDBDataRowKey& key, std::string& query);

  // Copies min(dstSize, srcSize) bytes and returns that count.
  static size_t LMDB_memscpy(void* dst, size_t dstSize, const void* src, size_t srcSize);

  // Rows waiting for a flush. Any thread.
  size_t cachedRows();

  // The connection, for the owner's own queries (e.g. a SELECT with a
  // clause from build_query_for_where_clause); null before openLMdb. Same
  // single-owner rule as the flush.
  sqlite3* connection() const { return mDb; }

 private:
  std::string databaseName() const;
  int createLMdbTables();
  // Moves the cached rows, oldest first, to the end of `written` and points
  // `first` at the first of them; false when the cache is empty.
  bool takeRows(std::list<AppState*>& written, std::list<AppState*>::iterator* first);
  void writeRow(AppState& row, sqlite3_stmt* insert, sqlite3_stmt* update);
  void bindRow(sqlite3_stmt* statement, AppState& row);
  // Prepares `sql` into `statement`; false (logged) when SQLite refuses it.
  bool prepareOrLog(const std::string& sql, sqlite3_stmt** statement);
  // A flush's handler: finalizes the statements, rolls back an open
  // transaction and frees the rows taken. Never throws.
  void abandonFlush(sqlite3_stmt* insert, sqlite3_stmt* update, std::list<AppState*>& written);
  static void freeRows(std::list<AppState*>& rows);
  void logStepError(int code);
  void logExecError();
  void execOrLog(const char* sql);
  // Runs a transaction statement; when SQLite refuses it, logs the error and
  // rolls back whatever transaction is open.
  void execOrRollBack(const char* sql);
  // Finalizes a flush's two statements; -1 (logged) when either reports an
  // error from its last step.
  int finalizeStatements(sqlite3_stmt* insert, sqlite3_stmt* update);

  std::list<AppState*> mRowCache;  // guarded by mCacheMutex; owned rows
  std::mutex mCacheMutex;
  std::string mTableName;
  sqlite3* mDb = nullptr;
  std::string mDbDir;
  std::string mDbFile;
};
