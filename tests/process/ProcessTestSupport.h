#pragma once

#include "platform/VNChildProcess.h"
#include "support/VNTest.h"

using LogLine = std::pair<VNSystemLog::Level, std::string>;

// A test folder and a capture of everything the library logs.
class ProcessTest : public ::testing::Test {
 public:
  static std::shared_ptr<VNChildProcess> shell(const std::string& script) {
    auto child = VNChildProcess::create();
    child->setLaunchPath("/bin/sh");
    child->setArguments({"-c", script});
    return child;
  }

 protected:
  ProcessTest() : capture_(dir_ / "migration.log") {}

  std::vector<LogLine> lines() {
    std::vector<LogLine> out;
    for (const auto& entry : capture_.systemLog().entries()) out.emplace_back(entry.level, entry.text);
    return out;
  }
  std::vector<std::string> textsAt(VNSystemLog::Level level) { return capture_.systemLog().texts(level); }
  VNTestDir dir_;
  VNLogCapture capture_;
};
