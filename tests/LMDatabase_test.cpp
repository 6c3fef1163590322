// The application-state table on real SQLite files: names and paths, the
// statements a flush runs, insert and update, the bindings that stick, the
// where clauses, and what the destructor reports.
#include "db/LMDatabase.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/LogCapture.h"

namespace {

using Lines = std::vector<std::string>;

std::unique_ptr<AppState> Row(int64_t rowid, int32_t intcol1, std::string appName,
                              std::string rsvdName = "") {
  auto row = std::make_unique<AppState>();
  row->rowid = rowid;
  row->intcol1 = intcol1;
  row->appName = std::move(appName);
  row->rsvdName = std::move(rsvdName);
  row->blob[0] = 0xAB;
  return row;
}

// Rows of a table as "rowid|intcol1|appName|rsvdName|blob bytes".
Lines Select(sqlite3* db, const std::string& table) {
  Lines rows;
  sqlite3_stmt* statement = nullptr;
  std::string sql = "SELECT rowid, intcol1, appName, rsvdName, length(blob) FROM " + table +
                    " ORDER BY rowid";
  EXPECT_EQ(sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr), SQLITE_OK);
  while (sqlite3_step(statement) == SQLITE_ROW) {
    std::string row;
    for (int column = 0; column < 5; ++column) {
      const unsigned char* text = sqlite3_column_text(statement, column);
      row += (column ? "|" : "") + std::string(text ? reinterpret_cast<const char*>(text) : "NULL");
    }
    rows.push_back(row);
  }
  sqlite3_finalize(statement);
  return rows;
}

// Records the statements the connection runs.
class StatementTrace {
 public:
  explicit StatementTrace(sqlite3* db) : mDb(db) {
    sqlite3_trace_v2(db, SQLITE_TRACE_STMT, &StatementTrace::OnStatement, this);
  }
  // Stops recording when the trace goes away before the connection.
  ~StatementTrace() {
    if (mDb != nullptr) sqlite3_trace_v2(mDb, 0, nullptr, nullptr);
  }
  // The connection was closed: nothing to detach from.
  void Forget() { mDb = nullptr; }
  static int OnStatement(unsigned, void* self, void* statement, void*) {
    auto* trace = static_cast<StatementTrace*>(self);
    std::string sql = sqlite3_sql(static_cast<sqlite3_stmt*>(statement));
    trace->statements.push_back(sql);
    if (trace->onStatement) trace->onStatement(sql);
    return 0;
  }
  Lines statements;
  std::function<void(const std::string&)> onStatement;

 private:
  sqlite3* mDb;
};

class LMDatabaseTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (std::filesystem::temp_directory_path() / "gorv-db-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    dir = pattern + "/";
  }
  void TearDown() override { std::filesystem::remove_all(dir); }
  std::string dir;
};

TEST_F(LMDatabaseTest, NamesAndPaths) {
  LogCapture logs;
  {
    LMDatabase<AppState> memory("apps", dir, "");
    ASSERT_EQ(memory.LMDatabaseInit(), 0);
    EXPECT_STREQ(sqlite3_db_filename(memory.connection(), "main"), "");
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(memory.connection(), "PRAGMA journal_mode", -1, &statement, nullptr);
    ASSERT_EQ(sqlite3_step(statement), SQLITE_ROW);
    EXPECT_STREQ(reinterpret_cast<const char*>(sqlite3_column_text(statement, 0)), "memory");
    sqlite3_finalize(statement);
  }
  EXPECT_TRUE(std::filesystem::is_empty(dir));

  {
    LMDatabase<AppState> joined("apps", dir, "y.db");
    ASSERT_EQ(joined.LMDatabaseInit(), 0);
    LMDatabase<AppState> unjoined("apps", dir + "sub", "y.db");  // no separator is added
    ASSERT_EQ(unjoined.LMDatabaseInit(), 0);
  }
  EXPECT_TRUE(std::filesystem::exists(dir + "y.db"));
  EXPECT_TRUE(std::filesystem::exists(dir + "suby.db"));
  EXPECT_EQ(logs.Messages(), Lines{});
}

TEST_F(LMDatabaseTest, AFlushRunsOneTransactionWithTheTableStatements) {
  LMDatabase<AppState> db("apps", dir, "apps.db");
  ASSERT_EQ(db.LMDatabaseInit(), 0);
  StatementTrace trace(db.connection());
  EXPECT_EQ(db.LMDatabaseWriteCachedToDisk(), 0);  // empty: still a transaction
  EXPECT_EQ(trace.statements, (Lines{"BEGIN IMMEDIATE TRANSACTION;", "COMMIT TRANSACTION;"}));

  trace.statements.clear();
  db.queueRow(Row(0, 1, "a.game"));
  db.queueRow(Row(1, 2, "a.game", "renamed"));
  EXPECT_EQ(db.writeCachedDRToDisk(), 0);
  EXPECT_EQ(trace.statements,
            (Lines{"BEGIN IMMEDIATE TRANSACTION;",
                   "INSERT INTO apps(intcol1, appName, rsvdName, blob) VALUES (?,?,?,?)",
                   "UPDATE apps SET (intcol1, appName, rsvdName, blob) = (?,?,?,?) WHERE (rowid) = (?)",
                   "COMMIT TRANSACTION;"}));
  EXPECT_EQ(Select(db.connection(), "apps"), Lines{"1|2|a.game|renamed|4"});
  EXPECT_EQ(db.cachedRows(), 0u);
}

