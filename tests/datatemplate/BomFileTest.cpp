#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>

#include "BomTestSupport.h"
#include "datatemplate/internal/VNBomKey.h"
#include "foundation/VNError.h"
#include "support/VNTestDir.h"

namespace {

namespace fs = std::filesystem;
using Paths = std::vector<std::string>;

std::string readBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

void writeBytes(const std::string& path, const std::string& bytes) {
  VNWriteTestFile(path, bytes);
}

std::set<std::string> listing(const std::string& dir) {
  std::set<std::string> names;
  for (const auto& item : fs::directory_iterator(dir)) names.insert(item.path().filename());
  return names;
}

void exec(const std::string& path, const std::string& sql) {
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
  char* message = nullptr;
  EXPECT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &message), SQLITE_OK)
      << (message ? message : "");
  sqlite3_free(message);
  sqlite3_close(db);
}

std::string schemaOf(const std::string& path) {
  sqlite3* db = nullptr;
  sqlite3_open(path.c_str(), &db);
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(db, "SELECT sql FROM sqlite_schema WHERE name = 'entries'", -1, &statement,
                     nullptr);
  std::string sql;
  if (sqlite3_step(statement) == SQLITE_ROW)
    sql = reinterpret_cast<const char*>(sqlite3_column_text(statement, 0));
  sqlite3_finalize(statement);
  sqlite3_close(db);
  return sql;
}

std::string sqlQuoted(const std::string& sql) {
  std::string out = "'";
  for (char c : sql) out += c == '\'' ? "''" : std::string(1, c);
  return out + "'";
}

class BomFile : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(dir_ / "tree/sub/deeper");
    for (int i = 0; i < 40; ++i)
      VNWriteTestFile(dir_ / ("tree/sub/f" + std::to_string(i)), std::string(i * 37, 'x'));
    VNWriteTestFile(dir_ / "tree/sub/deeper/g", "g");
    fs::create_symlink("sub/f1", dir_ / "tree/link");
  }
  // A committed BOM of the sample tree at `path`.
  std::string commitSample(const std::string& name = "sample.bom") {
    std::string path = dir_ / name;
    VNBomStorePtr store(bom_new_from_directory(path.c_str(), (dir_ / "tree").c_str(),
                                               BomOptionStat | BomOptionChecksums));
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

// Opens `path`; when it opens, walks it and checks what a walk promises:
// valid paths in strict pre-order. Returns whether it opened.
bool opensAndWalksSoundly(const std::string& path) {
  VNBomStorePtr store(bom_open(path.c_str()));
  if (!store) return false;
  std::string previous;
  for (const std::string& entryPath : walkPaths(store.get())) {
    std::optional<std::string> key = VNBomKeyForPath(entryPath);
    EXPECT_TRUE(key && !key->empty() && *key > previous) << entryPath;
    if (key) previous = *key;
  }
  return true;
}

}  // namespace

TEST_F(BomFile, CommitThenOpenGivesTheSameEntries) {
  std::string path = commitSample();
  VNBomStorePtr created(bom_new_from_directory(path.c_str(), (dir_ / "tree").c_str(), 0));
  VNBomStorePtr opened(bom_open(path.c_str()));
  ASSERT_TRUE(opened);
  EXPECT_EQ(walkPaths(opened.get()), walkPaths(created.get()));
  EXPECT_EQ(walkPaths(opened.get()).size(), 44u);
  VNBomEntryPtr f3(bom_entry_at_path(opened.get(), "sub/f3"));
  EXPECT_EQ(bom_entry_size(f3.get()), 111u);
  EXPECT_EQ(listing(dir_.path()).size(), 3u) << "the created store's temporary file";
  created.reset();
  EXPECT_EQ(listing(dir_.path()), (std::set<std::string>{"sample.bom", "tree"}))
      << "no temporary or side files";
}

