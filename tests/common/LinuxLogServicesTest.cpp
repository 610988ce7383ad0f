// The Linux implementations behind VNLogging, run for real.
#include <errno.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "common/VNLogging.h"
#include "platform/VNBaseSystem.h"
#include "platform/VNProcessInfo.h"
#include "platform/VNSystemLog.h"
#include "support/VNLogCapture.h"
#include "support/VNTestDir.h"

namespace {

bool exists(const char* path) {
  struct stat st {};
  return ::lstat(path, &st) == 0;
}

// Makes the journal's and syslog's sockets unreachable for this process:
// in a private mount namespace, an empty tmpfs over the journal's folder and
// an empty file over /dev/log. Returns false when that is not possible.
bool hideLogSockets(const std::string& emptyFile) {
  if (::unshare(CLONE_NEWNS) != 0) return false;
  if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return false;
  if (exists("/run/systemd/journal") &&
      ::mount("none", "/run/systemd/journal", "tmpfs", 0, nullptr) != 0)
    return false;
  if (exists("/dev/log") && ::mount(emptyFile.c_str(), "/dev/log", nullptr, MS_BIND, nullptr) != 0)
    return false;
  return !exists("/run/systemd/journal/socket");
}

// Exit codes of the child below.
constexpr int kChildDone = 0;
constexpr int kChildCannotHide = 3;

TEST(LinuxSystemLog, DropsEntriesWithoutBlockingWhenNoJournalOrSyslogRuns) {
  VNTestDir dir;
  const std::string emptyFile = dir / "empty";
  VNWriteTestFile(emptyFile, "");
  pid_t child = ::fork();
  ASSERT_GE(child, 0) << "fork: " << std::strerror(errno);
  if (child == 0) {
    bool socketsAbsent = !exists("/run/systemd/journal/socket") && !exists("/dev/log");
    if (!socketsAbsent && !hideLogSockets(emptyFile)) ::_exit(kChildCannotHide);
    // A hang would otherwise only show as the suite's time-out.
    ::alarm(120);
    auto log = VNSystemLog::makeDefault();
    VNSystemLogChannel channel(log, "org.varnel.test", "Journal");
    const std::string withNul("nul\0inside\nand a newline", 25);
    for (int i = 0; i < 2000; ++i) {
      for (auto level : {VNSystemLog::Level::Debug, VNSystemLog::Level::Default,
                         VNSystemLog::Level::Error, VNSystemLog::Level::Fault}) {
        channel.log(level, withNul);
        log->log(level, "", "", "general log");
      }
      log->syslog(LOG_ERR, "syslog entry");
    }
    // The real services but the file, which stays inside the test's folder
    // should this run inside an installer image.
    VNPlatformOverride<VNLogFileLocation> location(
        std::make_shared<VNFakeLogFileLocation>(dir / "migration.log"));
    VNLogging::logType(VNLogTypeError, "test", __LINE__, "through the default services");
    VNLogging::forceUsingSyslog();
    VNLogging::logType(VNLogTypeError, "test", __LINE__, "forced to syslog");
    ::_exit(kChildDone);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  if (WIFEXITED(status) && WEXITSTATUS(status) == kChildCannotHide)
    GTEST_SKIP() << "a journal or syslog socket exists and cannot be hidden without root";
  ASSERT_TRUE(WIFEXITED(status)) << "the child died with signal " << WTERMSIG(status);
  EXPECT_EQ(WEXITSTATUS(status), kChildDone);
}

TEST(LinuxSystemLog, DebugIsOffUnlessAskedForAndOtherLevelsAreOn) {
  for (const char* setting : {static_cast<const char*>(nullptr), "0", "yes", "1"}) {
    if (setting)
      ::setenv("VARNEL_LOG_DEBUG", setting, 1);
    else
      ::unsetenv("VARNEL_LOG_DEBUG");
    auto log = VNSystemLog::makeDefault();
    bool wanted = setting && std::string(setting) == "1";
    EXPECT_EQ(log->isLevelEnabled(VNSystemLog::Level::Debug, "s", "c"), wanted) << (setting ? setting : "unset");
    for (auto level : {VNSystemLog::Level::Default, VNSystemLog::Level::Error, VNSystemLog::Level::Fault})
      EXPECT_TRUE(log->isLevelEnabled(level, "s", "c"));
  }
  ::unsetenv("VARNEL_LOG_DEBUG");
}

TEST(LinuxBaseSystem, AnswersByTheMarkerFile) {
  VNTestDir dir;
  EXPECT_FALSE(VNBaseSystem::makeWithMarker(dir / "initrd-release")->isBaseSystem("org.varnel.Varnel"));
  VNWriteTestFile(dir / "initrd-release", "NAME=installer\n");
  EXPECT_TRUE(VNBaseSystem::makeWithMarker(dir / "initrd-release")->isBaseSystem("org.varnel.Varnel"));
  ASSERT_EQ(::symlink("gone", (dir / "dangling").c_str()), 0);
  EXPECT_FALSE(VNBaseSystem::makeWithMarker(dir / "dangling")->isBaseSystem("org.varnel.Varnel"));
  ASSERT_EQ(::symlink("initrd-release", (dir / "link").c_str()), 0);
  EXPECT_TRUE(VNBaseSystem::makeWithMarker(dir / "link")->isBaseSystem("org.varnel.Varnel"));
  EXPECT_EQ(VNBaseSystem::makeDefault()->isBaseSystem("org.varnel.Varnel"),
            exists("/etc/initrd-release"));
}

TEST(LinuxProcessInfo, ReportsTheShortProgramNameAndTheCurrentPid) {
  auto info = VNProcessInfo::makeDefault();
  EXPECT_EQ(info->programName(), "test_common");
  EXPECT_EQ(info->processId(), ::getpid());

  pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) ::_exit(info->processId() == ::getpid() && info->processId() != ::getppid() ? 0 : 1);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the pid must be asked afresh after fork";
}

}  // namespace
