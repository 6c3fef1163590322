// The application-state table on real SQLite files: names and paths, the
// statements a flush runs, insert and update, the bindings that stick, the
// where clauses, what the destructor reports; and the table under faults:
// write errors and a full disk injected through a VFS (as SQLite's own tests
// do), processes killed in the middle of flushes, and producers queuing
// while another thread flushes.
#include "db/LMDatabase.h"

#include <gtest/gtest.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): POSIX kill()
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/AllocationFault.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TempFolder.h"

namespace {

// The default VFS, except that its files fail their writes with gWriteFault
// while it is not SQLITE_OK, and the process is killed at the write
// gKillAtWrite counts down to: each kind of file gets a copy of its methods
// with the write replaced (one write function serves every kind).
std::atomic<int> gWriteFault{SQLITE_OK};
std::atomic<int> gKillAtWrite{0};
sqlite3_vfs* gRealVfs = nullptr;
int (*gRealWrite)(sqlite3_file*, const void*, int, sqlite3_int64) = nullptr;

int FaultWrite(sqlite3_file* file, const void* data, int size, sqlite3_int64 offset) {
  if (gKillAtWrite > 0 && --gKillAtWrite == 0) raise(SIGKILL);
  int fault = gWriteFault.load();
  return fault != SQLITE_OK ? fault : gRealWrite(file, data, size, offset);
}

int FaultOpen(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* outFlags) {
  static std::map<const sqlite3_io_methods*, sqlite3_io_methods> copies;  // opened on one thread
  int rc = gRealVfs->xOpen(gRealVfs, name, file, flags, outFlags);
  if (file->pMethods == nullptr) return rc;
  gRealWrite = file->pMethods->xWrite;
  sqlite3_io_methods& copy = copies.try_emplace(file->pMethods, *file->pMethods).first->second;
  copy.xWrite = FaultWrite;
  file->pMethods = &copy;
  return rc;
}

sqlite3_vfs* FaultVfs() {
  static sqlite3_vfs vfs = [] {
    gRealVfs = sqlite3_vfs_find(nullptr);
    sqlite3_vfs copy = *gRealVfs;
    copy.iVersion = 1;  // no syscall overrides
    copy.zName = "fault";
    copy.xOpen = FaultOpen;
    return copy;
  }();
  return &vfs;
}

std::unique_ptr<AppState> Row(int64_t rowid, int32_t intcol1, std::string appName,
                              std::string rsvdName = "") {
  return std::make_unique<AppState>(
      AppState{rowid, intcol1, std::move(appName), std::move(rsvdName), {0xAB}});
}

void QueueBatch(LMDatabase<AppState>& db, const std::string& batch, int rows) {
  for (int i = 0; i < rows; ++i) db.queueRow(Row(0, i, batch + "-" + std::to_string(i)));
}

// The rows `sql` returns, columns joined with "|", NULL as "NULL".
Lines Select(sqlite3* db, const std::string& sql) {
  Lines rows;
  sqlite3_stmt* statement = nullptr;
  EXPECT_EQ(sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr), SQLITE_OK) << sql;
  while (sqlite3_step(statement) == SQLITE_ROW) {
    std::string row;
    for (int column = 0; column < sqlite3_column_count(statement); ++column) {
      const unsigned char* text = sqlite3_column_text(statement, column);
      row += (column ? "|" : "") + std::string(text ? reinterpret_cast<const char*>(text) : "NULL");
    }
    rows.push_back(row);
  }
  sqlite3_finalize(statement);
  return rows;
}

// Opens `path` on its own connection and answers `sql`.
Lines Ask(const std::string& path, const std::string& sql) {
  sqlite3* db = nullptr;
  sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr);
  Lines rows = Select(db, sql);
  sqlite3_close(db);
  return rows;
}

// What a flush logs for an SQLite error, before the error's text.
const std::string kFlushError = "writeCachedDRToDisk() N: sql:ERROR:Dbt=apps info=";

constexpr const char* kAllRows =
    "SELECT rowid, intcol1, appName, rsvdName, length(blob) FROM apps ORDER BY rowid";

// The statements a connection runs, recorded from Record(db) on; it must
// outlive the connection.
struct StatementTrace {
  void Record(sqlite3* db) { sqlite3_trace_v2(db, SQLITE_TRACE_STMT, &OnStatement, this); }
  static int OnStatement(unsigned, void* self, void* statement, void*) {
    auto* trace = static_cast<StatementTrace*>(self);
    std::string sql = sqlite3_sql(static_cast<sqlite3_stmt*>(statement));
    trace->statements.push_back(sql);
    if (trace->onStatement) trace->onStatement(sql);
    return 0;
  }
  Lines statements;
  std::function<void(const std::string&)> onStatement;
};

