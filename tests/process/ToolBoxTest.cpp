// Signalling: the three messages, identifiers that must never reach kill,
// lookup by name over processes this test started, and the /proc readers.
#include <signal.h>
#include <sys/wait.h>

#include "ProcessTestSupport.h"
#include "platform/VNProcessLookup.h"
#include "platform/internal/VNProcFields.h"
#include "process/VNToolBox.h"
#include "support/VNTest.h"

using Level = VNSystemLog::Level;

namespace {

class ToolBoxTest : public ProcessTest {
 protected:
  // Starts a copy of sleep named `name` (a name no other process has).
  pid_t startNamed(const std::string& name) {
    const std::string path = dir_ / name;
    if (!std::filesystem::exists(path)) std::filesystem::copy_file("/bin/sleep", path);
    const pid_t pid = ::fork();
    if (pid == 0) {
      ::execl(path.c_str(), name.c_str(), "30", static_cast<char*>(nullptr));
      ::_exit(127);
    }
    children_.push_back(pid);
    return pid;
  }
  void waitUntilNamed(pid_t pid, const std::string& name) {
    for (int i = 0; i < 500 && VNParseCommandName(VNReadTestFile("/proc/" + std::to_string(pid) + "/comm")) != name; ++i)
      ::usleep(2000);
  }
  ~ToolBoxTest() override {
    for (pid_t pid : children_) {
      ::kill(pid, SIGKILL);
      ::waitpid(pid, nullptr, 0);
    }
  }
  std::vector<pid_t> children_;
};

TEST_F(ToolBoxTest, IdentifiersZeroAndBelowNeverReachKill) {
  for (int pid : {0, -1, -12345}) {
    VNLogCapture capture(dir_ / "case.log");
    VNToolBox::sendSignal(SIGKILL, "init", pid);
    const auto entries = capture.systemLog().entries();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].level, Level::Fault);
    EXPECT_EQ(entries[0].text, "Process init (" + std::to_string(pid) + ") is not a running process");
  }
}

TEST_F(ToolBoxTest, ReportsKillsOutcomeWithErrno) {
  const pid_t child = startNamed("vnt-probe");
  VNToolBox::sendSignal(0, "probe", child);
  VNToolBox::sendSignal(1000, "probe", child);
  const pid_t gone = ::fork();
  if (gone == 0) ::_exit(0);
  ::waitpid(gone, nullptr, 0);
  VNToolBox::sendSignal(SIGTERM, "gone", gone);
  const std::string id = std::to_string(child);
  EXPECT_EQ(lines(), (std::vector<LogLine>{
                         {Level::Fault, "Signal 0 sent to probe (" + id + ")"},
                         {Level::Fault, "Could not send signal (1000) to process probe (" + id + "): 22"},
                         {Level::Fault, "Could not send signal (15) to process gone (" +
                                            std::to_string(gone) + "): 3"},
                     }));
}

TEST_F(ToolBoxTest, SignalsEveryProcessOfANameInOrder) {
  const std::string name = "vnt" + std::to_string(::getpid());
  std::vector<pid_t> pids{startNamed(name), startNamed(name), startNamed(name)};
  for (pid_t pid : pids) waitUntilNamed(pid, name);
  VNToolBox::sendSignalToAllProcesses(0, name);
  std::vector<LogLine> expected;
  for (pid_t pid : pids)
    expected.push_back({Level::Fault, "Signal 0 sent to " + name + " (" + std::to_string(pid) + ")"});
  EXPECT_EQ(lines(), expected);

  VNToolBox::sendSignal(SIGTERM, name);
  int status = 0;
  ASSERT_EQ(::waitpid(pids.front(), &status, 0), pids.front()) << "the lowest identifier is picked";
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM);
}

TEST_F(ToolBoxTest, NamesThatCannotMatchFindNothing) {
  auto lookup = VNMakeProcessLookup("/proc");
  for (const std::string name : {"", "/bin/sleep", "a/b", "..", "no-such-process-name-of-any-length"})
    EXPECT_TRUE(lookup->processIdentifiersForName(name).empty()) << name;
  VNToolBox::sendSignalToAllProcesses(SIGKILL, "a/b");
  VNToolBox::sendSignal(SIGKILL, "a/b");
  EXPECT_EQ(lines(), (std::vector<LogLine>{{Level::Fault, "Process a/b (0) is not a running process"}}));
}

TEST_F(ToolBoxTest, ALongNameMatchesThroughTheExecutable) {
  const std::string name = "vnt-long-name-" + std::to_string(::getpid());
  const pid_t pid = startNamed(name);
  waitUntilNamed(pid, name.substr(0, 15));
  EXPECT_EQ(VNMakeProcessLookup("/proc")->processIdentifiersForName(name), std::vector<pid_t>{pid});
  EXPECT_EQ(VNMakeProcessLookup("/proc")->processIdentifiersForName(name.substr(0, 15)),
            std::vector<pid_t>{pid});
}

TEST(ProcFieldsTest, ReadsOnlyWellFormedValues) {
  const std::pair<const char*, pid_t> identifiers[] = {
      {"1", 1}, {"4194304", 4194304}, {"self", 0}, {"012", 0}, {"", 0}, {"-3", 0}, {"99999999999", 0}};
  for (auto [entry, pid] : identifiers) EXPECT_EQ(VNParseProcessIdentifier(entry), pid) << entry;
  EXPECT_EQ(VNParseCommandName("sleep\n"), "sleep");
  EXPECT_EQ(VNParseCommandName(std::string("a\0b\n", 4)), "");
  EXPECT_EQ(VNExecutableBaseName("/usr/bin/sleep (deleted)"), "sleep");
  EXPECT_EQ(VNExecutableBaseName(""), "");
}

}  // namespace
