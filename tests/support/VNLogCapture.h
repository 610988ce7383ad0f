#pragma once

#include <atomic>
#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/VNBaseSystem.h"
#include "platform/VNLogFileLocation.h"
#include "platform/VNPlatformService.h"
#include "platform/VNProcessInfo.h"
#include "platform/VNSystemLog.h"

// A unified log and syslog that record every entry instead of sending it.
// Every level is enabled until setLevelEnabled says otherwise.
class VNRecordingSystemLog final : public VNSystemLog {
 public:
  struct Entry {
    Level level;
    std::string subsystem;
    std::string category;
    std::string text;
  };
  struct SyslogEntry {
    int priority;
    std::string text;
  };

  bool isLevelEnabled(Level level, std::string_view subsystem, std::string_view category) override;
  void log(Level level, std::string_view subsystem, std::string_view category,
           std::string_view text) override;
  void syslog(int priority, std::string_view text) override;

  void setLevelEnabled(Level level, bool enabled);
  std::vector<Entry> entries() const;
  // The texts of the entries, or of those at `level` only.
  std::vector<std::string> texts(std::optional<Level> level = std::nullopt) const;
  std::vector<SyslogEntry> syslogEntries() const;

 private:
  mutable std::mutex mutex_;
  std::vector<Level> disabled_;
  std::vector<Entry> entries_;
  std::vector<SyslogEntry> syslogEntries_;
};

// Gives a fixed answer and counts the questions.
class VNFakeBaseSystem final : public VNBaseSystem {
 public:
  bool isBaseSystem(std::string_view clientIdentifier) override;

  void setAnswer(bool inBaseSystem) { answer_ = inBaseSystem; }
  int questions() const { return questions_; }
  std::string lastClientIdentifier() const;

 private:
  std::atomic<bool> answer_{false};
  std::atomic<int> questions_{0};
  mutable std::mutex mutex_;
  std::string lastClient_;
};

// Points the log file at a path of the test's and counts the look-ups. A
// look-up can be made to take a while, which holds other threads at the
// file's once-only set-up long enough for a missing guard to show.
class VNFakeLogFileLocation final : public VNLogFileLocation {
 public:
  explicit VNFakeLogFileLocation(std::string path) : path_(std::move(path)) {}
  std::string migrationLogPath() override;
  int lookups() const { return lookups_; }
  void setLookupDelay(std::chrono::milliseconds delay) { delay_ = delay; }

 private:
  const std::string path_;
  std::atomic<int> lookups_{0};
  std::atomic<std::chrono::milliseconds> delay_{std::chrono::milliseconds(0)};
};

class VNFakeProcessInfo final : public VNProcessInfo {
 public:
  VNFakeProcessInfo(std::string programName, pid_t pid) : name_(std::move(programName)), pid_(pid) {}
  std::string_view programName() override { return name_; }
  pid_t processId() override { return pid_; }

 private:
  const std::string name_;
  const pid_t pid_;
};

// Captures everything VNLogging sends out, with no journal, syslog daemon or
// root needed. While it lives, the services VNLogging uses are these fakes
// (outside the base system, program "Setup" with pid 812, log file at
// `logFilePath`), and the logging state starts afresh when it is made and
// again when it goes away.
class VNLogCapture {
 public:
  explicit VNLogCapture(const std::string& logFilePath);
  ~VNLogCapture();
  VNLogCapture(const VNLogCapture&) = delete;
  VNLogCapture& operator=(const VNLogCapture&) = delete;

  VNRecordingSystemLog& systemLog() { return *systemLog_; }
  VNFakeBaseSystem& baseSystem() { return *baseSystem_; }
  VNFakeLogFileLocation& logFileLocation() { return *location_; }

 private:
  std::shared_ptr<VNRecordingSystemLog> systemLog_;
  std::shared_ptr<VNFakeBaseSystem> baseSystem_;
  std::shared_ptr<VNFakeLogFileLocation> location_;
  VNPlatformOverride<VNSystemLog> systemLogOverride_;
  VNPlatformOverride<VNBaseSystem> baseSystemOverride_;
  VNPlatformOverride<VNLogFileLocation> locationOverride_;
  VNPlatformOverride<VNProcessInfo> processOverride_;
};