class LMDatabaseTest : public ::testing::Test {
 protected:
  void TearDown() override {
    gWriteFault = SQLITE_OK;
    sqlite3_vfs_unregister(FaultVfs());
  }
  // The table on apps.db, opened.
  std::unique_ptr<LMDatabase<AppState>> Open() {
    auto db = std::make_unique<LMDatabase<AppState>>("apps", dir, "apps.db");
    EXPECT_EQ(db->LMDatabaseInit(), 0);
    return db;
  }
  TempFolder folder;
  const std::string dir = folder.path() + "/";
  const std::string path = dir + "apps.db";
};

TEST_F(LMDatabaseTest, AFlushRunsOneTransactionWithTheTableStatements) {
  StatementTrace trace;
  auto db = Open();
  trace.Record(db->connection());
  EXPECT_EQ(db->LMDatabaseWriteCachedToDisk(), 0);  // empty: still a transaction
  EXPECT_EQ(trace.statements, (Lines{"BEGIN IMMEDIATE TRANSACTION;", "COMMIT TRANSACTION;"}));

  trace.statements.clear();
  db->queueRow(Row(0, 1, "a.game"));
  db->queueRow(Row(1, 2, "a.game", "renamed"));
  EXPECT_EQ(db->writeCachedDRToDisk(), 0);
  EXPECT_EQ(
      trace.statements,
      (Lines{"BEGIN IMMEDIATE TRANSACTION;",
             "INSERT INTO apps(intcol1, appName, rsvdName, blob) VALUES (?,?,?,?)",
             "UPDATE apps SET (intcol1, appName, rsvdName, blob) = (?,?,?,?) WHERE (rowid) = (?)",
             "COMMIT TRANSACTION;"}));
  EXPECT_EQ(Select(db->connection(), kAllRows), Lines{"1|2|a.game|renamed|4"});
  EXPECT_EQ(db->cachedRows(), 0u);

  // An open transaction of the owner is rolled back by the next flush.
  sqlite3_exec(db->connection(), "BEGIN; INSERT INTO apps(appName) VALUES ('owner');", nullptr,
               nullptr, nullptr);
  db->queueRow(Row(0, 1, "flushed"));
  LogCapture logs;
  EXPECT_EQ(db->writeCachedDRToDisk(), 0);
  EXPECT_EQ(logs.Messages(),
            (Lines{kFlushError + "cannot start a transaction within a transaction\n",
                   kFlushError + "cannot commit - no transaction is active\n",
                   kFlushError + "cannot rollback - no transaction is active\n"}));
  EXPECT_EQ(Select(db->connection(), kAllRows),
            (Lines{"1|2|a.game|renamed|4", "2|1|flushed|NULL|4"}));
}

TEST_F(LMDatabaseTest, RowIdsAreNarrowedAndSkippedParametersKeepTheirLastBinding) {
  auto db = Open();
  LogCapture logs;
  // On a fresh insert statement an empty name is NULL and violates NOT
  // NULL (logged for the step and for the reset), an unset intcol1 stores
  // NULL; the flush goes on. Later rows repeat what they leave unset.
  db->queueRow(Row(0, 2147483647, ""));
  db->queueRow(Row(0, 2147483647, "first"));
  db->queueRow(Row(0, 5, ""));
  db->queueRow(Row(0, 6, "second"));
  db->queueRow(Row(0, 2147483647, ""));
  ASSERT_EQ(db->writeCachedDRToDisk(), 0);
  EXPECT_EQ(logs.Messages(), (Lines{kFlushError + "19\n", kFlushError + "19\n"}));
  EXPECT_EQ(Select(db->connection(), kAllRows), (Lines{"1|NULL|first|NULL|4", "2|5|first|NULL|4",
                                                       "3|6|second|NULL|4", "4|6|second|NULL|4"}));

  // The statements are prepared anew for each flush: the bindings start as
  // NULL again. A row id above 32 bits reaches SQLite as its low half.
  db->queueRow(Row((int64_t{1} << 32) + 2, 9, "updated"));
  db->queueRow(Row(3, 2147483647, "", "kept"));  // intcol1 and appName as the update before
  ASSERT_EQ(db->writeCachedDRToDisk(), 0);
  EXPECT_EQ(Select(db->connection(), kAllRows), (Lines{"1|NULL|first|NULL|4", "2|9|updated|NULL|4",
                                                       "3|9|updated|kept|4", "4|6|second|NULL|4"}));
}

