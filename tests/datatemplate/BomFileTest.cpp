#include <sqlite3.h>
#include <sys/resource.h>

#include <csignal>

#include "BomTestSupport.h"
#include "datatemplate/internal/VNBomKey.h"
#include "support/VNTest.h"

namespace {

using Names = std::set<std::string>;

void exec(const std::string& path, const std::string& sql) {
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
  char* message = nullptr;
  EXPECT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &message), SQLITE_OK) << (message ? message : "");
  sqlite3_free(message);
  sqlite3_close(db);
}

// Replaces the definition of the entries table, as a file of ours whose
// marks were kept but whose checks were taken out could have it.
void setEntriesDefinition(const std::string& path, const std::string& sql) {
  std::string quoted;
  for (char c : sql) quoted += c == '\'' ? "''" : std::string(1, c);
  exec(path, "PRAGMA writable_schema = ON; UPDATE sqlite_schema SET sql = '" + quoted + "' WHERE name = 'entries'");
}

class BomFile : public ::testing::Test {
 protected:
  void SetUp() override {
    for (int i = 0; i < 40; ++i) VNWriteTestFile(dir_ / ("tree/sub/f" + std::to_string(i)), std::string(i * 37, 'x'));
    VNWriteTestFile(dir_ / "tree/sub/deeper/g", "g");
    ASSERT_EQ(::symlink("sub/f1", (dir_ / "tree/link").c_str()), 0);
  }
  // A committed BOM of the sample tree (44 entries) at `name`.
  std::string commitSample(const std::string& name = "sample.bom") {
    std::string path = dir_ / name;
    VNBomStorePtr store(bom_new_from_directory(path.c_str(), (dir_ / "tree").c_str(), BomOptionStat | BomOptionChecksums));
    EXPECT_TRUE(store);
    EXPECT_EQ(bom_commit(store.get()), 0);
    return path;
  }
  VNError openError(const std::string& path) {
    VNError error;
    VNBomStorePtr store(VNBomOpen(path.c_str(), &error));
    EXPECT_FALSE(store) << path;
    return error;
  }
  VNTestDir dir_;
};

}  // namespace

// The committed file (mode 0644 whatever the umask) reads as what was
// created; until then the store lives in a temporary file beside it.
TEST_F(BomFile, CommitThenOpenGivesTheSameEntries) {
  mode_t saved = ::umask(077);
  std::string path = dir_ / "sample.bom";
  VNBomStorePtr created(bom_new_from_directory(path.c_str(), (dir_ / "tree").c_str(), 0));
  ::umask(saved);
  EXPECT_EQ(VNNamesIn(dir_.path()).size(), 2u) << "the created store's temporary file";
  ASSERT_EQ(bom_commit(created.get()), 0);
  EXPECT_THAT(path, HasMode(0644));
  VNBomStorePtr opened(bom_open(path.c_str()));
  ASSERT_TRUE(opened);
  EXPECT_EQ(walkPaths(opened.get()), walkPaths(created.get()));
  EXPECT_EQ(walkPaths(opened.get()).size(), 44u);
  EXPECT_EQ(bom_entry_size(VNBomEntryPtr(bom_entry_at_path(opened.get(), "sub/f3")).get()), 111u);
  created.reset();
  EXPECT_EQ(VNNamesIn(dir_.path()), (Names{"sample.bom", "tree"})) << "no temporary or side files";
}

// A committed store and an opened one (even of a read-only file) still
// read, take no edits and refuse to commit; the file is never written.
TEST_F(BomFile, CommittedAndOpenedStoresAreReadOnly) {
  std::string path = dir_ / "sample.bom";
  VNBomStorePtr committed(bom_new_from_directory(path.c_str(), (dir_ / "tree").c_str(), 0));
  ASSERT_EQ(bom_commit(committed.get()), 0);
  ASSERT_EQ(::chmod(path.c_str(), 0444), 0);
  struct stat before = VNStatOf(path);
  std::string bytes = VNReadTestFile(path);
  VNBomStorePtr opened(bom_open(path.c_str()));
  ASSERT_TRUE(opened);
  for (BomStore* store : {committed.get(), opened.get()}) {
    VNBomEntryPtr sub(bom_entry_at_path(store, "sub"));
    bom_remove_entry(store, sub.get());
    EXPECT_EQ(walkPaths(store).size(), 44u);
    VNError error;
    EXPECT_FALSE(VNBomCommit(store, &error));
    EXPECT_EQ(error.code(), VNBomErrorReadOnly);
  }
  committed.reset();
  opened.reset();
  EXPECT_EQ(VNReadTestFile(path), bytes);
  EXPECT_EQ(VNStatOf(path).st_mtim.tv_nsec, before.st_mtim.tv_nsec);
  EXPECT_EQ(VNNamesIn(dir_.path()), (Names{"sample.bom", "tree"}));
}

