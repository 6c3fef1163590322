// The application-state table under faults: write errors and a full disk
// injected through a VFS (as SQLite's own tests do), processes killed in the
// middle of flushes, and producers queuing while another thread flushes.
#include <gtest/gtest.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): POSIX kill()
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "db/LMDatabase.h"
#include "tests/support/LogCapture.h"

namespace {

// A VFS over the default one whose writes fail with gWriteFault while it is
// not SQLITE_OK.
std::atomic<int> gWriteFault{SQLITE_OK};
sqlite3_vfs* gRealVfs = nullptr;

struct FaultFile {
  sqlite3_file base;
  sqlite3_file* real;
};

sqlite3_file* Real(sqlite3_file* file) { return reinterpret_cast<FaultFile*>(file)->real; }

int Close(sqlite3_file* f) { return Real(f)->pMethods->xClose(Real(f)); }
int Read(sqlite3_file* f, void* b, int n, sqlite3_int64 o) { return Real(f)->pMethods->xRead(Real(f), b, n, o); }
int Write(sqlite3_file* f, const void* b, int n, sqlite3_int64 o) {
  int fault = gWriteFault.load();
  if (fault != SQLITE_OK) return fault;
  return Real(f)->pMethods->xWrite(Real(f), b, n, o);
}
int Truncate(sqlite3_file* f, sqlite3_int64 s) { return Real(f)->pMethods->xTruncate(Real(f), s); }
int Sync(sqlite3_file* f, int flags) { return Real(f)->pMethods->xSync(Real(f), flags); }
int FileSize(sqlite3_file* f, sqlite3_int64* s) { return Real(f)->pMethods->xFileSize(Real(f), s); }
int Lock(sqlite3_file* f, int l) { return Real(f)->pMethods->xLock(Real(f), l); }
int Unlock(sqlite3_file* f, int l) { return Real(f)->pMethods->xUnlock(Real(f), l); }
int CheckReserved(sqlite3_file* f, int* r) { return Real(f)->pMethods->xCheckReservedLock(Real(f), r); }
int FileControl(sqlite3_file* f, int op, void* a) { return Real(f)->pMethods->xFileControl(Real(f), op, a); }
int SectorSize(sqlite3_file* f) { return Real(f)->pMethods->xSectorSize(Real(f)); }
int Characteristics(sqlite3_file* f) { return Real(f)->pMethods->xDeviceCharacteristics(Real(f)); }
int ShmMap(sqlite3_file* f, int i, int s, int e, void volatile** p) { return Real(f)->pMethods->xShmMap(Real(f), i, s, e, p); }
int ShmLock(sqlite3_file* f, int o, int n, int fl) { return Real(f)->pMethods->xShmLock(Real(f), o, n, fl); }
void ShmBarrier(sqlite3_file* f) { Real(f)->pMethods->xShmBarrier(Real(f)); }
int ShmUnmap(sqlite3_file* f, int d) { return Real(f)->pMethods->xShmUnmap(Real(f), d); }

const sqlite3_io_methods kMethods = {2, Close, Read, Write, Truncate, Sync, FileSize, Lock, Unlock,
                                     CheckReserved, FileControl, SectorSize, Characteristics,
                                     ShmMap, ShmLock, ShmBarrier, ShmUnmap, nullptr, nullptr};

int Open(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* outFlags) {
  auto* fault = reinterpret_cast<FaultFile*>(file);
  fault->real = reinterpret_cast<sqlite3_file*>(fault + 1);
  int rc = gRealVfs->xOpen(gRealVfs, name, fault->real, flags, outFlags);
  fault->base.pMethods = fault->real->pMethods != nullptr ? &kMethods : nullptr;
  return rc;
}

sqlite3_vfs* FaultVfs() {
  static sqlite3_vfs vfs = [] {
    gRealVfs = sqlite3_vfs_find(nullptr);
    sqlite3_vfs copy = *gRealVfs;
    copy.iVersion = 1;  // no syscall overrides
    copy.szOsFile = static_cast<int>(sizeof(FaultFile)) + gRealVfs->szOsFile;
    copy.zName = "fault";
    copy.xOpen = Open;
    return copy;
  }();
  return &vfs;
}

using Lines = std::vector<std::string>;

std::string One(sqlite3* db, const std::string& sql) {
  sqlite3_stmt* statement = nullptr;
  std::string value;
  if (sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr) == SQLITE_OK &&
      sqlite3_step(statement) == SQLITE_ROW) {
    const unsigned char* text = sqlite3_column_text(statement, 0);
    value = text ? reinterpret_cast<const char*>(text) : "NULL";
  }
  sqlite3_finalize(statement);
  return value;
}

// Opens `path` on its own connection and answers `sql`.
std::string Ask(const std::string& path, const std::string& sql) {
  sqlite3* db = nullptr;
  sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr);
  std::string value = One(db, sql);
  sqlite3_close(db);
  return value;
}

