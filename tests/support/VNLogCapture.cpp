#include "support/VNLogCapture.h"

#include <algorithm>
#include <thread>

#include "common/internal/VNLoggingState.h"

bool VNRecordingSystemLog::isLevelEnabled(Level level, std::string_view, std::string_view) {
  std::lock_guard lock(mutex_);
  return std::find(disabled_.begin(), disabled_.end(), level) == disabled_.end();
}

void VNRecordingSystemLog::log(Level level, std::string_view subsystem, std::string_view category,
                               std::string_view text) {
  std::lock_guard lock(mutex_);
  entries_.push_back({level, std::string(subsystem), std::string(category), std::string(text)});
}

void VNRecordingSystemLog::syslog(int priority, std::string_view text) {
  std::lock_guard lock(mutex_);
  syslogEntries_.push_back({priority, std::string(text)});
}

void VNRecordingSystemLog::setLevelEnabled(Level level, bool enabled) {
  std::lock_guard lock(mutex_);
  std::erase(disabled_, level);
  if (!enabled) disabled_.push_back(level);
}

std::vector<VNRecordingSystemLog::Entry> VNRecordingSystemLog::entries() const {
  std::lock_guard lock(mutex_);
  return entries_;
}

std::vector<std::string> VNRecordingSystemLog::texts(std::optional<Level> level) const {
  std::lock_guard lock(mutex_);
  std::vector<std::string> out;
  for (const auto& entry : entries_)
    if (!level || entry.level == *level) out.push_back(entry.text);
  return out;
}

std::vector<VNRecordingSystemLog::SyslogEntry> VNRecordingSystemLog::syslogEntries() const {
  std::lock_guard lock(mutex_);
  return syslogEntries_;
}

bool VNFakeBaseSystem::isBaseSystem(std::string_view clientIdentifier) {
  ++questions_;
  std::lock_guard lock(mutex_);
  lastClient_ = clientIdentifier;
  return answer_;
}

std::string VNFakeBaseSystem::lastClientIdentifier() const {
  std::lock_guard lock(mutex_);
  return lastClient_;
}

std::string VNFakeLogFileLocation::migrationLogPath() {
  ++lookups_;
  std::this_thread::sleep_for(delay_.load());
  return path_;
}

VNLogCapture::VNLogCapture(const std::string& logFilePath)
    : systemLog_(std::make_shared<VNRecordingSystemLog>()),
      baseSystem_(std::make_shared<VNFakeBaseSystem>()),
      location_(std::make_shared<VNFakeLogFileLocation>(logFilePath)),
      systemLogOverride_(systemLog_),
      baseSystemOverride_(baseSystem_),
      locationOverride_(location_),
      processOverride_(std::make_shared<VNFakeProcessInfo>("Setup", 812)) {
  VNLoggingInternal::resetProcessState();
}

VNLogCapture::~VNLogCapture() { VNLoggingInternal::resetProcessState(); }
