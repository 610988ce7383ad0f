#pragma once

#include <sys/stat.h>

#include <string>

#include "foundation/VNValue.h"
#include "support/VNTestDir.h"

// Makes the application folder `path` with "Contents/Info.plist" holding
// `info` in XML.
inline void makeTestBundle(const std::string& path, const VNValue& info) {
  ::mkdir(path.c_str(), 0755);
  ::mkdir((path + "/Contents").c_str(), 0755);
  VNWriteTestFile(path + "/Contents/Info.plist", *info.propertyListData(VNValue::Format::XML));
}
