// varnel run, signal and nvram as a user meets them: exit statuses, what
// reaches stderr, and refusals that must never hang or write anything.
#include <signal.h>
#include <sys/wait.h>

#include "support/VNTest.h"
#include "support/VNToolRun.h"

namespace {

struct ToolCase {
  const char* arguments;
  int status;
  const char* errContains;
};

TEST(ProcessTool, ExitStatusesAndMessages) {
  const ToolCase cases[] = {
      {"run -- /bin/sh -c 'echo hello; echo oops >&2; exit 3'", 3, "/bin/sh: oops"},
      {"run -- /bin/sh -c 'printf \"\\377\\n\"'", 0, "Unable to process output from"},
      {"run -- /no/such/program", 1, "cannot run '/no/such/program': No such file"},
      {"run --keep-protection -- /dev/null", 1, "cannot run '/dev/null': Permission denied"},
      {"run -- /tmp", 1, "cannot run '/tmp': Permission denied"},
      {"run --estimate -1 -- /bin/true", 2, "--estimate must not be negative"},
      {"run", 2, "PROGRAM"},
      {"signal NOSUCH init", 2, "unknown signal 'NOSUCH'"},
      {"signal 99999 init", 2, "unknown signal"},
      {"signal TERM --pid 1 --all init", 2, "exclude each other"},
      {"signal TERM", 2, "NAME or --pid"},
      {"signal TERM --pid 0", 0, "is not a running process"},
      {"signal TERM --pid -1", 0, "is not a running process"},
      {"signal 0 no/such", 0, "is not a running process"},
      {"nvram set", 2, "NAME"},
  };
  for (const ToolCase& c : cases) {
    VNToolRun run = VNRunVarnel(c.arguments);
    EXPECT_EQ(run.status, c.status) << c.arguments << "\n" << run.err;
    EXPECT_NE(run.err.find(c.errContains), std::string::npos) << c.arguments << "\n" << run.err;
    EXPECT_EQ(run.out, "") << c.arguments << ": everything the tool says goes to stderr";
  }
}

TEST(ProcessTool, SignalReachesTheProcessByIdentifierAndByName) {
  // A copy of sleep under a name no other process has, so --all touches only it.
  VNTestDir dir;
  const std::string name = "vnsig" + std::to_string(::getpid());
  const std::string program = dir / name;
  ASSERT_EQ(VNRunCommand("cp /bin/sleep '" + program + "'"), 0);
  for (const std::string how : {"--pid", "", "--all"}) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      ::execl(program.c_str(), name.c_str(), "30", static_cast<char*>(nullptr));
      ::_exit(127);
    }
    const std::string target = how == "--pid" ? std::to_string(child) : name;
    VNToolRun run;
    // The lookup by name sees the child only once it has executed the copy.
    for (int attempt = 0; attempt < 100; ++attempt) {
      run = VNRunVarnel("signal TERM " + how + " " + target);
      if (run.err.find("Signal 15 sent to") != std::string::npos) break;
      ::usleep(20000);
    }
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.err.find("Signal 15 sent to"), std::string::npos) << how << ": " << run.err;
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << how;
  }
}

TEST(ProcessTool, RunWithAnEstimateOnATerminalEndsAndDrawsTheBar) {
  if (VNRunCommand("command -v script >/dev/null") != 0) GTEST_SKIP() << "script(1) is missing";
  // script gives the tool a terminal, so the progress bar is drawn; a relay
  // that waits on the bar or the tick after the program ended would hang here.
  std::string output;
  const int status = VNRunCommand(
      "timeout 20 script -qec \"" VARNEL_BINARY_DIR
      "/tools/varnel/varnel run --estimate 2 -- /bin/sh -c 'echo first; sleep 1.2; echo last'\" "
      "/dev/null",
      &output);
  EXPECT_EQ(status, 0) << output;
  EXPECT_NE(output.find("/bin/sh: first"), std::string::npos) << output;
  EXPECT_NE(output.find("/bin/sh: last"), std::string::npos) << output;
  EXPECT_NE(output.find("% of ~2s"), std::string::npos) << output;
}

TEST(ProcessTool, NvramWithoutFirmwareVariablesFailsWithTheReason) {
  if (::access("/sys/firmware/efi/efivars", F_OK) == 0)
    GTEST_SKIP() << "this machine has firmware variables; the tool must not write real ones here";
  VNToolRun run = VNRunVarnel("nvram set test-name value");
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.err.find("no firmware variables"), std::string::npos) << run.err;
}

}  // namespace
