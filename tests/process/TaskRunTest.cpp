// Running a program: exit statuses, failures to launch, the launcher and its
// effect, and progress tracking with short estimates.
#include "ProcessTestSupport.h"
#include "platform/VNResources.h"
#include "process/VNTask.h"
#include "support/VNTest.h"

using Level = VNSystemLog::Level;

namespace {

class TaskRunTest : public ProcessTest {};

// run() tells whether the exit status is zero; a program that cannot be
// launched leaves the status as it was, with one line.
TEST_F(TaskRunTest, ExitStatusesAndFailuresToLaunch) {
  for (int status : {0, 1, 7, 255}) {
    auto runner = VNTask::initWithTask(shell("exit " + std::to_string(status)), /*allowWARD=*/true);
    EXPECT_EQ(runner->run(), status == 0);
    EXPECT_EQ(runner->terminationStatus(), status);
  }
  VNWriteTestFile(dir_ / "not-executable", "#!/bin/sh\n", 0644);
  for (const std::string& path : {dir_ / "missing", dir_ / "not-executable", dir_.path()}) {
    VNLogCapture capture(dir_ / "case.log");
    auto child = VNChildProcess::create();
    child->setLaunchPath(path);
    auto runner = VNTask::initWithTask(child, /*allowWARD=*/true);
    runner->setTerminationStatus(42);
    EXPECT_FALSE(runner->run());
    EXPECT_EQ(runner->terminationStatus(), 42);
    const auto texts = capture.systemLog().texts(Level::Default);
    ASSERT_EQ(capture.systemLog().entries().size(), 1u) << path;
    ASSERT_EQ(texts.size(), 1u);
    EXPECT_TRUE(texts[0].starts_with("Exception thrown while executing " + path + ": cannot launch")) << texts[0];
  }
}

TEST_F(TaskRunTest, DefaultRunnerGoesThroughTheLauncherAndKeepsTheProgramsPrefix) {
  auto child = shell("echo \"$0 $1\"");
  auto runner = VNTask::initWithTask(child);
  ASSERT_NE(runner->task(), nullptr);
  EXPECT_TRUE(runner->task()->launchPath().ends_with("/Tools/drop_ward"));
  EXPECT_EQ(runner->task()->arguments(), (std::vector<std::string>{"/bin/sh", "-c", "echo \"$0 $1\""}));
  EXPECT_EQ(runner->logPrefix(), "/bin/sh: ");
  EXPECT_TRUE(runner->run());
  EXPECT_EQ(textsAt(Level::Default).front(), "/bin/sh: /bin/sh ");
}

// The observable difference the launcher makes: a program started directly
// has CAP_LINUX_IMMUTABLE gone from its bounding set; one started through
// drop_ward keeps it and holds it as an ambient capability.
TEST_F(TaskRunTest, OnlyTheLauncherLetsTheProgramKeepTheImmutableCapability) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root: the capability is dropped only by root";
  auto capabilities = [&](bool allowWARD) {
    VNLogCapture capture(dir_ / "case.log");
    auto runner = VNTask::initWithTask(shell("grep -E '^Cap(Bnd|Amb)' /proc/self/status"), allowWARD);
    EXPECT_TRUE(runner->run());
    std::string all;
    for (const auto& entry : capture.systemLog().entries()) all += entry.text + "\n";
    return all;
  };
  const std::string protectedRun = capabilities(/*allowWARD=*/true);
  const std::string launched = capabilities(/*allowWARD=*/false);
  const auto bit = [](const std::string& text, const std::string& field) {
    const size_t at = text.find(field + ":\t");
    return (std::stoull(text.substr(at + field.size() + 2, 16), nullptr, 16) >> 9) & 1;
  };
  EXPECT_EQ(bit(protectedRun, "CapBnd"), 0u) << protectedRun;
  EXPECT_EQ(bit(launched, "CapBnd"), 1u) << launched;
  EXPECT_EQ(bit(launched, "CapAmb"), 1u) << launched;
}

TEST_F(TaskRunTest, AMissingLauncherLeavesNoProgramAndOneErrorLine) {
  ::setenv(VNResourcesDirectoryVariable, dir_.path().c_str(), 1);
  auto child = shell("exit 0");
  auto runner = VNTask::initWithTask(child);
  ::unsetenv(VNResourcesDirectoryVariable);
  EXPECT_EQ(runner->task(), nullptr);
  EXPECT_EQ(child->arguments(), (std::vector<std::string>{"/bin/sh", "-c", "exit 0"}));
  EXPECT_EQ(lines(), (std::vector<LogLine>{{Level::Error, "Unable to locate drop_ward launcher"}}));
  EXPECT_FALSE(runner->run()) << "nothing ran, so nothing succeeded";
}