TEST_F(BomFile, CommittedFileHasItsModeAndTheStoreBecomesReadOnly) {
  mode_t saved = ::umask(077);
  std::string path = dir_ / "sample.bom";
  VNBomStorePtr store(bom_new_from_directory(path.c_str(), (dir_ / "tree").c_str(), 0));
  ::umask(saved);
  ASSERT_TRUE(store);
  ASSERT_EQ(bom_commit(store.get()), 0);
  struct stat st {};
  ASSERT_EQ(::stat(path.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0644u);

  // The committed store still reads, takes no edits, and does not keep
  // others from opening the file.
  VNBomStorePtr reader(bom_open(path.c_str()));
  ASSERT_TRUE(reader);
  VNBomEntryPtr sub(bom_entry_at_path(store.get(), "sub"));
  bom_remove_entry(store.get(), sub.get());
  EXPECT_EQ(walkPaths(store.get()).size(), 44u);
  VNError error;
  EXPECT_FALSE(VNBomCommit(store.get(), &error));
  EXPECT_EQ(error.code(), VNBomErrorReadOnly);
  EXPECT_EQ(walkPaths(reader.get()).size(), 44u);
  EXPECT_EQ(listing(dir_.path()), (std::set<std::string>{"sample.bom", "tree"}));
}

TEST_F(BomFile, CommitReplacesAnEarlierFileWhole) {
  std::string path = commitSample();
  VNBomStorePtr store(bom_open(path.c_str()));
  VNBomStorePtr copy(bom_new_from_bom(path.c_str(), store.get()));
  VNBomEntryPtr sub(bom_entry_at_path(copy.get(), "sub"));
  bom_remove_entry(copy.get(), sub.get());
  ASSERT_EQ(bom_commit(copy.get()), 0);
  VNBomStorePtr reread(bom_open(path.c_str()));
  EXPECT_EQ(walkPaths(reread.get()), Paths{"link"});
  EXPECT_EQ(walkPaths(store.get()).size(), 44u) << "an open store is not disturbed";
}

TEST_F(BomFile, FailedWritesOrCommitLeaveTheEarlierFileAndNoTemporaryFile) {
  std::string path = commitSample();
  std::string before = readBytes(path);
  VNBomStorePtr store(bom_open(path.c_str()));
  VNBomStorePtr bigger(bom_new_from_bom(path.c_str(), store.get()));
  ASSERT_TRUE(bigger);

  // The file-size limit makes the edits' writes fail part-way; the store
  // remembers and refuses to commit what may be half-written.
  struct rlimit saved {};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &saved), 0);
  auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
  struct rlimit small = saved;
  small.rlim_cur = 4096;
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  for (int i = 0; i < 200; ++i)
    bom_insert_entry(bigger.get(),
                     makeEntry(BomEntryTypeFile, ("new/" + std::to_string(i)).c_str(), 0).get(), 0);
  ::setrlimit(RLIMIT_FSIZE, &saved);
  std::signal(SIGXFSZ, oldHandler);
  VNError error;
  EXPECT_FALSE(VNBomCommit(bigger.get(), &error));
  EXPECT_TRUE(error.isPOSIX(EFBIG)) << error.description();
  EXPECT_EQ(error.filePath(), path);
  EXPECT_EQ(readBytes(path), before);
  bigger.reset();
  EXPECT_EQ(listing(dir_.path()), (std::set<std::string>{"sample.bom", "tree"}));

  VNBomStorePtr elsewhere(VNBomNewFromBom((dir_ / "missing/x.bom").c_str(), store.get(), &error));
  EXPECT_FALSE(elsewhere) << "no folder for the temporary file";
  EXPECT_TRUE(error.isPOSIX(ENOENT));
  EXPECT_EQ(error.filePath(), dir_ / "missing/x.bom");
  fs::create_directory(dir_ / "taken.bom");
  VNBomStorePtr onDirectory(bom_new_from_bom((dir_ / "taken.bom").c_str(), store.get()));
  EXPECT_NE(bom_commit(onDirectory.get()), 0);
  EXPECT_TRUE(fs::is_directory(dir_ / "taken.bom"));
  onDirectory.reset();
  EXPECT_EQ(listing(dir_.path()), (std::set<std::string>{"sample.bom", "taken.bom", "tree"}));
}

TEST_F(BomFile, OpenNeverWrites) {
  std::string path = commitSample();
  ASSERT_EQ(::chmod(path.c_str(), 0444), 0);
  struct stat before {};
  ASSERT_EQ(::stat(path.c_str(), &before), 0);
  std::string bytes = readBytes(path);
  {
    VNBomStorePtr store(bom_open(path.c_str()));
    ASSERT_TRUE(store);
    walkPaths(store.get());
    VNBomEntryPtr sub(bom_entry_at_path(store.get(), "sub"));
    bom_remove_entry(store.get(), sub.get());
    EXPECT_EQ(walkPaths(store.get()).size(), 44u);
    EXPECT_NE(bom_commit(store.get()), 0);
  }
  struct stat after {};
  ASSERT_EQ(::stat(path.c_str(), &after), 0);
  EXPECT_EQ(readBytes(path), bytes);
  EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
  EXPECT_EQ(after.st_mode, before.st_mode);
  EXPECT_EQ(listing(dir_.path()), (std::set<std::string>{"sample.bom", "tree"}));
}

TEST_F(BomFile, RefusesWhatIsNotABomOfOurs) {
  VNError missing = openError(dir_ / "missing.bom");
  EXPECT_TRUE(missing.isPOSIX(ENOENT));
  EXPECT_EQ(missing.filePath(), dir_ / "missing.bom");
  EXPECT_TRUE(openError(dir_ / "tree").isPOSIX(EISDIR));

  writeBytes(dir_ / "empty.bom", "");
  writeBytes(dir_ / "text.bom", "path\ttype\n./a\tfile\n");
  writeBytes(dir_ / "header.bom", std::string("SQLite format 3\0", 16));
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
  EXPECT_EQ(bom_open(nullptr), nullptr);
}

