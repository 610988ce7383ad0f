// The receipt property list, read back through libplist.
#include "CopierFakes.h"
#include "platform/VNRunningSystemVersion.h"
#include "support/VNTest.h"

namespace {

using Strings = std::vector<std::string>;

double unixNow() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

// Writes the receipt of `system` and reads it back.
VNValue writeAndRead(TestSystem& system) {
  std::string path = system.root / "receipt.plist";
  VNError error;
  EXPECT_TRUE(system.copier->_writeDataTemplateReceiptPlistToURL(VNURL(path), &error)) << error.description();
  EXPECT_EQ(VNReadTestFile(path).rfind("<?xml", 0), 0u) << "written as XML";
  return VNValue::fromPropertyListFile(path).value_or(VNValue());
}

TEST(ReceiptPlistTest, HoldsExactlyTheReceiptEntries) {
  TestSystem system;
  system.writeSystemVersion("<key>ProductVersion</key><string>15.1</string><key>ProductBuildVersion</key>"
                            "<string>24B83</string><key>ProductName</key><string>ignored</string>");
  system.writeManifest("Library/Caches/\nprivate/tmp/*\n#x\nUsers/**\n");
  system.copier->loadSymlinkedPatterns();
  double before = unixNow();
  VNValue receipt = writeAndRead(system);
  double after = unixNow();
  ASSERT_TRUE(receipt.asDictionary());
  Strings keys;
  for (const auto& [key, value] : *receipt.asDictionary()) keys.push_back(key);
  EXPECT_EQ(keys, (Strings{"AdditionalInformation", "InstallDate", "InstallPrefixPath", "InstallProcessName",
                           "PackageGroups", "PackageIdentifier", "PackageVersion"}));
  VNValue information = VNValue::dictionary();
  information.set("SystemBuild", "24B83");
  information.set("SystemVersion", "15.1");
  information.set("SymlinkedFilePatterns", VNValue(VNValue::Array{"private/tmp/*", "Users/**"}));
  information.set("SymlinkedDirectoryPatterns", VNValue(VNValue::Array{"Library/Caches"}));
  EXPECT_EQ(*receipt.find("AdditionalInformation"), information);
  double installed = receipt.find("InstallDate")->asDate()->unixTime();
  EXPECT_GE(installed, before - 1);
  EXPECT_LE(installed, after + 1);
  EXPECT_EQ(*receipt.findString("InstallPrefixPath"), "/");
  EXPECT_EQ(*receipt.findString("InstallProcessName"), program_invocation_short_name);
  EXPECT_EQ(*receipt.find("PackageGroups"),
            VNValue(VNValue::Array{"org.varnel.FindSystemFiles.pkg-group", "org.varnel.OSTemplate.pkg-group"}));
  EXPECT_EQ(*receipt.findString("PackageIdentifier"), "org.varnel.files.data-template");
  EXPECT_EQ(*receipt.findString("PackageVersion"), "15.1");
  EXPECT_EQ(system.messages.back(), "wrote receipt plist to " + system.root / "receipt.plist");
}

// A missing build is "1A0", a version that is missing or no string "1.0",
// each logged; without the file the running system's version counts and,
// without a manifest, the pattern lists are empty.
TEST(ReceiptPlistTest, MissingVersionsFallBackAndAreLogged) {
  const std::tuple<std::optional<std::string>, const char*, const char*> cases[] = {
      {"<key>ProductVersion</key><string>15.1</string>", "15.1", "1A0"},
      {"<key>ProductBuildVersion</key><string>9Z9</string><key>ProductVersion</key><integer>3</integer>", "1.0", "9Z9"},
      {std::nullopt, "7", "1A0"},
  };
  for (const auto& [versionFile, version, build] : cases) {
    TestSystem system;
    VNWriteTestFile(system.root / "os-release", "NAME=Linux\nVERSION_ID=\"7\"\n");
    VNPlatformOverride<VNRunningSystemVersion> override(VNRunningSystemVersion::makeFromOSRelease(system.root / "os-release"));
    if (versionFile) system.writeSystemVersion(*versionFile);
    VNValue receipt = writeAndRead(system);
    const VNValue* information = receipt.find("AdditionalInformation");
    ASSERT_TRUE(information) << version;
    EXPECT_EQ(*information->findString("SystemVersion"), version);
    EXPECT_EQ(*information->findString("SystemBuild"), build);
    EXPECT_EQ(*receipt.findString("PackageVersion"), version);
    EXPECT_EQ(*information->find("SymlinkedFilePatterns"), VNValue::array());
    EXPECT_EQ(*information->find("SymlinkedDirectoryPatterns"), VNValue::array());
    EXPECT_EQ(system.messages.size(), versionFile ? 2u : 3u);
    EXPECT_EQ(system.messages.end()[-2], "failed to get version from SystemVersion.plist");
  }
}

TEST(ReceiptPlistTest, WriteFailureIsCode5WithTheUnderlyingError) {
  TestSystem system;
  system.writeSystemVersion("<key>ProductVersion</key><string>1</string><key>ProductBuildVersion</key><string>1</string>");
  std::string path = system.root / "missing-folder/receipt.plist";
  VNError error;
  EXPECT_FALSE(system.copier->_writeDataTemplateReceiptPlistToURL(VNURL(path), &error));
  EXPECT_EQ(error.domain(), VNUDataTemplateErrorDomain);
  EXPECT_EQ(error.code(), 5);
  ASSERT_TRUE(error.underlyingError());
  EXPECT_TRUE(error.underlyingError()->isPOSIX(ENOENT)) << error.underlyingError()->description();
  EXPECT_EQ(system.messages.back(), "failed to write receipt plist to " + path + ": " + error.underlyingError()->description());
}

}  // namespace
