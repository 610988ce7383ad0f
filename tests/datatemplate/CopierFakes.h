#pragma once

#include <memory>
#include <string>
#include <vector>

#include "datatemplate/VNUDataTemplateCopier.h"
#include "support/VNLogCapture.h"
#include "support/VNTestDir.h"

// A system root in a temporary folder with a copier on it that records
// every log message.
struct TestSystem {
  VNTestDir root;
  std::shared_ptr<VNUDataTemplateCopier> copier = VNUDataTemplateCopier::initWithSystemURL(VNFolderURL(root.path()));
  std::vector<std::string> messages;

  TestSystem() {
    copier->setLogHandler([this](VNUDataTemplateCopier&, const std::string& m) { messages.push_back(m); });
  }
  std::string templatePath(const std::string& relative = {}) const {
    return root / ("System/Library/Templates/Data" + (relative.empty() ? "" : "/" + relative));
  }
  void writeManifest(const std::string& text) {
    VNWriteTestFile(root / "System/Library/Templates/Data.symlink-patterns", text);
  }
  void writeSystemVersion(const std::string& dictionaryBody) {
    VNWriteTestFile(root / "System/Library/Baseworks/SystemVersion.plist",
                    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>" + dictionaryBody +
                        "</dict></plist>\n");
  }
};
