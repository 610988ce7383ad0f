#include "common/VNLogging.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <barrier>
#include <chrono>
#include <climits>
#include <cstdint>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/VNLogCapture.h"
#include "support/VNTestDir.h"

namespace {

using Level = VNSystemLog::Level;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr int kForcedPriority = 115;

MATCHER_P2(IsEntry, level, text, "") {
  return arg.level == level && arg.text == text && arg.subsystem == "org.varnel.kes.install" &&
         arg.category == "Varnel";
}
MATCHER_P(IsForcedSyslog, text, "") { return arg.priority == kForcedPriority && arg.text == text; }

bool exists(const std::string& path) {
  struct stat st {};
  return ::lstat(path.c_str(), &st) == 0;
}

mode_t permissions(const std::string& path) {
  struct stat st {};
  EXPECT_EQ(::stat(path.c_str(), &st), 0) << path;
  return st.st_mode & 07777;
}

std::string contents(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

void log(VNLogType type, std::string_view message) {
  VNLogging::logType(type, "void test(void)", __LINE__, message);
}

class LoggingTest : public ::testing::Test {
 protected:
  VNTestDir dir;
  std::string logFile = dir / "migration.log";
  VNLogCapture capture{logFile};
};

TEST_F(LoggingTest, DebugInBaseSystemReachesUnifiedLogAndOpensFileWithoutWritingIt) {
  capture.baseSystem().setAnswer(true);
  log(VNLogTypeDebug, "tracing helper");

  EXPECT_THAT(capture.systemLog().entries(), ElementsAre(IsEntry(Level::Debug, "tracing helper")));
  ASSERT_TRUE(exists(logFile)) << "the first message of any type opens the file";
  EXPECT_EQ(contents(logFile), "");
  EXPECT_EQ(permissions(logFile), 0755u);
}

TEST_F(LoggingTest, TypeSevenIsDefaultLevelNeverInFileAndGoesToSyslogOnceForced) {
  capture.baseSystem().setAnswer(true);
  log(7, "type seven");
  EXPECT_THAT(capture.systemLog().entries(), ElementsAre(IsEntry(Level::Default, "type seven")));
  EXPECT_EQ(contents(logFile), "");

  VNLogging::forceUsingSyslog();
  log(7, "type seven again");
  EXPECT_THAT(capture.systemLog().syslogEntries(), ElementsAre(IsForcedSyslog("type seven again")));
  EXPECT_EQ(capture.systemLog().entries().size(), 1u) << "forced mode leaves the unified log alone";
  EXPECT_EQ(contents(logFile), "") << "forced mode leaves the file alone";
}

TEST_F(LoggingTest, EachTypeMapsToItsUnifiedLevel) {
  const std::pair<VNLogType, Level> cases[] = {
      {0, Level::Error}, {1, Level::Fault}, {2, Level::Default}, {3, Level::Debug},
      {4, Level::Default}, {UINT64_MAX, Level::Default}};
  for (auto [type, level] : cases) log(type, std::to_string(type));
  std::vector<Level> levels;
  for (const auto& entry : capture.systemLog().entries()) levels.push_back(entry.level);
  EXPECT_THAT(levels, ElementsAre(Level::Error, Level::Fault, Level::Default, Level::Debug,
                                  Level::Default, Level::Default));
}

TEST_F(LoggingTest, ForcedBeforeFirstMessageDropsDebugAndNeverCreatesTheFile) {
  capture.baseSystem().setAnswer(true);
  VNLogging::forceUsingSyslog();

  log(VNLogTypeDebug, "dropped");
  EXPECT_THAT(capture.systemLog().syslogEntries(), IsEmpty());

  for (VNLogType type : {VNLogType{0}, VNLogType{1}, VNLogType{2}, VNLogType{4}, VNLogType{UINT64_MAX}})
    log(type, "t" + std::to_string(type));
  EXPECT_THAT(capture.systemLog().syslogEntries(),
              ElementsAre(IsForcedSyslog("t0"), IsForcedSyslog("t1"), IsForcedSyslog("t2"),
                          IsForcedSyslog("t4"), IsForcedSyslog("t" + std::to_string(UINT64_MAX))));
  EXPECT_THAT(capture.systemLog().entries(), IsEmpty());
  EXPECT_EQ(capture.baseSystem().questions(), 0);
  EXPECT_EQ(capture.logFileLocation().lookups(), 0);
  EXPECT_FALSE(exists(logFile));
}

TEST_F(LoggingTest, OutsideBaseSystemTheFileIsNeverOpenedButTheQuestionIsAskedEachTime) {
  for (VNLogType type = 0; type < 5; ++type) log(type, "outside");
  EXPECT_EQ(capture.systemLog().entries().size(), 5u);
  EXPECT_EQ(capture.baseSystem().questions(), 5);
  EXPECT_EQ(capture.baseSystem().lastClientIdentifier(), "org.varnel.Varnel");
  EXPECT_EQ(capture.logFileLocation().lookups(), 0);
  EXPECT_FALSE(exists(logFile));
}

TEST_F(LoggingTest, WritesProgramPidAndMessageOnlyForTypesZeroToTwo) {
  capture.baseSystem().setAnswer(true);
  VNLogging::logType(VNLogTypeDefault, "-[VNTask run]", 4711, "copied 3 items");
  EXPECT_EQ(contents(logFile), "Setup[812]: copied 3 items\n")
      << "the function name and line are written nowhere";

  log(VNLogTypeError, "e");
  log(VNLogTypeFault, "f");
  log(VNLogTypeDebug, "d");
  log(4, "four");
  EXPECT_EQ(contents(logFile), "Setup[812]: copied 3 items\nSetup[812]: e\nSetup[812]: f\n");
  EXPECT_EQ(capture.systemLog().entries().front().text, "copied 3 items");
}

TEST_F(LoggingTest, WritesNonAsciiAndEmbeddedNulMessagesWhole) {
  capture.baseSystem().setAnswer(true);
  const std::string message = "Größe: 3 Objekte — 日本語 ✓ 🙂";
  log(VNLogTypeDefault, message);
  const std::string withNul("a\0b", 3);
  log(VNLogTypeDefault, withNul);
  EXPECT_EQ(contents(logFile), "Setup[812]: " + message + "\nSetup[812]: " + withNul + "\n");
}

TEST_F(LoggingTest, ExistingFileKeepsItsLinesAndGetsMode0755) {
  VNWriteTestFile(logFile, "earlier line\n", 0600);
  ASSERT_EQ(permissions(logFile), 0600u);
  capture.baseSystem().setAnswer(true);
  log(VNLogTypeError, "later line");
  EXPECT_EQ(permissions(logFile), 0755u);
  EXPECT_EQ(contents(logFile), "earlier line\nSetup[812]: later line\n");
}

TEST_F(LoggingTest, NewFileGets0755WhateverTheUmask) {
  mode_t previous = ::umask(077);
  capture.baseSystem().setAnswer(true);
  log(VNLogTypeDebug, "opens only");
  ::umask(previous);
  EXPECT_EQ(permissions(logFile), 0755u);
}

TEST_F(LoggingTest, DisabledLevelSkipsUnifiedLogButStillWritesTheFile) {
  capture.baseSystem().setAnswer(true);
  capture.systemLog().setLevelEnabled(Level::Default, false);
  capture.systemLog().setLevelEnabled(Level::Debug, false);
  log(VNLogTypeDefault, "file only");
  log(VNLogTypeDebug, "nowhere");
  log(VNLogTypeError, "both");
  EXPECT_THAT(capture.systemLog().entries(), ElementsAre(IsEntry(Level::Error, "both")));
  EXPECT_EQ(contents(logFile), "Setup[812]: file only\nSetup[812]: both\n");
}

TEST_F(LoggingTest, FileThatCannotBeOpenedLosesLinesSilentlyAndIsNotRetried) {
  auto unopenable = std::make_shared<VNFakeLogFileLocation>(dir / "missing/folder/migration.log");
  VNPlatformOverride<VNLogFileLocation> location(unopenable);
  capture.baseSystem().setAnswer(true);
  for (int i = 0; i < 3; ++i) log(VNLogTypeError, "lost");
  EXPECT_EQ(unopenable->lookups(), 1);
  EXPECT_EQ(capture.systemLog().entries().size(), 3u) << "the unified log still gets every message";
  EXPECT_FALSE(exists(dir / "missing"));
}

TEST_F(LoggingTest, RemovedFileIsNeitherRecreatedNorReopened) {
  capture.baseSystem().setAnswer(true);
  log(VNLogTypeError, "first");
  ASSERT_EQ(::unlink(logFile.c_str()), 0);
  log(VNLogTypeError, "second");
  EXPECT_FALSE(exists(logFile));
  EXPECT_EQ(capture.logFileLocation().lookups(), 1);
}

TEST_F(LoggingTest, LeavingTheBaseSystemStopsLinesButKeepsTheFileOpen) {
  capture.baseSystem().setAnswer(true);
  log(VNLogTypeError, "inside");
  capture.baseSystem().setAnswer(false);
  log(VNLogTypeError, "outside");
  capture.baseSystem().setAnswer(true);
  log(VNLogTypeError, "inside again");
  EXPECT_EQ(contents(logFile), "Setup[812]: inside\nSetup[812]: inside again\n");
  EXPECT_EQ(capture.logFileLocation().lookups(), 1);
}

// Many threads race to log the process's first messages: the file is opened
// once, every line arrives, and no line is torn by another.
TEST_F(LoggingTest, ConcurrentFirstMessagesOpenTheFileOnceAndNeverInterleave) {
  capture.baseSystem().setAnswer(true);
  capture.logFileLocation().setLookupDelay(std::chrono::milliseconds(50));
  constexpr int kThreads = 16;
  constexpr int kMessages = 200;
  const std::string padding(3000, 'x');
  std::barrier start(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      start.arrive_and_wait();
      for (int m = 0; m < kMessages; ++m)
        log(m % 4 == 3 ? VNLogTypeDebug : VNLogTypeDefault,
            std::to_string(t) + "/" + std::to_string(m) + " " + padding);
    });
  }
  for (auto& thread : threads) thread.join();