// A file with our marks but a schema without its checks, or rows that break
// them, is refused before a walk could trust its keys.
TEST_F(BomFile, RefusesOurMarksOverOtherDefinitionsOrBrokenRows) {
  std::string path = commitSample();
  std::string ours = schemaOf(path);
  ASSERT_FALSE(ours.empty());
  std::string loose =
      "CREATE TABLE entries (key BLOB NOT NULL PRIMARY KEY, type INTEGER NOT NULL, mode INTEGER "
      "NOT NULL, options INTEGER NOT NULL, size INTEGER NOT NULL, checksum INTEGER NOT NULL, uid "
      "INTEGER NOT NULL, gid INTEGER NOT NULL, mtime INTEGER NOT NULL, link_target BLOB NOT NULL, "
      "link_group BLOB NOT NULL) STRICT, WITHOUT ROWID";
  exec(path, "PRAGMA writable_schema = ON; UPDATE sqlite_schema SET sql = " + sqlQuoted(loose) +
                 " WHERE name = 'entries'");
  EXPECT_EQ(openError(path).code(), VNBomErrorDamaged);

  exec(path, "INSERT INTO entries VALUES (x'00612F62', 9, 0, 0, 0, 0, 0, 0, 0, x'', x'')");
  exec(path, "PRAGMA writable_schema = ON; UPDATE sqlite_schema SET sql = " + sqlQuoted(ours) +
                 " WHERE name = 'entries'");
  EXPECT_EQ(openError(path).code(), VNBomErrorDamaged);

  std::string triggered = commitSample("trigger.bom");
  exec(triggered, "CREATE TRIGGER t AFTER INSERT ON entries BEGIN SELECT 1; END");
  EXPECT_EQ(openError(triggered).code(), VNBomErrorDamaged);
}

// A BOM larger than the store's page cache, so that reads after the open go
// to the file.
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
  std::string bytes = readBytes(path);
  ASSERT_GT(bytes.size(), 4u << 20);

  // Renamed over: the open store keeps reading the file it opened.
  VNBomStorePtr replaced(bom_open(path.c_str()));
  commitSample("other.bom");
  ASSERT_EQ(::rename((dir_ / "other.bom").c_str(), path.c_str()), 0);
  EXPECT_EQ(walkPaths(replaced.get()).size(), 1544u);
  replaced.reset();
  writeBytes(path, bytes);

  // Cut short or overwritten in place: walks end early in order, lookups of
  // lost entries fail, and a copy is refused.
  for (size_t keep : {bytes.size() / 2, size_t{4096}}) {
    for (bool truncate : {true, false}) {
      VNBomStorePtr store(bom_open(path.c_str()));
      ASSERT_TRUE(store);
      if (truncate) {
        ASSERT_EQ(::truncate(path.c_str(), static_cast<off_t>(keep)), 0);
      } else {
        std::string scrambled = bytes;
        for (size_t i = keep; i < scrambled.size(); i += 7) scrambled[i] = static_cast<char>(i);
        writeBytes(path, scrambled);
      }
      std::string previous;
      Paths walked = walkPaths(store.get());
      for (const std::string& entryPath : walked) {
        std::optional<std::string> key = VNBomKeyForPath(entryPath);
        ASSERT_TRUE(key && *key > previous) << entryPath;
        previous = *key;
      }
      EXPECT_LT(walked.size(), 1544u) << keep << (truncate ? " truncated" : " overwritten");
      VNBomEntryPtr last(bom_entry_at_path(store.get(), "links/999"));
      EXPECT_TRUE(!last || bom_entry_type(last.get()) == BomEntryTypeSymlink);
      EXPECT_FALSE(VNBomStorePtr(bom_new_from_bom((dir_ / "copy.bom").c_str(), store.get())));
      writeBytes(path, bytes);
    }
  }
  EXPECT_EQ(listing(dir_.path()), (std::set<std::string>{"large.bom", "tree"}));
}

TEST_F(BomFile, TruncatedOrBitFlippedFilesNeverCrashAWalk) {
  std::string path = commitSample();
  std::string bytes = readBytes(path);
  ASSERT_GT(bytes.size(), 4096u);
  std::string damaged = dir_ / "damaged.bom";
  for (size_t size : {size_t{0}, size_t{50}, size_t{100}, size_t{4096}, bytes.size() / 2,
                      bytes.size() - 1}) {
    writeBytes(damaged, bytes.substr(0, size));
    EXPECT_FALSE(opensAndWalksSoundly(damaged)) << "truncated to " << size;
  }
  std::mt19937 random(11);
  int refused = 0, flips = 0;
  for (size_t offset = 0; offset < bytes.size(); offset += 1 + random() % 41, ++flips) {
    std::string flipped = bytes;
    flipped[offset] = static_cast<char>(flipped[offset] ^ (1u << (random() % 8)));
    writeBytes(damaged, flipped);
    if (!opensAndWalksSoundly(damaged)) ++refused;
  }
  EXPECT_GT(refused, 0) << "of " << flips << " flipped files";
}
