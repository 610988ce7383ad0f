#include <sys/wait.h>

#include "common/VNLogging.h"
#include "support/VNTest.h"

namespace {

// Sends every message nowhere, so the children below can log freely.
class SilentSystemLog final : public VNSystemLog {
 public:
  bool isLevelEnabled(Level, std::string_view, std::string_view) override { return true; }
  void log(Level, std::string_view, std::string_view, std::string_view) override {}
  void syslog(int, std::string_view) override {}
};

// In a child: two detached threads log without pause while the main thread
// leaves through exit(), which runs the static destructors under them.
[[noreturn]] void logWhileExiting() {
  VNPlatformSlot<VNSystemLog>::set(std::make_shared<SilentSystemLog>());
  VNPlatformSlot<VNBaseSystem>::set(std::make_shared<VNFakeBaseSystem>());
  for (int t = 0; t < 2; ++t)
    std::thread([] {
      for (;;) VNLogging::logType(VNLogTypeDefault, "logger", __LINE__, "still running");
    }).detach();
  std::this_thread::sleep_for(std::chrono::microseconds(200));
  std::exit(0);
}

}  // namespace

TEST(VNLoggingAtExit, ThreadsStillLoggingWhileTheProcessExitsDoNotCrashIt) {
  constexpr int kRuns = 300;
  int crashed = 0;
  for (int run = 0; run < kRuns; ++run) {
    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) logWhileExiting();
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    crashed += !(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }
  EXPECT_EQ(crashed, 0) << "of " << kRuns << " runs";
}
