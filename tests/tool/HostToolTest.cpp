// varnel battery on fake power-supply trees.
#include <gtest/gtest.h>

#include "support/VNFakeSysfs.h"
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

}  // namespace
