#pragma once

#include <sys/stat.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "datatemplate/VNUDataTemplateCopier.h"
#include "platform/VNSystemLog.h"
#include "support/VNLogCapture.h"
#include "support/VNTestDir.h"

// Records what reaches the system log.
using RecordingSystemLog = VNRecordingSystemLog;

// Creates every folder of `relative` below `root` (0755).
inline void makeFolders(const std::string& root, const std::string& relative) {
  std::string path = root;
  std::size_t start = 0;
  while (start <= relative.size()) {
    std::size_t end = relative.find('/', start);
    if (end == std::string::npos) end = relative.size();
    path += "/" + relative.substr(start, end - start);
    ::mkdir(path.c_str(), 0755);
    start = end + 1;
  }
}

// A system root in a temporary folder with a copier on it that records
// every log message.
struct TestSystem {
  VNTestDir root;
  std::shared_ptr<VNUDataTemplateCopier> copier;
  std::vector<std::string> messages;

  TestSystem() {
    copier = VNUDataTemplateCopier::initWithSystemURL(VNFileURL::fileURLWithPath(root.path(), true));
    copier->setLogHandler([this](VNUDataTemplateCopier&, const std::string& m) { messages.push_back(m); });
  }
  std::string templatePath(const std::string& relative = {}) const {
    return root / ("System/Library/Templates/Data" + (relative.empty() ? "" : "/" + relative));
  }
  void writeManifest(const std::string& text) {
    makeFolders(root.path(), "System/Library/Templates");
    VNWriteTestFile(root / "System/Library/Templates/Data.symlink-patterns", text);
  }
  void writeSystemVersion(const std::string& dictionaryBody) {
    makeFolders(root.path(), "System/Library/Baseworks");
    VNWriteTestFile(root / "System/Library/Baseworks/SystemVersion.plist",
                    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>" +
                        dictionaryBody + "</dict></plist>\n");
  }
};