  EXPECT_EQ(capture.logFileLocation().lookups(), 1);
  EXPECT_EQ(capture.systemLog().entries().size(), size_t{kThreads * kMessages});
  std::set<std::string> expected;
  for (int t = 0; t < kThreads; ++t)
    for (int m = 0; m < kMessages; ++m)
      if (m % 4 != 3) expected.insert("Setup[812]: " + std::to_string(t) + "/" + std::to_string(m) + " " + padding);
  std::istringstream lines(contents(logFile));
  std::multiset<std::string> seen;
  for (std::string line; std::getline(lines, line);) seen.insert(line);
  EXPECT_EQ(seen.size(), expected.size());
  EXPECT_TRUE(std::equal(seen.begin(), seen.end(), expected.begin(), expected.end()))
      << "a line is missing, doubled or torn";
}

// Every entry of the process's life goes to the log that was current at the
// first message: the channel is made once.
TEST_F(LoggingTest, ChannelStaysWithTheLogOfTheFirstMessage) {
  log(VNLogTypeError, "first");
  auto later = std::make_shared<VNRecordingSystemLog>();
  VNPlatformOverride<VNSystemLog> replaced(later);
  log(VNLogTypeError, "second");
  EXPECT_THAT(capture.systemLog().entries(),
              ElementsAre(IsEntry(Level::Error, "first"), IsEntry(Level::Error, "second")));
  EXPECT_THAT(later->entries(), IsEmpty());
}

}  // namespace
