// Handlers, the log and the template system's version.
#include "CopierFakes.h"
#include "platform/VNRunningSystemVersion.h"
#include "support/VNTest.h"

namespace {

// Lines go to the handler when one is set, else to the general system log.
TEST(CopierConfigurationTest, LogGoesToTheHandlerOnceOrElseToTheSystemLog) {
  auto systemLog = std::make_shared<VNRecordingSystemLog>();
  VNPlatformOverride<VNSystemLog> override(systemLog);
  auto copier = VNUDataTemplateCopier::init();
  EXPECT_EQ(copier->systemURL(), VNFolderURL("/"));
  copier->log("%s has %lu items (%.2f MB): %@", "tree", std::uint64_t{3}, 2.5, VNValue("x"));
  std::vector<std::pair<VNUDataTemplateCopier*, std::string>> received;
  copier->setLogHandler([&](VNUDataTemplateCopier& c, const std::string& m) { received.emplace_back(&c, m); });
  copier->log("plain %%");
  copier->setLogHandler(nullptr);
  EXPECT_FALSE(copier->logHandler());
  copier->log("back");
  ASSERT_EQ(received.size(), 1u);
  EXPECT_EQ(received[0].first, copier.get());
  EXPECT_EQ(received[0].second, "plain %");
  auto entries = systemLog->entries();
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].text, "tree has 3 items (2.50 MB): x");
  EXPECT_EQ(entries[0].level, VNSystemLog::Level::Default);
  EXPECT_EQ(entries[0].subsystem + entries[0].category, "");
  EXPECT_EQ(entries[1].text, "back");
}

TEST(CopierConfigurationTest, HandlersCanBeReplacedWhileAnotherThreadLogs) {
  auto copier = VNUDataTemplateCopier::init();
  std::atomic<int> first{0}, second{0};
  copier->setLogHandler([&](VNUDataTemplateCopier&, const std::string&) { ++first; });
  std::thread logger([&] {
    for (int i = 0; i < 2000; ++i) copier->log("message %d", i);
  });
  for (int i = 0; i < 200; ++i) {
    copier->setLogHandler([&](VNUDataTemplateCopier&, const std::string&) { ++second; });
    copier->setProgressHandler([](VNUDataTemplateCopier&, std::uint64_t, std::uint64_t) {});
  }
  logger.join();
  EXPECT_EQ(first + second, 2000);
  ASSERT_TRUE(copier->progressHandler());
}

// The version file below the system root; when it is missing or no
// dictionary, the running system's os-release (comments, quotes and
// escapes read as the shell would), each time with a line.
TEST(CopierConfigurationTest, SystemVersionFromTheFileOrElseTheRunningSystem) {
  TestSystem system;
  system.writeSystemVersion(
      "<key>ProductVersion</key><string>14.2</string><key>ProductBuildVersion</key><string>23C64</string>");
  VNValue version = system.copier->systemVersionDictionary();
  EXPECT_EQ(*version.findString("ProductVersion"), "14.2");
  EXPECT_EQ(*version.findString("ProductBuildVersion"), "23C64");
  EXPECT_TRUE(system.messages.empty());

  VNWriteTestFile(system.root / "os-release",
                  "# comment\nNAME=\"Test Linux\"\nVERSION_ID='12.4'\nBUILD_ID=b\\\"1\nID=test\n"
                  "PRETTY_NAME=\"say \\\"hi\\\" \\\\o/\"\nnoequals\n");
  VNPlatformOverride<VNRunningSystemVersion> override(VNRunningSystemVersion::makeFromOSRelease(system.root / "os-release"));
  VNValue expected = VNValue::dictionary();
  expected.set("ProductName", "Test Linux");
  expected.set("ProductVersion", "12.4");
  expected.set("ProductBuildVersion", "b\\\"1");
  std::string versionPath = system.root / "System/Library/Baseworks/SystemVersion.plist";
  for (const char* contents : {"<plist><array/></plist>", "not a plist"}) {
    VNWriteTestFile(versionPath, contents);
    EXPECT_EQ(system.copier->systemVersionDictionary(), expected) << contents;
  }
  ::unlink(versionPath.c_str());
  EXPECT_EQ(system.copier->systemVersionDictionary(), expected);
  EXPECT_EQ(system.messages, std::vector<std::string>(3, "using current system version, could not read " + versionPath));
  EXPECT_EQ(VNRunningSystemVersion::makeFromOSRelease(system.root / "missing")->versionDictionary(), VNValue::dictionary());
  EXPECT_TRUE(VNRunningSystemVersion::makeDefault()->versionDictionary().findString("ProductName"))
      << "the real one reads this machine's file";
}

}  // namespace
