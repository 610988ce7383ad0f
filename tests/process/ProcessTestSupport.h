#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/VNChildProcess.h"
#include "support/VNLogCapture.h"
#include "support/VNTestDir.h"

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
  std::vector<std::string> textsAt(VNSystemLog::Level level) {
    std::vector<std::string> out;
    for (auto& [entryLevel, text] : lines())
      if (entryLevel == level) out.push_back(text);
    return out;
  }
  VNTestDir dir_;
  VNLogCapture capture_;
};