TEST_F(LMDatabaseTest, RowIdsAreNarrowedAndSkippedParametersKeepTheirLastBinding) {
  LMDatabase<AppState> db("apps", dir, "apps.db");
  ASSERT_EQ(db.LMDatabaseInit(), 0);
  LogCapture logs;
  // On a fresh insert statement an empty name is NULL and violates NOT
  // NULL (logged for the step and for the reset), an unset intcol1 stores
  // NULL; the flush goes on. Later rows repeat what they leave unset.
  db.queueRow(Row(0, 2147483647, ""));
  db.queueRow(Row(0, 2147483647, "first"));
  db.queueRow(Row(0, 5, ""));
  db.queueRow(Row(0, 6, "second"));
  db.queueRow(Row(0, 2147483647, ""));
  ASSERT_EQ(db.writeCachedDRToDisk(), 0);
  EXPECT_EQ(logs.Messages(), (Lines{"writeCachedDRToDisk() N: sql:ERROR:Dbt=apps info=19\n",
                                    "writeCachedDRToDisk() N: sql:ERROR:Dbt=apps info=19\n"}));
  EXPECT_EQ(Select(db.connection(), "apps"),
            (Lines{"1|NULL|first|NULL|4", "2|5|first|NULL|4", "3|6|second|NULL|4",
                   "4|6|second|NULL|4"}));

  // The statements are prepared anew for each flush: the bindings start as
  // NULL again. A row id above 32 bits reaches SQLite as its low half.
  db.queueRow(Row((int64_t{1} << 32) + 2, 9, "updated"));
  db.queueRow(Row(3, 2147483647, "", "kept"));  // intcol1 and appName as the update before
  ASSERT_EQ(db.writeCachedDRToDisk(), 0);
  EXPECT_EQ(Select(db.connection(), "apps"),
            (Lines{"1|NULL|first|NULL|4", "2|9|updated|NULL|4", "3|9|updated|kept|4",
                   "4|6|second|NULL|4"}));
}

TEST_F(LMDatabaseTest, WhereClauses) {
  LMDatabase<AppState> db("apps", dir, "");
  auto clause = [&db](int32_t intcol1, std::string appName, std::string rsvdName) {
    LMDBDataRowKey key{intcol1, std::move(appName), std::move(rsvdName)};
    std::string query = "SELECT * FROM apps ";
    db.build_query_for_where_clause(key, query);
    return query;
  };
  EXPECT_EQ(clause(3, "a.b", ""), "SELECT * FROM apps WHERE (appName,intcol1) = ('a.b',3) ");
  EXPECT_EQ(clause(2147483647, "x", "y"), "SELECT * FROM apps WHERE (appName,rsvdName) = ('x','y') ");
  EXPECT_EQ(clause(0, "", ""), "SELECT * FROM apps WHERE (intcol1) = (0) ");
  EXPECT_EQ(clause(-4, "", "r"), "SELECT * FROM apps WHERE (rsvdName,intcol1) = ('r',-4) ");
  EXPECT_EQ(clause(2147483647, "", ""), "SELECT * FROM apps ");
  EXPECT_EQ(clause(2147483647, "it's", ""), "SELECT * FROM apps WHERE (appName) = ('it's') ");

  char dst[4] = {};
  const char src[10] = "abcdefghi";
  EXPECT_EQ(LMDatabase<AppState>::LMDB_memscpy(dst, 4, src, 10), 4u);
  EXPECT_EQ(std::string(dst, 4), "abcd");
  EXPECT_EQ(LMDatabase<AppState>::LMDB_memscpy(dst, 4, "z", 1), 1u);
  EXPECT_EQ(std::string(dst, 4), "zbcd");
}

TEST_F(LMDatabaseTest, DestructionFlushesAndReportsRowsQueuedDuringThatFlush) {
  LogCapture logs;
  {
    auto* db = new LMDatabase<AppState>("apps", dir, "apps.db");
    ASSERT_EQ(db->LMDatabaseInit(), 0);
    db->queueRow(Row(0, 1, "queued.before"));
    StatementTrace trace(db->connection());
    // A producer that queues once the final flush has seen its cache empty.
    trace.onStatement = [db](const std::string& sql) {
      if (sql == "COMMIT TRANSACTION;") db->queueRow(Row(0, 2, "too.late"));
    };
    delete db;
    trace.Forget();
  }
  EXPECT_EQ(logs.Messages(),
            Lines{"LMDB: ~LMDBDataTable() N: ERROR:Dbt=apps blstSz=0, clstSz=1\n"});
  sqlite3* reopened = nullptr;
  ASSERT_EQ(sqlite3_open((dir + "apps.db").c_str(), &reopened), SQLITE_OK);
  EXPECT_EQ(Select(reopened, "apps"), Lines{"1|1|queued.before|NULL|4"});
  sqlite3_close(reopened);
}

TEST_F(LMDatabaseTest, FilesThatCannotBeUsed) {
  LogCapture logs;
  LMDatabase<AppState> unopenable("apps", dir + "missing/", "apps.db");
  EXPECT_EQ(unopenable.LMDatabaseInit(), -1);
  EXPECT_EQ(logs.Messages(), Lines{"LMDB: openLMdb() N: ERROR:Db=" + dir +
                                   "missing/apps.db sql open failed, err=14\n"});

  logs.Clear();
  std::ofstream(dir + "text.db") << std::string(4096, 'x');
  LMDatabase<AppState> notADatabase("apps", dir, "text.db");
  EXPECT_EQ(notADatabase.LMDatabaseInit(), -1);
  EXPECT_EQ(logs.Messages(),
            (Lines{"openLMdb() N: sql:ERROR:Dbt=" + dir + "text.db info=file is not a database\n",
                   "createLMdbTables() N: ERROR:Dbt=apps info=file is not a database\n"}));
}

}  // namespace
