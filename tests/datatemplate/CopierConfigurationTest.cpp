// Creation, locations, handlers, the log and the template system's version.
#include <gtest/gtest.h>

#include <thread>

#include "CopierFakes.h"
#include "platform/VNPlatformService.h"
#include "platform/VNRunningSystemVersion.h"

namespace {

TEST(CopierConfigurationTest, LocationsAndConstants) {
  auto copier = VNUDataTemplateCopier::initWithSystemURL(VNFileURL::fileURLWithPath("/mnt/sys", true));
  EXPECT_EQ(copier->systemURL().path(), "/mnt/sys");
  EXPECT_EQ(copier->dataTemplateURL().path(), "/mnt/sys/System/Library/Templates/Data");
  EXPECT_TRUE(copier->dataTemplateURL().hasDirectoryPath());
  EXPECT_EQ(copier->symlinkedPatternsManifestURL().path(),
            "/mnt/sys/System/Library/Templates/Data.symlink-patterns");
  EXPECT_FALSE(copier->symlinkedPatternsManifestURL().hasDirectoryPath());
  EXPECT_EQ(copier->dataTemplateBOMURL().path(),
            "/mnt/sys/System/Library/Templates/Data/Library/Veltra/System/Library/Receipts/"
            "org.varnel.files.data-template.bom");
  EXPECT_STREQ(VNUDataTemplateErrorDomain, "org.varnel.VNUDataTemplateErrorDomain");
  EXPECT_STREQ(VNUDTTemplateReceiptIdentifier, "org.varnel.files.data-template");
  EXPECT_STREQ(VNUDTTetherlinkSourceKey, "VNUDTTetherlinkSourceKey");
  EXPECT_STREQ(VNUDTTetherlinkDestinationKey, "VNUDTTetherlinkDestinationKey");

  auto running = VNUDataTemplateCopier::init();
  EXPECT_EQ(running->systemURL(), VNFileURL::fileURLWithPath("/", true));
  EXPECT_EQ(running->dataTemplateURL().path(), "/System/Library/Templates/Data");
  EXPECT_FALSE(running->hasDataTemplateBOM());
  EXPECT_EQ(running->totalItems(), 0u);
  EXPECT_EQ(running->symlinkedFilePatterns(), nullptr);
  EXPECT_EQ(running->symlinkedDirectoryPatterns(), nullptr);
}

TEST(CopierConfigurationTest, LogGoesToTheHandlerOnceOrElseToTheSystemLog) {
  auto systemLog = std::make_shared<RecordingSystemLog>();
  VNPlatformOverride<VNSystemLog> override(systemLog);
  auto copier = VNUDataTemplateCopier::init();
  copier->log("%s has %lu items (%.2f MB): %@", "tree", std::uint64_t{3}, 2.5, VNValue("x"));
  ASSERT_EQ(systemLog->entries().size(), 1u);
  EXPECT_EQ(systemLog->entries()[0].text, "tree has 3 items (2.50 MB): x");
  EXPECT_EQ(systemLog->entries()[0].level, VNSystemLog::Level::Default);
  EXPECT_EQ(systemLog->entries()[0].subsystem, "");
  EXPECT_EQ(systemLog->entries()[0].category, "");

  std::vector<std::pair<VNUDataTemplateCopier*, std::string>> received;
  copier->setLogHandler([&](VNUDataTemplateCopier& c, const std::string& m) { received.emplace_back(&c, m); });
  copier->log("plain %%");
  ASSERT_EQ(received.size(), 1u);
  EXPECT_EQ(received[0].first, copier.get());
  EXPECT_EQ(received[0].second, "plain %");
  EXPECT_EQ(systemLog->entries().size(), 1u);

  copier->setLogHandler(nullptr);
  EXPECT_FALSE(copier->logHandler());
  copier->log("back");
  EXPECT_EQ(systemLog->entries().size(), 2u);
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

TEST(CopierConfigurationTest, SystemVersionFileIsReadBelowTheSystemRoot) {
  TestSystem system;
  system.writeSystemVersion(
      "<key>ProductVersion</key><string>14.2</string><key>ProductBuildVersion</key><string>23C64</string>");
  VNValue version = system.copier->systemVersionDictionary();
  EXPECT_EQ(*version.findString("ProductVersion"), "14.2");
  EXPECT_EQ(*version.findString("ProductBuildVersion"), "23C64");
  EXPECT_TRUE(system.messages.empty());
}

TEST(CopierConfigurationTest, UnreadableVersionFileFallsBackToTheRunningSystem) {
  TestSystem system;
  VNWriteTestFile(system.root / "os-release",
                  "# comment\nNAME=\"Test Linux\"\nVERSION_ID='12.4'\nBUILD_ID=b\\\"1\nID=test\n"
                  "PRETTY_NAME=\"say \\\"hi\\\" \\\\o/\"\nnoequals\n");
  VNPlatformOverride<VNRunningSystemVersion> override(
      VNRunningSystemVersion::makeFromOSRelease(system.root / "os-release"));
  VNValue expected = VNValue::dictionary();
  expected.set("ProductName", "Test Linux");
  expected.set("ProductVersion", "12.4");
  expected.set("ProductBuildVersion", "b\\\"1");
  std::string versionPath = system.root / "System/Library/Baseworks/SystemVersion.plist";

  EXPECT_EQ(system.copier->systemVersionDictionary(), expected);
  // A file that is no dictionary counts as unreadable too.
  system.writeSystemVersion("");
  VNWriteTestFile(versionPath, "<plist><array/></plist>");
  EXPECT_EQ(system.copier->systemVersionDictionary(), expected);
  VNWriteTestFile(versionPath, "not a plist");
  EXPECT_EQ(system.copier->systemVersionDictionary(), expected);
  EXPECT_EQ(system.messages,
            std::vector<std::string>(3, "using current system version, could not read " + versionPath));
}

TEST(CopierConfigurationTest, RunningSystemVersionOfAMissingOSReleaseIsEmpty) {
  VNTestDir dir;
  auto version = VNRunningSystemVersion::makeFromOSRelease(dir / "missing");
  EXPECT_EQ(version->versionDictionary(), VNValue::dictionary());
  // The real one reads this machine's file.
  VNValue running = VNRunningSystemVersion::makeDefault()->versionDictionary();
  EXPECT_TRUE(running.findString("ProductName")) << running.description();
}

}  // namespace