TEST_F(LMDatabaseTest, WhereClauses) {
  LMDatabase<AppState> db("apps", dir, "");
  std::pair<LMDBDataRowKey, const char*> clauses[] = {
      {{3, "a.b", ""}, "WHERE (appName,intcol1) = ('a.b',3) "},
      {{2147483647, "x", "y"}, "WHERE (appName,rsvdName) = ('x','y') "},
      {{0, "", ""}, "WHERE (intcol1) = (0) "},
      {{-4, "", "r"}, "WHERE (rsvdName,intcol1) = ('r',-4) "},
      {{2147483647, "", ""}, ""},
      {{2147483647, "it's", ""}, "WHERE (appName) = ('it's') "}};
  for (auto& [key, clause] : clauses) {
    std::string query = "SELECT * FROM apps ";
    db.build_query_for_where_clause(key, query);
    EXPECT_EQ(query, std::string("SELECT * FROM apps ") + clause);
  }
  char dst[4] = {};
  const char src[10] = "abcdefghi";
  EXPECT_EQ(LMDatabase<AppState>::LMDB_memscpy(dst, 4, src, 10), 4u);
  EXPECT_EQ(std::string(dst, 4), "abcd");
  EXPECT_EQ(LMDatabase<AppState>::LMDB_memscpy(dst, 4, "z", 1), 1u);
  EXPECT_EQ(std::string(dst, 4), "zbcd");
}

TEST_F(LMDatabaseTest, DestructionFlushesAndReportsRowsQueuedDuringThatFlush) {
  LogCapture logs;
  StatementTrace trace;
  auto* db = Open().release();
  db->queueRow(Row(0, 1, "queued.before"));
  trace.Record(db->connection());
  // A producer that queues once the final flush has seen its cache empty.
  trace.onStatement = [db](const std::string& sql) {
    if (sql == "COMMIT TRANSACTION;") db->queueRow(Row(0, 2, "too.late"));
  };
  delete db;
  EXPECT_EQ(logs.Messages(),
            Lines{"LMDB: ~LMDBDataTable() N: ERROR:Dbt=apps blstSz=0, clstSz=1\n"});
  EXPECT_EQ(Ask(path, kAllRows), Lines{"1|1|queued.before|NULL|4"});
}

TEST_F(LMDatabaseTest, NamesPathsAndFilesThatCannotBeUsed) {
  LogCapture logs;
  {
    LMDatabase<AppState> memory("apps", dir, "");
    ASSERT_EQ(memory.LMDatabaseInit(), 0);
    EXPECT_EQ(Select(memory.connection(), "PRAGMA journal_mode"), Lines{"memory"});
  }
  EXPECT_TRUE(std::filesystem::is_empty(dir));
  LMDatabase<AppState> unjoined("apps", dir + "sub", "y.db");  // no separator is added
  ASSERT_EQ(unjoined.LMDatabaseInit(), 0);
  EXPECT_TRUE(std::filesystem::exists(dir + "suby.db"));

  LMDatabase<AppState> unopenable("apps", dir + "missing/", "apps.db");
  EXPECT_EQ(unopenable.LMDatabaseInit(), -1);
  folder.Write("text.db", std::string(4096, 'x'));
  LMDatabase<AppState> notADatabase("apps", dir, "text.db");
  EXPECT_EQ(notADatabase.LMDatabaseInit(), -1);
  EXPECT_EQ(
      logs.Messages(),
      (Lines{"LMDB: openLMdb() N: ERROR:Db=" + dir + "missing/apps.db sql open failed, err=14\n",
             "openLMdb() N: sql:ERROR:Dbt=" + dir + "text.db info=file is not a database\n",
             "createLMdbTables() N: ERROR:Dbt=apps info=file is not a database\n"}));
}

