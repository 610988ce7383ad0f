// varnel battery on fake power-supply trees; varnel host on a target system
// described by its preferences, on "/", and on a root that cannot be opened.
#include <fstream>

#include "support/VNFakeSysfs.h"
#include "support/VNTest.h"
#include "support/VNToolRun.h"

namespace {

TEST(BatteryTool, PrintsTheLineOrFailsWithTheMessage) {
  VNFakeSysfs sysfs;
  sysfs.addMains(true);
  VNToolRun none = VNRunVarnel("battery --sysfs-root '" + sysfs.root() + "'");
  EXPECT_EQ(none.status, 1);
  EXPECT_EQ(none.err, "varnel: Battery Log: Failed to get power source description\n");
  sysfs.addSupply("BAT0", {{"type", "Battery"}, {"status", "Full"}, {"capacity", "100"}});
  VNToolRun full = VNRunVarnel("battery --sysfs-root '" + sysfs.root() + "'");
  EXPECT_EQ(full.status, 0);
  EXPECT_EQ(full.out.rfind("powerSource='Power Adapter' chargingState='Charged'", 0), 0u) << full.out;
}

TEST(HostTool, DescribesATargetFromItsPreferencesAndSlashAsTheRunningHost) {
  VNTestDir dir;
  std::filesystem::create_directories(dir / "target/var/db/SystemConfiguration");
  std::ofstream(dir / "target/var/db/SystemConfiguration/preferences.xml")
      << "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>Model</key><string>Slim Notebook 3</string>"
         "<key>System</key><dict><key>System</key><dict><key>ComputerName</key><string>Lab \"B\" \xe2\x80\x9c"
         "2\xe2\x80\x9d</string></dict></dict></dict></plist>";

  VNToolRun json = VNRunVarnel("host --json --system " + dir / "target");
  ASSERT_EQ(json.status, 0) << json.err;
  EXPECT_EQ(json.out,
            "{\n  \"computerName\": \"Lab \\\"B\\\" \xe2\x80\x9c" "2\xe2\x80\x9d\",\n"
            "  \"deviceDescription\": \"Laptop computer\",\n"
            "  \"deviceType\": \"org.varnel.device.laptop\",\n"
            "  \"modelIdentifier\": \"Slim Notebook 3\"\n}\n");

  VNToolRun text = VNRunVarnel("host --system " + dir / "target");
  ASSERT_EQ(text.status, 0) << text.err;
  EXPECT_NE(text.out.find("model:          Slim Notebook 3\n"), std::string::npos) << text.out;
  EXPECT_NE(text.out.find("description:    Laptop computer\n"), std::string::npos) << text.out;

  EXPECT_EQ(VNRunVarnel("host --json --system /").out, VNRunVarnel("host --json").out)
      << "a view of / is the running host";

  VNToolRun missing = VNRunVarnel("host --system " + dir / "none");
  EXPECT_EQ(missing.status, 1);
  EXPECT_NE(missing.err.find("No such file or directory"), std::string::npos) << missing.err;
  EXPECT_EQ(missing.out, "");
}

}  // namespace
