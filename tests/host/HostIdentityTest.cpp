// Host identity: the parsing rules, the running host from a fake tree, a
// target system's preferences, and one image per connection family code.
#include "host/VNConnectionFamilyIcons.h"
#include "host/VNSystemConfiguration.h"
#include "platform/VNHostIdentity.h"
#include "platform/VNSymbolImages.h"
#include "platform/VNTypeService.h"
#include "platform/internal/VNHostIdentityParsing.h"
#include "support/VNTest.h"
#include "systemview/VNSystem_FileManager_DiskBased.h"

namespace {

TEST(HostIdentityParsing, MachineInfoAndFirmwareValues) {
  const std::pair<const char*, std::optional<std::string>> names[] = {
      {"PRETTY_HOSTNAME=Ada's desk\n", "Ada's desk"},
      {"# comment\nCHASSIS=laptop\nPRETTY_HOSTNAME=\"Lab \\\"B\\\" 2\"\n", "Lab \"B\" 2"},
      {"PRETTY_HOSTNAME='single quoted'", "single quoted"},
      {"PRETTY_HOSTNAME=first\nPRETTY_HOSTNAME=second\n", "second"},
      {"PRETTY_HOSTNAME=\"unterminated\n", std::nullopt},
      {"PRETTY_HOSTNAME=\n", std::nullopt},
      {"PRETTY_HOSTNAME=bad\xff\n", std::nullopt},
      {"PRETTY_HOSTNAME=\"tab\there\"\n", std::nullopt},
      {"HOSTNAME=plain\n", std::nullopt},
  };
  for (const auto& [text, expected] : names) EXPECT_EQ(VNMachineInfoPrettyHostname(text), expected) << text;

  EXPECT_EQ(VNSysfsText("  Model 7 \n"), "Model 7");
  EXPECT_EQ(VNSysfsText(std::string("cut\0here", 8)), "cut");
  EXPECT_EQ(VNSysfsText("\x01\x02"), "");
  EXPECT_EQ(VNSysfsText("\xc3"), "");

  EXPECT_EQ(VNModelIdentifierFromFirmware("Board X", "2.1"), "Board X 2.1");
  EXPECT_EQ(VNModelIdentifierFromFirmware("Board X", "To be filled by O.E.M."), "Board X");
  EXPECT_EQ(VNModelIdentifierFromFirmware("Board X", "Board X"), "Board X");
  EXPECT_EQ(VNModelIdentifierFromFirmware("", "2.1"), "");

  const std::pair<const char*, std::optional<std::string>> chassis[] = {
      {"3\n", "desktop"}, {"10", "laptop"}, {"23\n", "server"}, {"31", "convertible"},
      {"2\n", std::nullopt}, {"-9", std::nullopt}, {"99999999999999999999", std::nullopt}, {"", std::nullopt},
      {"9x", std::nullopt}};
  for (const auto& [text, expected] : chassis) EXPECT_EQ(VNChassisOfFirmwareType(text), expected) << text;
}

// The fake host's root must exist before the identity service opens it.
std::shared_ptr<VNHostIdentity> hostRootedIn(const std::string& root) {
  std::filesystem::create_directories(root);
  return VNHostIdentity::makeForRoot(root);
}

class HostTree : public ::testing::Test {
 protected:
  HostTree() : capture_(dir_ / "log"), override_(hostRootedIn(dir_ / "host")) {}
  VNTestDir dir_;
  VNLogCapture capture_;
  VNPlatformOverride<VNHostIdentity> override_;
};

TEST_F(HostTree, RunningHostComesFromItsOwnFilesInOrder) {
  EXPECT_EQ(VNSystemConfiguration::systemNameForSystem(nullptr), std::nullopt);
  EXPECT_EQ(VNSystemConfiguration::modelIDForSystem(nullptr), "");
  EXPECT_EQ(VNSystemConfiguration::modelForSystem(nullptr), "org.varnel.device.computer");
  EXPECT_EQ(VNSystemConfiguration::humanReadableModelForSystem(nullptr), "Computer");

  VNWriteTestFile(dir_ / "host/proc/sys/kernel/hostname", "kernel-name\n");
  EXPECT_EQ(VNSystemConfiguration::systemNameForSystem(nullptr), "kernel-name");
  VNWriteTestFile(dir_ / "host/etc/machine-info", "PRETTY_HOSTNAME=\"Front desk\"\n");
  EXPECT_EQ(VNSystemConfiguration::systemNameForSystem(nullptr), "Front desk");

  VNWriteTestFile(dir_ / "host/sys/class/dmi/id/product_name", "Workstation 5\n");
  VNWriteTestFile(dir_ / "host/sys/class/dmi/id/product_version", "Rev B\n");
  VNWriteTestFile(dir_ / "host/sys/class/dmi/id/chassis_type", "9\n");
  EXPECT_EQ(VNSystemConfiguration::modelIDForSystem(nullptr), "Workstation 5 Rev B");
  EXPECT_EQ(VNSystemConfiguration::modelForSystem(nullptr), "org.varnel.device.laptop");
  EXPECT_EQ(VNSystemConfiguration::humanReadableModelForSystem(nullptr), "Laptop computer");
}

TEST_F(HostTree, TargetSystemAnswersFromItsPreferencesAndRootSlashFromTheHost) {
  const std::string root = dir_ / "target";
  std::filesystem::create_directories(root);
  auto view = VNSystem_FileManager_DiskBased::appropriateDiskFileMangerForSystemRoot(
      VNFolderURL(root));
  ASSERT_TRUE(view && view->activate());
  EXPECT_EQ(VNSystemConfiguration::systemConfigurationForSystem(view.get()), std::nullopt);
  EXPECT_EQ(VNSystemConfiguration::modelForSystem(view.get()), "org.varnel.device.computer")
      << "no model: the generic type, never the running host's";

  const std::string older =
      "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>Model</key><string>Rack Server 2</string>"
      "<key>System</key><dict><key>System</key><dict><key>ComputerName</key><string>Old name</string>"
      "</dict></dict></dict></plist>";
  VNWriteTestFile(root + "/var/db/SystemConfiguration/preferences.xml", older);
  EXPECT_EQ(VNSystemConfiguration::systemNameForSystem(view.get()), "Old name") << "the /private rule";
  VNWriteTestFile(root + "/private/var/db/SystemConfiguration/preferences.xml",
            std::string(older).replace(older.find("Old name"), 8, "Private name"));
  EXPECT_EQ(VNSystemConfiguration::systemNameForSystem(view.get()), "Private name");
  EXPECT_EQ(VNSystemConfiguration::modelIDForSystem(view.get()), "Rack Server 2");
  EXPECT_EQ(VNSystemConfiguration::modelForSystem(view.get()), "org.varnel.device.server");
  EXPECT_EQ(VNSystemConfiguration::humanReadableModelForSystem(view.get()), "Server");
  EXPECT_TRUE(capture_.systemLog().entries().empty());

  VNWriteTestFile(root + "/Library/Preferences/SystemConfiguration/preferences.plist", "not a property list");
  EXPECT_EQ(VNSystemConfiguration::systemNameForSystem(view.get()), std::nullopt)
      << "an unreadable first file is not passed over for the older one";
  auto entries = capture_.systemLog().entries();
  ASSERT_FALSE(entries.empty());
  EXPECT_EQ(entries.back().text, "Unable to read the System Configuration file at " + root +
                                     "/Library/Preferences/SystemConfiguration/preferences.plist");

  VNWriteTestFile(dir_ / "host/proc/sys/kernel/hostname", "this-host\n");
  auto slashView = VNSystem_FileManager_DiskBased::appropriateDiskFileMangerForSystemRoot(
      VNFolderURL("/"));
  ASSERT_TRUE(slashView && slashView->activate());
  EXPECT_EQ(VNSystemConfiguration::systemNameForSystem(slashView.get()), "this-host");
}

TEST(ConnectionFamilyIcons, EveryCodeYieldsAReadableImage) {
  const std::pair<std::uint64_t, const char*> codes[] = {
      {0, "network-transmit-receive"}, {1, "network-transmit-receive"}, {2, "network-wireless"},
      {3, "Wirelane.tiff"}, {4, "uninterruptible-power-supply"}, {5, "network-transmit-receive"},
      {UINT64_MAX, "network-transmit-receive"}};
  for (const auto& [code, file] : codes) {
    auto image = VNConnectionFamilyIcons::imageForFamilyIcon(code);
    ASSERT_TRUE(image) << "code " << code << ": is the icon theme installed (scripts/bootstrap)?";
    EXPECT_NE(image->path.find(file), std::string::npos) << code << ": " << image->path;
    EXPECT_EQ(image->format, code == 3 ? "tiff" : image->path.ends_with(".svg") ? "svg" : "png");
    EXPECT_GT(image->bytes.size(), 64u);
  }
  // Loaded anew each time: a changed file is what the next call returns.
  EXPECT_EQ(VNConnectionFamilyIcons::imageForFamilyIcon(3)->bytes.size(),
            std::filesystem::file_size(VNConnectionFamilyIcons::imageForFamilyIcon(3)->path));

  VNTestDir dir;
  VNWriteTestFile(dir / "not-an-image", "plain text");
  EXPECT_FALSE(VNImage::fromFile(dir / "not-an-image"));
  EXPECT_FALSE(VNImage::fromFile(dir / "missing"));
  VNPlatformOverride<VNSymbolImages> noTheme(VNSymbolImages::makeForIconsRoot(dir / "icons"));
  EXPECT_FALSE(VNConnectionFamilyIcons::imageForFamilyIcon(2)) << "no theme, no image";
}

}  // namespace
