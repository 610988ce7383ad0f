// The receipt property list, read back through libplist.
#include <gtest/gtest.h>

#include <chrono>

#include "CopierFakes.h"
#include "platform/VNPlatformService.h"
#include "foundation/VNFileIO.h"
#include "platform/VNRunningSystemVersion.h"

namespace {

double unixNow() {
  using namespace std::chrono;
  return duration<double>(system_clock::now().time_since_epoch()).count();
}

VNValue readBack(const std::string& path) {
  VNError error;
  std::optional<VNValue> value = VNValue::fromPropertyListFile(path, &error);
  EXPECT_TRUE(value) << error.description();
  if (!value) return VNValue();
  return std::move(*value);
}

TEST(ReceiptPlistTest, HoldsExactlyTheReceiptEntries) {
  TestSystem system;
  system.writeSystemVersion(
      "<key>ProductVersion</key><string>15.1</string><key>ProductBuildVersion</key>"
      "<string>24B83</string><key>ProductName</key><string>ignored</string>");
  system.writeManifest("Library/Caches/\nprivate/tmp/*\n#x\nUsers/**\n");
  system.copier->loadSymlinkedPatterns();
  std::string path = system.root / "receipt.plist";
  double before = unixNow();
  VNError error;
  ASSERT_TRUE(system.copier->_writeDataTemplateReceiptPlistToURL(VNFileURL::fileURLWithPath(path), &error));
  double after = unixNow();

  VNValue receipt = readBack(path);
  ASSERT_TRUE(receipt.asDictionary());
  std::vector<std::string> keys;
  for (const auto& [key, value] : *receipt.asDictionary()) keys.push_back(key);
  EXPECT_EQ(keys, (std::vector<std::string>{"AdditionalInformation", "InstallDate", "InstallPrefixPath",
                                            "InstallProcessName", "PackageGroups", "PackageIdentifier",
                                            "PackageVersion"}));
  VNValue information = VNValue::dictionary();
  information.set("SystemBuild", "24B83");
  information.set("SystemVersion", "15.1");
  information.set("SymlinkedFilePatterns", VNValue(VNValue::Array{"private/tmp/*", "Users/**"}));
  information.set("SymlinkedDirectoryPatterns", VNValue(VNValue::Array{"Library/Caches"}));
  EXPECT_EQ(*receipt.find("AdditionalInformation"), information);
  ASSERT_TRUE(receipt.find("InstallDate")->asDate());
  double installed = receipt.find("InstallDate")->asDate()->unixTime();
  EXPECT_GE(installed, before - 1);
  EXPECT_LE(installed, after + 1);
  EXPECT_EQ(*receipt.findString("InstallPrefixPath"), "/");
  EXPECT_EQ(*receipt.findString("InstallProcessName"), program_invocation_short_name);
  EXPECT_EQ(*receipt.find("PackageGroups"),
            VNValue(VNValue::Array{"org.varnel.FindSystemFiles.pkg-group", "org.varnel.OSTemplate.pkg-group"}));
  EXPECT_EQ(*receipt.findString("PackageIdentifier"), "org.varnel.files.data-template");
  EXPECT_EQ(*receipt.findString("PackageVersion"), "15.1");
  EXPECT_EQ(system.messages.back(), "wrote receipt plist to " + path);

  // Written as XML.
  std::optional<std::string> text = VNReadFile(path, 1 << 20);
  ASSERT_TRUE(text);
  EXPECT_EQ(text->rfind("<?xml", 0), 0u);
}

TEST(ReceiptPlistTest, MissingVersionsFallBackAndAreLogged) {
  TestSystem system;
  std::string path = system.root / "receipt.plist";
  VNError error;

  system.writeSystemVersion("<key>ProductVersion</key><string>15.1</string>");
  ASSERT_TRUE(system.copier->_writeDataTemplateReceiptPlistToURL(VNFileURL::fileURLWithPath(path), &error));
  VNValue receipt = readBack(path);
  EXPECT_EQ(*receipt.find("AdditionalInformation")->findString("SystemBuild"), "1A0");
  EXPECT_EQ(*receipt.find("AdditionalInformation")->findString("SystemVersion"), "15.1");
  EXPECT_EQ(*receipt.findString("PackageVersion"), "15.1");
  EXPECT_EQ(system.messages,
            (std::vector<std::string>{"failed to get version from SystemVersion.plist", "wrote receipt plist to " + path}));

  system.messages.clear();
  system.writeSystemVersion("<key>ProductBuildVersion</key><string>9Z9</string><key>ProductVersion</key><integer>3</integer>");
  ASSERT_TRUE(system.copier->_writeDataTemplateReceiptPlistToURL(VNFileURL::fileURLWithPath(path), &error));
  receipt = readBack(path);
  EXPECT_EQ(*receipt.find("AdditionalInformation")->findString("SystemBuild"), "9Z9");
  EXPECT_EQ(*receipt.find("AdditionalInformation")->findString("SystemVersion"), "1.0");
  EXPECT_EQ(*receipt.findString("PackageVersion"), "1.0");
  EXPECT_EQ(system.messages.front(), "failed to get version from SystemVersion.plist");
}

TEST(ReceiptPlistTest, WithoutVersionFileOrManifestUsesTheRunningSystemAndEmptyLists) {
  TestSystem system;
  VNWriteTestFile(system.root / "os-release", "NAME=Linux\nVERSION_ID=\"7\"\n");
  VNPlatformOverride<VNRunningSystemVersion> override(
      VNRunningSystemVersion::makeFromOSRelease(system.root / "os-release"));
  std::string path = system.root / "receipt.plist";
  VNError error;
  ASSERT_TRUE(system.copier->_writeDataTemplateReceiptPlistToURL(VNFileURL::fileURLWithPath(path), &error));
  VNValue receipt = readBack(path);
  const VNValue* information = receipt.find("AdditionalInformation");
  EXPECT_EQ(*information->findString("SystemVersion"), "7");
  EXPECT_EQ(*information->findString("SystemBuild"), "1A0");
  EXPECT_EQ(*information->find("SymlinkedFilePatterns"), VNValue::array());
  EXPECT_EQ(*information->find("SymlinkedDirectoryPatterns"), VNValue::array());
  EXPECT_EQ(system.messages[0].rfind("using current system version, could not read ", 0), 0u);
  EXPECT_EQ(system.messages[1], "failed to get version from SystemVersion.plist");
}

TEST(ReceiptPlistTest, WriteFailureIsCode5WithTheUnderlyingError) {
  TestSystem system;
  system.writeSystemVersion("<key>ProductVersion</key><string>1</string><key>ProductBuildVersion</key><string>1</string>");
  std::string path = system.root / "missing-folder/receipt.plist";
  VNError error;
  EXPECT_FALSE(system.copier->_writeDataTemplateReceiptPlistToURL(VNFileURL::fileURLWithPath(path), &error));
  EXPECT_EQ(error.domain(), VNUDataTemplateErrorDomain);
  EXPECT_EQ(error.code(), 5);
  ASSERT_TRUE(error.underlyingError());
  EXPECT_TRUE(error.underlyingError()->isPOSIX(ENOENT)) << error.underlyingError()->description();
  EXPECT_EQ(system.messages.back(),
            "failed to write receipt plist to " + path + ": " + error.underlyingError()->description());
}

}  // namespace
