// The Linux implementations behind VNLogging, run for real.
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <syslog.h>

#include "common/VNLogging.h"
#include "foundation/VNUniqueFd.h"
#include "platform/VNBaseSystem.h"
#include "platform/VNProcessInfo.h"
#include "platform/VNSystemLog.h"
#include "support/VNTest.h"

namespace {

// The exit status of a forked child running `body`, or -1 when it died.
template <typename Body>
int inChild(Body body) {
  pid_t child = ::fork();
  if (child == 0) {
    ::alarm(120);  // a hang would otherwise only show as the suite's time-out
    ::_exit(body());
  }
  int status = 0;
  if (child < 0 || ::waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

// In a private mount namespace, covers the journal's folder with an empty
// tmpfs and /dev/log with an empty file; false when that is not possible.
bool hideLogSockets(const std::string& emptyFile) {
  if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return false;
  if (VNExists("/run/systemd/journal") && ::mount("none", "/run/systemd/journal", "tmpfs", 0, nullptr) != 0)
    return false;
  if (VNExists("/dev/log") && ::mount(emptyFile.c_str(), "/dev/log", nullptr, MS_BIND, nullptr) != 0) return false;
  return !VNExists("/run/systemd/journal/socket");
}

constexpr int kCannotHide = 3;

TEST(LinuxSystemLog, DropsEntriesWithoutBlockingWhenNoJournalOrSyslogRuns) {
  VNTestDir dir;
  VNWriteTestFile(dir / "empty", "");
  int status = inChild([&] {
    if ((VNExists("/run/systemd/journal/socket") || VNExists("/dev/log")) && !hideLogSockets(dir / "empty"))
      return kCannotHide;
    auto log = VNSystemLog::makeDefault();
    VNSystemLogChannel channel(log, "org.varnel.test", "Journal");
    for (int i = 0; i < 2000; ++i) {
      for (auto level : {VNSystemLog::Level::Debug, VNSystemLog::Level::Error, VNSystemLog::Level::Fault}) {
        channel.log(level, std::string("nul\0inside\nand a newline", 24));
        log->log(level, "", "", "general log");
      }
      log->syslog(LOG_ERR, "syslog entry");
    }
    // The real services but the file, which stays in the test's folder
    // should this run inside an installer image.
    VNPlatformOverride<VNLogFileLocation> location(std::make_shared<VNFakeLogFileLocation>(dir / "migration.log"));
    VNLogging::logType(VNLogTypeError, "test", __LINE__, "through the default services");
    VNLogging::forceUsingSyslog();
    VNLogging::logType(VNLogTypeError, "test", __LINE__, "forced to syslog");
    return 0;
  });
  if (status == kCannotHide) GTEST_SKIP() << "a journal or syslog socket exists and cannot be hidden without root";
  EXPECT_EQ(status, 0);
}

// In a child with a private mount namespace and an empty /run, listens where
// the journal does, logs one entry per level and one to the general log, and
// passes each datagram back through a pipe after its 32-bit length.
std::vector<std::string> datagramsSentToTheJournal(const std::string& message) {
  int pipeFds[2];
  if (::pipe2(pipeFds, O_CLOEXEC) != 0) return {};
  VNUniqueFd readEnd(pipeFds[0]), writeEnd(pipeFds[1]);
  pid_t child = ::fork();
  if (child == 0) {
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
    std::string buffer(1 << 16, '\0');
    for (int i = 0; i < 4; ++i) {
      std::uint32_t length = static_cast<std::uint32_t>(::recv(listener.get(), buffer.data(), buffer.size(), 0));
      if (::write(writeEnd.get(), &length, 4) != 4 || ::write(writeEnd.get(), buffer.data(), length) != length)
        ::_exit(1);
    }
    ::_exit(0);
  }
  writeEnd.reset();
  std::string all;
  char chunk[4096];
  for (ssize_t got; (got = ::read(readEnd.get(), chunk, sizeof chunk)) > 0;) all.append(chunk, got);
  ::waitpid(child, nullptr, 0);
  std::vector<std::string> datagrams;
  for (size_t at = 0; at + 4 <= all.size();) {
    std::uint32_t length = 0;
    std::memcpy(&length, all.data() + at, 4);
    datagrams.push_back(all.substr(at + 4, length));
    at += 4 + length;
  }
  return datagrams;
}

// A value holding a newline travels as "NAME\n", its 64-bit little-endian
// length and the bytes; plain values as "NAME=value\n".
TEST(LinuxSystemLog, JournalEntriesCarryPriorityChannelAndTheWholeMessage) {
  if (::geteuid() != 0) GTEST_SKIP() << "listening where the journal does needs a mount namespace (root)";
  const std::string message = std::string("two\nlines, a NUL ") + '\0' + " and ü";
  auto datagrams = datagramsSentToTheJournal(message);
  ASSERT_EQ(datagrams.size(), 4u);
  std::uint64_t length = message.size();
  const std::string binaryMessage = "MESSAGE\n" + std::string(reinterpret_cast<const char*>(&length), 8) + message + "\n";
  const char* priorities[] = {"5", "3", "2"};
  for (int i = 0; i < 3; ++i) {
    for (const std::string& field : {binaryMessage, "\nPRIORITY=" + std::string(priorities[i]) + "\n",
                                     std::string("VARNEL_SUBSYSTEM=org.varnel.test\n"), std::string("VARNEL_CATEGORY=Journal\n")})
      EXPECT_NE(("\n" + datagrams[i]).find(field), std::string::npos) << testing::PrintToString(datagrams[i]);
  }
  EXPECT_NE(datagrams[3].find("MESSAGE=general\n"), std::string::npos);
  EXPECT_EQ(datagrams[3].find("VARNEL_SUBSYSTEM"), std::string::npos) << "the general log has no channel fields";
}

TEST(LinuxSystemLog, DebugIsOffUnlessAskedForAndOtherLevelsAreOn) {
  for (const char* setting : {static_cast<const char*>(nullptr), "0", "yes", "1"}) {
    if (setting) ::setenv("VARNEL_LOG_DEBUG", setting, 1);
    else ::unsetenv("VARNEL_LOG_DEBUG");
    auto log = VNSystemLog::makeDefault();
    EXPECT_EQ(log->isLevelEnabled(VNSystemLog::Level::Debug, "s", "c"), setting && std::string(setting) == "1");
    for (auto level : {VNSystemLog::Level::Default, VNSystemLog::Level::Error, VNSystemLog::Level::Fault})
      EXPECT_TRUE(log->isLevelEnabled(level, "s", "c"));
  }
  ::unsetenv("VARNEL_LOG_DEBUG");
}

TEST(LinuxBaseSystem, AnswersByTheMarkerFile) {
  VNTestDir dir;
  auto inside = [&](const char* marker) { return VNBaseSystem::makeWithMarker(dir / marker)->isBaseSystem("c"); };
  EXPECT_FALSE(inside("initrd-release"));
  VNWriteTestFile(dir / "initrd-release", "NAME=installer\n");
  ASSERT_EQ(::symlink("gone", (dir / "dangling").c_str()), 0);
  ASSERT_EQ(::symlink("initrd-release", (dir / "link").c_str()), 0);
  EXPECT_TRUE(inside("initrd-release"));
  EXPECT_FALSE(inside("dangling"));
  EXPECT_TRUE(inside("link"));
  EXPECT_EQ(VNBaseSystem::makeDefault()->isBaseSystem("c"), VNExists("/etc/initrd-release"));
}

TEST(LinuxProcessInfo, ReportsTheShortProgramNameAndTheCurrentPid) {
  auto info = VNProcessInfo::makeDefault();
  EXPECT_EQ(info->programName(), "test_common");
  EXPECT_EQ(info->processId(), ::getpid());
  EXPECT_EQ(inChild([&] { return info->processId() == ::getpid() && info->processId() != ::getppid() ? 0 : 1; }), 0)
      << "the pid must be asked afresh after fork";
}

}  // namespace