TEST_F(LMDatabaseTest, AFailedWriteLosesTheFlushWholeAndTheNextOneLands) {
  ASSERT_EQ(sqlite3_vfs_register(FaultVfs(), 1), SQLITE_OK);
  for (auto [fault, text] : {std::pair{SQLITE_IOERR_WRITE, "disk I/O error"},
                             std::pair{SQLITE_FULL, "database or disk is full"}}) {
    std::filesystem::remove(path);
    auto db = Open();
    QueueBatch(*db, "before", 3);
    ASSERT_EQ(db->writeCachedDRToDisk(), 0);

    LogCapture logs;
    QueueBatch(*db, "failed", 5);
    gWriteFault = fault;
    db->writeCachedDRToDisk();
    gWriteFault = SQLITE_OK;
    // SQLite rolled the failed commit back itself.
    EXPECT_EQ(logs.Messages(),
              (Lines{kFlushError + text + "\n",
                     kFlushError + "cannot rollback - no transaction is active\n"}));
    EXPECT_EQ(db->cachedRows(), 0u);  // consumed, not retried

    QueueBatch(*db, "after", 4);
    ASSERT_EQ(db->writeCachedDRToDisk(), 0);
    EXPECT_EQ(Select(db->connection(), "PRAGMA integrity_check"), Lines{"ok"});
    // Every row but the failed flush's.
    EXPECT_EQ(Select(db->connection(), "SELECT count(*), sum(appName LIKE 'failed-%') FROM apps"),
              Lines{"7|0"});
  }
  EXPECT_EQ(Ask(path, "PRAGMA integrity_check"), Lines{"ok"});
}

// A child process flushes batches until it is killed in the middle of a
// write, at each write of its first flushes in turn.
TEST_F(LMDatabaseTest, KilledMidFlushTheFileStaysWholeAndHoldsWholeBatches) {
  constexpr int kBatch = 10;
  ASSERT_EQ(sqlite3_vfs_register(FaultVfs(), 1), SQLITE_OK);
  for (int kill = 1; kill <= 40; ++kill) {
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      LMDatabase<AppState> db("apps", dir, "apps.db");
      if (db.LMDatabaseInit() != 0) _exit(3);
      gKillAtWrite = kill;
      for (int batch = 0;; ++batch) {
        QueueBatch(db, std::to_string(kill) + "." + std::to_string(batch), kBatch);
        db.writeCachedDRToDisk();
      }
    }
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status)) << "kill " << kill;
    ASSERT_EQ(Ask(path, "PRAGMA integrity_check"), Lines{"ok"}) << "after kill " << kill;
    int rows = std::stoi(Ask(path, "SELECT count(*) FROM apps").at(0));
    EXPECT_EQ(rows % kBatch, 0) << "after kill " << kill;
  }
  EXPECT_GT(std::stoi(Ask(path, "SELECT count(*) FROM apps").at(0)), 0);
}

TEST_F(LMDatabaseTest, RowsQueuedWhileFlushingAreWrittenExactlyOnce) {
  constexpr int kProducers = 4;
  constexpr int kRows = 2500;
  auto db = Open();
  std::atomic<int> running{kProducers};
  std::vector<std::thread> producers;
  producers.reserve(kProducers);
  for (int p = 0; p < kProducers; ++p) {
    producers.emplace_back([&db, &running, p] {
      QueueBatch(*db, "producer" + std::to_string(p), kRows);
      --running;
    });
  }
  std::thread flusher([&db, &running] {
    while (running > 0) db->writeCachedDRToDisk();
  });
  for (std::thread& producer : producers) producer.join();
  flusher.join();
  ASSERT_EQ(db->writeCachedDRToDisk(), 0);
  const std::string rows = std::to_string(kProducers * kRows);
  EXPECT_EQ(Select(db->connection(), "SELECT count(*), count(DISTINCT appName) FROM apps"),
            Lines{rows + "|" + rows});
}

TEST_F(LMDatabaseTest, AFlushOutOfMemoryLeavesNoStatementAndNoTransaction) {
  auto db = Open();
  db->queueRow(Row(0, 1, "kept"));
  LogCapture logs;
  // Every allocation of a flush in turn throws, until a flush makes fewer.
  long n = 1;
  for (;; ++n) {
    logs.Clear();
    ArmAllocationFailure(n, Allocations::kAll);
    EXPECT_EQ(db->writeCachedDRToDisk(), 0);
    bool failed = CountedAllocations() >= n;
    CountAllocations(false);
    if (!failed) break;
    EXPECT_EQ(logs.Messages(), Lines{"LMDB: writeCachedDRToDisk() N: Caught exception: "
                                     "std::bad_alloc in writeCachedDRToDisk"});
    EXPECT_EQ(sqlite3_next_stmt(db->connection(), nullptr), nullptr);
    EXPECT_NE(sqlite3_get_autocommit(db->connection()), 0);
    EXPECT_EQ(db->cachedRows(), 1u);
  }
  EXPECT_GT(n, 2);  // both statement texts failed once
  EXPECT_EQ(Select(db->connection(), kAllRows), Lines{"1|1|kept|NULL|4"});
}

}  // namespace
