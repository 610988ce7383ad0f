#include <barrier>
#include <sstream>

#include "common/VNLogging.h"
#include "support/VNTest.h"

namespace {

using Level = VNSystemLog::Level;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

MATCHER_P2(IsEntry, level, text, "") {
  return arg.level == level && arg.text == text && arg.subsystem == "org.varnel.kes.install" &&
         arg.category == "Varnel";
}
// The installation facility at level error.
MATCHER_P(IsForcedSyslog, text, "") { return arg.priority == 115 && arg.text == text; }

void log(VNLogType type, std::string_view message) { VNLogging::logType(type, "void test(void)", __LINE__, message); }

class LoggingTest : public ::testing::Test {
 protected:
  VNTestDir dir;
  std::string logFile = dir / "migration.log";
  VNLogCapture capture{logFile};
};

// Types 0 to 2 reach the file as "program[pid]: message", whole; any type
// opens it (mode 0755 whatever the umask or its earlier mode); every type
// reaches the unified log at its level; disabled levels skip only that log.
TEST_F(LoggingTest, InTheBaseSystemTypesZeroToTwoReachTheFile) {
  VNWriteTestFile(logFile, "earlier line\n", 0600);
  mode_t previous = ::umask(077);
  capture.baseSystem().setAnswer(true);
  log(VNLogTypeDebug, "opens only");
  ::umask(previous);
  EXPECT_THAT(logFile, HasMode(0755));
  EXPECT_EQ(VNReadTestFile(logFile), "earlier line\n");
  capture.systemLog().setLevelEnabled(Level::Fault, false);
  const std::string nonAscii = "Größe: 3 Objekte — 日本語 ✓ 🙂", withNul("a\0b", 3);
  VNLogging::logType(VNLogTypeDefault, "-[VNTask run]", 4711, nonAscii);
  for (VNLogType type : {VNLogType{0}, VNLogType{1}, VNLogType{3}, VNLogType{4}, VNLogType{7}, VNLogType{UINT64_MAX}})
    log(type, "t" + std::to_string(type));
  log(VNLogTypeError, withNul);
  EXPECT_EQ(VNReadTestFile(logFile),
            "earlier line\nSetup[812]: " + nonAscii + "\nSetup[812]: t0\nSetup[812]: t1\nSetup[812]: " + withNul + "\n");
  EXPECT_THAT(capture.systemLog().entries(),
              ElementsAre(IsEntry(Level::Debug, "opens only"), IsEntry(Level::Default, nonAscii),
                          IsEntry(Level::Error, "t0"), IsEntry(Level::Debug, "t3"), IsEntry(Level::Default, "t4"),
                          IsEntry(Level::Default, "t7"), IsEntry(Level::Default, "t" + std::to_string(UINT64_MAX)),
                          IsEntry(Level::Error, withNul)));
}

// Forced before the first message: debug is dropped, the rest goes to
// syslog only; no question is asked and no file made. Forced later: the
// unified log and the file get nothing more.
TEST_F(LoggingTest, ForcedSyslogTakesEveryMessageButDebug) {
  capture.baseSystem().setAnswer(true);
  VNLogging::forceUsingSyslog();
  for (VNLogType type : {VNLogType{3}, VNLogType{0}, VNLogType{1}, VNLogType{2}, VNLogType{7}})
    log(type, "t" + std::to_string(type));
  EXPECT_THAT(capture.systemLog().syslogEntries(), ElementsAre(IsForcedSyslog("t0"), IsForcedSyslog("t1"),
                                                               IsForcedSyslog("t2"), IsForcedSyslog("t7")));
  EXPECT_THAT(capture.systemLog().entries(), IsEmpty());
  EXPECT_EQ(capture.baseSystem().questions(), 0);
  EXPECT_EQ(capture.logFileLocation().lookups(), 0);
  EXPECT_FALSE(VNExists(logFile));
}

TEST_F(LoggingTest, ForcedAfterTheFirstMessageLeavesUnifiedLogAndFileAlone) {
  capture.baseSystem().setAnswer(true);
  log(7, "before");
  VNLogging::forceUsingSyslog();
  log(0, "after");
  EXPECT_THAT(capture.systemLog().syslogEntries(), ElementsAre(IsForcedSyslog("after")));
  EXPECT_EQ(capture.systemLog().entries().size(), 1u);
  EXPECT_EQ(VNReadTestFile(logFile), "");
}

TEST_F(LoggingTest, OutsideBaseSystemTheFileIsNeverOpenedButTheQuestionIsAskedEachTime) {
  for (VNLogType type = 0; type < 5; ++type) log(type, "outside");
  EXPECT_EQ(capture.systemLog().entries().size(), 5u);
  EXPECT_EQ(capture.baseSystem().questions(), 5);
  EXPECT_EQ(capture.baseSystem().lastClientIdentifier(), "org.varnel.Varnel");
  EXPECT_EQ(capture.logFileLocation().lookups(), 0);
  EXPECT_FALSE(VNExists(logFile));
}

// The file is opened once: a removed file is not made again, leaving the
// base system for a while keeps it open, and one that cannot be opened
// loses its lines silently.
TEST_F(LoggingTest, TheFileIsOpenedOnceForTheProcess) {
  capture.baseSystem().setAnswer(true);
  log(VNLogTypeError, "inside");
  capture.baseSystem().setAnswer(false);
  log(VNLogTypeError, "outside");
  capture.baseSystem().setAnswer(true);
  log(VNLogTypeError, "inside again");
  EXPECT_EQ(VNReadTestFile(logFile), "Setup[812]: inside\nSetup[812]: inside again\n");
  ASSERT_EQ(::unlink(logFile.c_str()), 0);
  log(VNLogTypeError, "gone");
  EXPECT_FALSE(VNExists(logFile));
  EXPECT_EQ(capture.logFileLocation().lookups(), 1);
}

TEST_F(LoggingTest, FileThatCannotBeOpenedLosesLinesSilentlyAndIsNotRetried) {
  auto unopenable = std::make_shared<VNFakeLogFileLocation>(dir / "missing/folder/migration.log");
  VNPlatformOverride<VNLogFileLocation> location(unopenable);
  capture.baseSystem().setAnswer(true);
  for (int i = 0; i < 3; ++i) log(VNLogTypeError, "lost");
  EXPECT_EQ(unopenable->lookups(), 1);
  EXPECT_EQ(capture.systemLog().entries().size(), 3u);
  EXPECT_FALSE(VNExists(dir / "missing"));
}

// Many threads race to log the process's first messages: the file is opened
// once, every line arrives, and no line is torn by another.
TEST_F(LoggingTest, ConcurrentFirstMessagesOpenTheFileOnceAndNeverInterleave) {
  capture.baseSystem().setAnswer(true);
  capture.logFileLocation().setLookupDelay(std::chrono::milliseconds(50));
  constexpr int kThreads = 16, kMessages = 200;
  const std::string padding(3000, 'x');
  std::barrier start(kThreads);
  std::vector<std::thread> threads;
  std::multiset<std::string> expected;
  for (int t = 0; t < kThreads; ++t) {
    for (int m = 0; m < kMessages; ++m)
      if (m % 4 != 3) expected.insert("Setup[812]: " + std::to_string(t) + "/" + std::to_string(m) + " " + padding);
    threads.emplace_back([&, t] {
      start.arrive_and_wait();
      for (int m = 0; m < kMessages; ++m)
        log(m % 4 == 3 ? VNLogTypeDebug : VNLogTypeDefault, std::to_string(t) + "/" + std::to_string(m) + " " + padding);
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(capture.logFileLocation().lookups(), 1);
  EXPECT_EQ(capture.systemLog().entries().size(), size_t{kThreads * kMessages});
  std::istringstream lines(VNReadTestFile(logFile));
  std::multiset<std::string> seen;
  for (std::string line; std::getline(lines, line);) seen.insert(line);
  EXPECT_TRUE(seen == expected) << "a line is missing, doubled or torn";
}

// Every entry of the process's life goes to the log that was current at the
// first message: the channel is made once.
TEST_F(LoggingTest, ChannelStaysWithTheLogOfTheFirstMessage) {
  log(VNLogTypeError, "first");
  auto later = std::make_shared<VNRecordingSystemLog>();
  VNPlatformOverride<VNSystemLog> replaced(later);
  log(VNLogTypeError, "second");
  EXPECT_THAT(capture.systemLog().entries(), ElementsAre(IsEntry(Level::Error, "first"), IsEntry(Level::Error, "second")));
  EXPECT_THAT(later->entries(), IsEmpty());
}

}  // namespace
