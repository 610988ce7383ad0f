// How the runner relays a program's output: line splitting per chunk, text
// that is not UTF-8, both streams on one pipe, large output without newlines,
// and what a program leaves behind.
#include <signal.h>

#include "ProcessTestSupport.h"
#include "process/VNTask.h"
#include "support/VNTest.h"

using Level = VNSystemLog::Level;

namespace {

class TaskOutputTest : public ProcessTest {};

// Each chunk is split on its own, every line at the default level; a chunk
// that is not UTF-8 is dropped with one fault.
TEST_F(TaskOutputTest, SplitsEachChunkOnItsOwnAndDropsOneThatIsNotUTF8) {
  const std::pair<std::string, std::vector<std::string>> cases[] = {
      {"a\nb\n", {"P: a", "P: b", "P: "}},
      {"no newline", {"P: no newline"}},
      {"\n\n", {"P: ", "P: ", "P: "}},
      {"caf\xc3\xa9\n", {"P: caf\xc3\xa9", "P: "}},
      {"", {}},
  };
  for (const auto& [chunk, expected] : cases) {
    VNLogCapture capture(dir_ / "case.log");
    auto runner = VNTask::initWithTask(shell("true"), /*allowWARD=*/true);
    runner->setLogPrefix("P: ");
    runner->processOutput(chunk);
    EXPECT_EQ(capture.systemLog().texts(Level::Default), expected) << chunk;
    EXPECT_EQ(capture.systemLog().entries().size(), expected.size());
  }
  for (const std::string chunk : {"bad \xff byte\n", "cut \xc3", "\xed\xa0\x80 surrogate"}) {
    VNLogCapture capture(dir_ / "case.log");
    VNTask::initWithTask(shell("true"), /*allowWARD=*/true)->processOutput(chunk);
    EXPECT_EQ(capture.systemLog().texts(Level::Fault), std::vector<std::string>{"Unable to process output from /bin/sh"});
    EXPECT_EQ(capture.systemLog().entries().size(), 1u);
  }
}

TEST_F(TaskOutputTest, RelaysStandardErrorAndStandardOutputInOneStream) {
  auto runner = VNTask::initWithTask(shell("echo only-error >&2"), /*allowWARD=*/true);
  ASSERT_TRUE(runner->run());
  const auto texts = textsAt(Level::Default);
  EXPECT_NE(std::find(texts.begin(), texts.end(), "/bin/sh: only-error"), texts.end());
}

TEST_F(TaskOutputTest, RelaysMegabytesWithoutANewlineAndTheLastChunk) {
  auto runner = VNTask::initWithTask(
      shell("head -c 3000000 /dev/zero | tr '\\0' x; printf end"), /*allowWARD=*/true);
  ASSERT_TRUE(runner->run());
  size_t relayed = 0;
  for (const auto& text : textsAt(Level::Default)) relayed += text.size() - std::string("/bin/sh: ").size();
  EXPECT_EQ(relayed, 3000000u + 3);
  EXPECT_TRUE(textsAt(Level::Default).back().ends_with("end"));
}

// A program that leaves a process behind holding the pipe open: the run ends
// when the program exits, not when the pipe closes.
TEST_F(TaskOutputTest, EndsWhenTheProgramExitsEvenIfADescendantHoldsThePipe) {
  auto runner = VNTask::initWithTask(shell("sleep 60 & echo $!"), /*allowWARD=*/true);
  const auto start = std::chrono::steady_clock::now();
  ASSERT_TRUE(runner->run());
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
  const auto texts = textsAt(Level::Default);
  ASSERT_FALSE(texts.empty());
  const pid_t straggler = std::stoi(texts.front().substr(std::string("/bin/sh: ").size()));
  ::kill(straggler, SIGKILL);
}

TEST_F(TaskOutputTest, AProgramThatClosesItsOutputEarlyStillEndsTheRun) {
  auto runner = VNTask::initWithTask(shell("echo before; exec >&- 2>&-; sleep 0.2; exit 4"),
                                     /*allowWARD=*/true);
  EXPECT_FALSE(runner->run());
  EXPECT_EQ(runner->terminationStatus(), 4);
  EXPECT_EQ(textsAt(Level::Default).front(), "/bin/sh: before");
}

}  // namespace