void QueueBatch(LMDatabase<AppState>& db, const std::string& batch, int rows) {
  for (int i = 0; i < rows; ++i) {
    auto row = std::make_unique<AppState>();
    row->intcol1 = i;
    row->appName = batch + "-" + std::to_string(i);
    db.queueRow(std::move(row));
  }
}

class LMDatabaseFaultsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (std::filesystem::temp_directory_path() / "gorv-dbf-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    dir = pattern + "/";
    path = dir + "apps.db";
  }
  void TearDown() override {
    gWriteFault = SQLITE_OK;
    sqlite3_vfs_unregister(FaultVfs());
    std::filesystem::remove_all(dir);
  }
  std::string dir;
  std::string path;
};

TEST_F(LMDatabaseFaultsTest, AFailedWriteLosesTheFlushWholeAndTheNextOneLands) {
  ASSERT_EQ(sqlite3_vfs_register(FaultVfs(), 1), SQLITE_OK);
  for (auto [fault, text] : {std::pair{SQLITE_IOERR_WRITE, "disk I/O error"},
                             std::pair{SQLITE_FULL, "database or disk is full"}}) {
    std::filesystem::remove(path);
    LMDatabase<AppState> db("apps", dir, "apps.db");
    ASSERT_EQ(db.LMDatabaseInit(), 0);
    QueueBatch(db, "before", 3);
    ASSERT_EQ(db.writeCachedDRToDisk(), 0);

    LogCapture logs;
    QueueBatch(db, "failed", 5);
    gWriteFault = fault;
    db.writeCachedDRToDisk();
    gWriteFault = SQLITE_OK;
    Lines messages = logs.Messages();
    ASSERT_FALSE(messages.empty());
    EXPECT_EQ(messages[0], std::string("writeCachedDRToDisk() N: sql:ERROR:Dbt=apps info=") + text + "\n");
    for (const std::string& message : messages) {
      EXPECT_EQ(message.rfind("writeCachedDRToDisk() N: sql:ERROR:Dbt=apps info=", 0), 0u) << message;
    }
    EXPECT_EQ(db.cachedRows(), 0u);  // consumed, not retried

    QueueBatch(db, "after", 4);
    ASSERT_EQ(db.writeCachedDRToDisk(), 0);
    EXPECT_EQ(One(db.connection(), "PRAGMA integrity_check"), "ok");
    EXPECT_EQ(One(db.connection(), "SELECT count(*) FROM apps WHERE appName LIKE 'failed-%'"), "0");
    EXPECT_EQ(One(db.connection(), "SELECT count(*) FROM apps"), "7");
  }
  EXPECT_EQ(Ask(path, "PRAGMA integrity_check"), "ok");
}

TEST_F(LMDatabaseFaultsTest, KilledMidFlushTheFileStaysWholeAndHoldsWholeBatches) {
  constexpr int kBatch = 10;
  std::mt19937 random(42);
  for (int kill = 0; kill < 25; ++kill) {
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      LMDatabase<AppState> db("apps", dir, "apps.db");
      if (db.LMDatabaseInit() != 0) _exit(3);
      for (int batch = 0;; ++batch) {
        QueueBatch(db, std::to_string(kill) + "." + std::to_string(batch), kBatch);
        db.writeCachedDRToDisk();
        if (batch == 0 && write(ready[1], "x", 1) != 1) _exit(4);
      }
    }
    char byte;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    // A crash test kills at arbitrary moments: a short random delay spreads
    // the kills over the child's flushes.
    usleep(random() % 20000);
    ::kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    close(ready[0]);
    close(ready[1]);
    ASSERT_TRUE(WIFSIGNALED(status));
    ASSERT_EQ(Ask(path, "PRAGMA integrity_check"), "ok") << "after kill " << kill;
    int rows = std::stoi(Ask(path, "SELECT count(*) FROM apps"));
    EXPECT_EQ(rows % kBatch, 0) << "after kill " << kill;
  }
}

TEST_F(LMDatabaseFaultsTest, RowsQueuedWhileFlushingAreWrittenExactlyOnce) {
  constexpr int kProducers = 4;
  constexpr int kRows = 2500;
  LMDatabase<AppState> db("apps", dir, "apps.db");
  ASSERT_EQ(db.LMDatabaseInit(), 0);
  std::atomic<int> running{kProducers};
  std::vector<std::thread> producers;
  producers.reserve(kProducers);
  for (int p = 0; p < kProducers; ++p) {
    producers.emplace_back([&db, &running, p] {
      QueueBatch(db, "producer" + std::to_string(p), kRows);
      --running;
    });
  }
  std::thread flusher([&db, &running] {
    while (running > 0) db.writeCachedDRToDisk();
  });
  for (std::thread& producer : producers) producer.join();
  flusher.join();
  ASSERT_EQ(db.writeCachedDRToDisk(), 0);
  EXPECT_EQ(One(db.connection(), "SELECT count(*) FROM apps"), std::to_string(kProducers * kRows));
  EXPECT_EQ(One(db.connection(), "SELECT count(DISTINCT appName) FROM apps"),
            std::to_string(kProducers * kRows));
}

}  // namespace