// A commit replaces an earlier file whole, without disturbing a store open
// on it; failed writes and commits leave it and no temporary file.
TEST_F(BomFile, CommitReplacesTheFileWholeOrNotAtAll) {
  std::string path = commitSample();
  VNBomStorePtr store(bom_open(path.c_str()));
  VNBomStorePtr copy(bom_new_from_bom(path.c_str(), store.get()));
  bom_remove_entry(copy.get(), VNBomEntryPtr(bom_entry_at_path(copy.get(), "sub")).get());
  ASSERT_EQ(bom_commit(copy.get()), 0);
  EXPECT_EQ(walkPaths(VNBomStorePtr(bom_open(path.c_str())).get()), std::vector<std::string>{"link"});
  EXPECT_EQ(walkPaths(store.get()).size(), 44u) << "an open store is not disturbed";

  // The file-size limit makes the edits' writes fail part-way; the store
  // remembers and refuses to commit what may be half-written.
  std::string before = VNReadTestFile(path);
  VNBomStorePtr bigger(bom_new_from_bom(path.c_str(), store.get()));
  struct rlimit saved {};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &saved), 0);
  auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
  struct rlimit small = saved;
  small.rlim_cur = 4096;
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  for (int i = 0; i < 200; ++i)
    bom_insert_entry(bigger.get(), makeEntry(BomEntryTypeFile, ("new/" + std::to_string(i)).c_str(), 0).get(), 0);
  ::setrlimit(RLIMIT_FSIZE, &saved);
  std::signal(SIGXFSZ, oldHandler);
  VNError error;
  EXPECT_FALSE(VNBomCommit(bigger.get(), &error));
  EXPECT_TRUE(error.isPOSIX(EFBIG)) << error.description();
  EXPECT_EQ(error.filePath(), path);
  EXPECT_EQ(VNReadTestFile(path), before);
  bigger.reset();

  EXPECT_FALSE(VNBomStorePtr(VNBomNewFromBom((dir_ / "missing/x.bom").c_str(), store.get(), &error)));
  EXPECT_TRUE(error.isPOSIX(ENOENT)) << "no folder for the temporary file";
  EXPECT_EQ(error.filePath(), dir_ / "missing/x.bom");
  VNMakeFolders(dir_ / "taken.bom");
  VNBomStorePtr onDirectory(bom_new_from_bom((dir_ / "taken.bom").c_str(), store.get()));
  EXPECT_NE(bom_commit(onDirectory.get()), 0);
  onDirectory.reset();
  EXPECT_EQ(VNNamesIn(dir_.path()), (Names{"sample.bom", "taken.bom", "tree"}));
  EXPECT_TRUE(VNNamesIn(dir_ / "taken.bom").empty());
}

