// The Linux implementations behind VNLogging, run for real.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <cstring>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "common/VNLogging.h"
#include "foundation/VNUniqueFd.h"
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
    const std::string withNul = std::string("nul") + '\0' + "inside\nand a newline";
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

// Splits one datagram of the journal's native protocol into its fields:
// "NAME=value\n", or "NAME\n", a 64-bit little-endian length, the value and
// "\n" for values that hold a newline.
std::map<std::string, std::string> journalFields(const std::string& datagram) {
  std::map<std::string, std::string> fields;
  size_t at = 0;
  while (at < datagram.size()) {
    size_t end = datagram.find_first_of("=\n", at);
    if (end == std::string::npos) break;
    std::string name = datagram.substr(at, end - at);
    if (datagram[end] == '=') {
      size_t newline = datagram.find('\n', end);
      if (newline == std::string::npos) break;
      fields[name] = datagram.substr(end + 1, newline - end - 1);
      at = newline + 1;
    } else {
      std::uint64_t length = 0;
      if (datagram.size() - end - 1 < sizeof length) break;
      std::memcpy(&length, datagram.data() + end + 1, sizeof length);
      size_t valueAt = end + 1 + sizeof length;
      if (length > datagram.size() - valueAt) break;
      fields[name] = datagram.substr(valueAt, length);
      at = valueAt + length + 1;
    }
  }
  return fields;
}

// In a child with a private mount namespace and an empty /run, listens where
// the journal does, logs one entry per level and passes each datagram back
// through a pipe, each preceded by its 32-bit length.
std::vector<std::string> datagramsSentToTheJournal(const std::string& message) {
  int pipeFds[2];
  if (::pipe2(pipeFds, O_CLOEXEC) != 0) return {};
  VNUniqueFd readEnd(pipeFds[0]), writeEnd(pipeFds[1]);
  pid_t child = ::fork();
  if (child < 0) return {};
  if (child == 0) {
    ::alarm(120);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, "/run/systemd/journal/socket");
    VNUniqueFd listener(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("none", "/run", "tmpfs", 0, nullptr) != 0 || ::mkdir("/run/systemd", 0755) != 0 ||
        ::mkdir("/run/systemd/journal", 0755) != 0 ||
        ::bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
      ::_exit(1);
    auto log = VNSystemLog::makeDefault();
    VNSystemLogChannel channel(log, "org.varnel.test", "Journal");
    for (auto level : {VNSystemLog::Level::Default, VNSystemLog::Level::Error, VNSystemLog::Level::Fault})
      channel.log(level, message);
    log->log(VNSystemLog::Level::Default, "", "", "general");
    for (int i = 0; i < 4; ++i) {
      std::string buffer(1 << 16, '\0');
      ssize_t got = ::recv(listener.get(), buffer.data(), buffer.size(), 0);
      if (got < 0) ::_exit(1);
      std::uint32_t length = static_cast<std::uint32_t>(got);
      if (::write(writeEnd.get(), &length, sizeof length) != sizeof length ||
          ::write(writeEnd.get(), buffer.data(), length) != got)
        ::_exit(1);
    }
    ::_exit(0);
  }
  writeEnd.reset();
  std::string all;
  char chunk[4096];
  for (ssize_t got; (got = ::read(readEnd.get(), chunk, sizeof chunk)) > 0;) all.append(chunk, got);
  int status = 0;
  ::waitpid(child, &status, 0);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return {};
  std::vector<std::string> datagrams;
  for (size_t at = 0; at + 4 <= all.size();) {
    std::uint32_t length = 0;
    std::memcpy(&length, all.data() + at, 4);
    datagrams.push_back(all.substr(at + 4, length));
    at += 4 + length;
  }
  return datagrams;
}

TEST(LinuxSystemLog, JournalEntriesCarryPriorityChannelAndTheWholeMessage) {
  if (::geteuid() != 0) GTEST_SKIP() << "listening where the journal does needs a mount namespace (root)";
  const std::string message = std::string("two\nlines, a NUL ") + '\0' + " and ü";
  auto datagrams = datagramsSentToTheJournal(message);
  ASSERT_EQ(datagrams.size(), 4u);
  const char* priorities[] = {"5", "3", "2"};
  for (int i = 0; i < 3; ++i) {
    auto fields = journalFields(datagrams[i]);
    EXPECT_EQ(fields["MESSAGE"], message);
    EXPECT_EQ(fields["PRIORITY"], priorities[i]);
    EXPECT_EQ(fields["VARNEL_SUBSYSTEM"], "org.varnel.test");
    EXPECT_EQ(fields["VARNEL_CATEGORY"], "Journal");
  }
  auto general = journalFields(datagrams[3]);
  EXPECT_EQ(general["MESSAGE"], "general");
  EXPECT_EQ(general.count("VARNEL_SUBSYSTEM"), 0u) << "the general log has no channel fields";
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
