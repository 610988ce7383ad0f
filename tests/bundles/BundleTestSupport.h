#pragma once

#include "foundation/VNValue.h"
#include "support/VNTestDir.h"

// Makes the application folder `path` with "Contents/Info.plist" holding
// `info` in XML.
inline void makeTestBundle(const std::string& path, const VNValue& info) {
  VNWriteTestFile(path + "/Contents/Info.plist", *info.propertyListData(VNValue::Format::XML));
}