// What is not a BOM of ours, a later version, and a file with our marks but
// a schema without its checks, a trigger, or a row that breaks them.
TEST_F(BomFile, RefusesWhatIsNotABomOfOurs) {
  VNError missing = openError(dir_ / "missing.bom");
  EXPECT_TRUE(missing.isPOSIX(ENOENT));
  EXPECT_EQ(missing.filePath(), dir_ / "missing.bom");
  EXPECT_TRUE(openError(dir_ / "tree").isPOSIX(EISDIR));
  EXPECT_EQ(bom_open(nullptr), nullptr);
  VNWriteTestFile(dir_ / "empty.bom", "");
  VNWriteTestFile(dir_ / "text.bom", "path\ttype\n./a\tfile\n");
  VNWriteTestFile(dir_ / "header.bom", std::string("SQLite format 3\0", 16));
  ASSERT_EQ(::mkfifo((dir_ / "fifo.bom").c_str(), 0644), 0);
  exec(dir_ / "foreign.bom", "CREATE TABLE entries (key BLOB PRIMARY KEY, type INTEGER)");
  for (const char* name : {"empty.bom", "text.bom", "header.bom", "fifo.bom", "foreign.bom"}) {
    VNError error = openError(dir_ / name);
    EXPECT_EQ(error.domain(), VNBomErrorDomain) << name;
    EXPECT_EQ(error.code(), VNBomErrorNotABom) << name;
    EXPECT_NE(error.localizedDescription().find(name), std::string::npos);
  }
  std::string later = commitSample("later.bom");
  exec(later, "PRAGMA user_version = 2");
  EXPECT_EQ(openError(later).code(), VNBomErrorUnsupportedVersion);

  std::string path = commitSample(), triggered = commitSample("trigger.bom");
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(db, "SELECT sql FROM sqlite_schema WHERE name = 'entries'", -1, &statement, nullptr);
  ASSERT_EQ(sqlite3_step(statement), SQLITE_ROW);
  const std::string ours = reinterpret_cast<const char*>(sqlite3_column_text(statement, 0));
  sqlite3_finalize(statement);
  sqlite3_close(db);
  setEntriesDefinition(path,
                       "CREATE TABLE entries (key BLOB NOT NULL PRIMARY KEY, type INTEGER NOT NULL, mode INTEGER "
                       "NOT NULL, options INTEGER NOT NULL, size INTEGER NOT NULL, checksum INTEGER NOT NULL, uid "
                       "INTEGER NOT NULL, gid INTEGER NOT NULL, mtime INTEGER NOT NULL, link_target BLOB NOT NULL, "
                       "link_group BLOB NOT NULL) STRICT, WITHOUT ROWID");
  EXPECT_EQ(openError(path).code(), VNBomErrorDamaged) << "a schema without our checks";
  exec(path, "INSERT INTO entries VALUES (x'00612F62', 9, 0, 0, 0, 0, 0, 0, 0, x'', x'')");
  setEntriesDefinition(path, ours);
  EXPECT_EQ(openError(path).code(), VNBomErrorDamaged) << "a row that breaks them";
  exec(triggered, "CREATE TRIGGER t AFTER INSERT ON entries BEGIN SELECT 1; END");
  EXPECT_EQ(openError(triggered).code(), VNBomErrorDamaged);
}

// A BOM larger than the store's page cache, so that reads after the open go
// to the file: renamed over, the open store keeps reading what it opened;
// cut short or overwritten in place, walks end early in order, lookups of
// lost entries fail, and a copy is refused.
TEST_F(BomFile, FileReplacedOrRewrittenWhileOpenFailsCleanly) {
  std::string path = dir_ / "large.bom";
  VNBomStorePtr created(bom_new_from_directory(path.c_str(), (dir_ / "tree").c_str(), 0));
  for (int i = 0; i < 1500; ++i) {
    VNBomEntryPtr link = makeEntry(BomEntryTypeSymlink, ("links/" + std::to_string(i)).c_str(), 0);
    bom_entry_set_symlink_target(link.get(), std::string(4000, 'a' + i % 26).c_str());
    bom_insert_entry(created.get(), link.get(), BomInsertKeepExisting);
  }
  ASSERT_EQ(bom_commit(created.get()), 0);
  created.reset();
  std::string bytes = VNReadTestFile(path);
  ASSERT_GT(bytes.size(), 4u << 20);
  VNBomStorePtr replaced(bom_open(path.c_str()));
  ASSERT_EQ(::rename(commitSample("other.bom").c_str(), path.c_str()), 0);
  EXPECT_EQ(walkPaths(replaced.get()).size(), 1544u);
  replaced.reset();
  for (size_t keep : {bytes.size() / 2, size_t{4096}}) {
    for (bool truncate : {true, false}) {
      VNWriteTestFile(path, bytes);
      VNBomStorePtr store(bom_open(path.c_str()));
      ASSERT_TRUE(store);
      std::string damaged = bytes;
      for (size_t i = keep; i < damaged.size(); i += 7) damaged[i] = static_cast<char>(i);
      if (truncate) {
        ASSERT_EQ(::truncate(path.c_str(), static_cast<off_t>(keep)), 0);
      } else {
        VNWriteTestFile(path, damaged);
      }
      std::string previous;
      std::vector<std::string> walked = walkPaths(store.get());
      for (const std::string& entryPath : walked) {
        std::optional<std::string> key = VNBomKeyForPath(entryPath);
        ASSERT_TRUE(key && *key > previous) << entryPath;
        previous = *key;
      }
      EXPECT_LT(walked.size(), 1544u) << keep << (truncate ? " truncated" : " overwritten");
      VNBomEntryPtr last(bom_entry_at_path(store.get(), "links/999"));
      EXPECT_TRUE(!last || bom_entry_type(last.get()) == BomEntryTypeSymlink);
      EXPECT_FALSE(VNBomStorePtr(bom_new_from_bom((dir_ / "copy.bom").c_str(), store.get())));
    }
  }
  EXPECT_EQ(VNNamesIn(dir_.path()), (Names{"large.bom", "tree"}));
}