struct Tracked {
  std::shared_ptr<VNProgress> parent = VNProgress::create(100);
  std::shared_ptr<VNQueue> queue = VNQueue::create("test.progress");
};

std::shared_ptr<VNTask> trackedRunner(const std::string& script, double estimate, double pending,
                                      const Tracked& tracked) {
  auto runner = VNTask::initWithTask(ProcessTest::shell(script), /*allowWARD=*/true);
  runner->setEstimatedTimeToComplete(estimate);
  runner->setParentProgress(tracked.parent);
  runner->setParentProgressPendingUnits(pending);
  runner->setParentProgressQueue(tracked.queue);
  return runner;
}

TEST_F(TaskRunTest, AnEarlyExitCompletesTheChildAndAdvancesTheParentByItsPendingUnits) {
  Tracked tracked;
  auto runner = trackedRunner("exit 0", 10.0, 5.0, tracked);
  EXPECT_TRUE(runner->run());
  EXPECT_EQ(tracked.parent->completedUnitCount(), 5);
  const auto debug = textsAt(Level::Debug);
  ASSERT_GE(debug.size(), 2u);
  EXPECT_TRUE(debug.front().starts_with(
      "Progress info: Task (/bin/sh) progress added [Expected: 5.000000 - (5.000000 | 1 unit each)]: \n"));
  EXPECT_NE(debug.front().find("0 of 10"), std::string::npos) << debug.front();
  EXPECT_TRUE(debug.back().starts_with("Progress info: Task (/bin/sh) progress finish confirmed: \n"));
}

TEST_F(TaskRunTest, IncompleteOrFractionalSettingsSwitchTrackingOff) {
  struct Case {
    double estimate, pending;
    bool withQueue;
  };
  for (const Case& c : {Case{0.0, 5, true}, Case{-1.0, 5, true}, Case{10, 0.5, true}, Case{10, 5, false}}) {
    VNLogCapture capture(dir_ / "case.log");
    Tracked tracked;
    auto runner = trackedRunner("exit 0", c.estimate, c.pending, tracked);
    if (!c.withQueue) runner->setParentProgressQueue(nullptr);
    EXPECT_TRUE(runner->run());
    EXPECT_EQ(tracked.parent->completedUnitCount(), 0);
    for (const auto& entry : capture.systemLog().entries()) EXPECT_NE(entry.level, Level::Debug);
  }
}

// Estimate 2.9 gives a total of 2; a program running past its estimate of
// one unit is held at its total, logged as already at max.
TEST_F(TaskRunTest, TicksNeverPassTheTotalWhileTheProgramRuns) {
  Tracked tracked;
  auto runner = trackedRunner("sleep 1.3", 1.9, 3.0, tracked);
  EXPECT_TRUE(runner->run());
  EXPECT_EQ(tracked.parent->completedUnitCount(), 3);
  const auto debug = textsAt(Level::Debug);
  EXPECT_NE(std::find_if(debug.begin(), debug.end(), [](const std::string& text) {
              return text.starts_with("Progress info: Task (/bin/sh) progress updated: \n");
            }), debug.end());
  EXPECT_NE(std::find_if(debug.begin(), debug.end(), [](const std::string& text) {
              return text.starts_with(
                  "Progress info: Task (/bin/sh) progress not updated as it is already at max: \n");
            }), debug.end());

  Tracked second;
  auto fractional = trackedRunner("exit 0", 2.9, 1.0, second);
  EXPECT_TRUE(fractional->run());
  EXPECT_NE(textsAt(Level::Debug).back().find("2 of 2"), std::string::npos);
}

// Many short runs whose first tick races the program's exit: run under the
// thread sanitizer (build-thread) this is where a data race would show.
TEST_F(TaskRunTest, TicksRacingTheExitLeaveTheProgressComplete) {
  Tracked tracked;
  tracked.parent->setTotalUnitCount(40);
  for (int i = 0; i < 20; ++i) {
    auto runner = trackedRunner(i % 2 ? "exit 0" : "echo x", 5.0, 2.0, tracked);
    EXPECT_TRUE(runner->run());
  }
  EXPECT_EQ(tracked.parent->completedUnitCount(), 40);
}

}  // namespace
