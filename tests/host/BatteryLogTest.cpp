// The battery line from fake power-supply trees: the usual laptop states, two
// batteries, energy-based figures, hostile attribute files and the three
// failures.
#include "host/VNBatteryLog.h"
#include "support/VNFakeSysfs.h"
#include "support/VNTest.h"

namespace {

using Attributes = std::map<std::string, std::string>;

std::string line(const std::string& head, const std::string& capacities, const std::string& rest) {
  return head + " \t\t  " + capacities + " \t\t  " + rest;
}

class BatteryLog : public ::testing::Test {
 protected:
  // Runs logBatteryState on the fake tree; returns the one message logged.
  VNRecordingSystemLog::Entry run(bool expectLogged) {
    VNLogCapture capture(logDir_ / "migration.log");
    VNPlatformOverride<VNPowerSources> sources(VNPowerSources::makeForSysfsRoot(sysfs_.root()));
    EXPECT_EQ(logBatteryState(), expectLogged);
    auto entries = capture.systemLog().entries();
    EXPECT_EQ(entries.size(), 1u);
    return entries.empty() ? VNRecordingSystemLog::Entry{} : entries.front();
  }

  VNFakeSysfs sysfs_;
  VNTestDir logDir_;
};

const Attributes kBattery{{"type", "Battery"}, {"present", "1"}, {"voltage_now", "12000000"},
                          {"cycle_count", "42"}};

Attributes battery(Attributes extra) {
  extra.insert(kBattery.begin(), kBattery.end());
  return extra;
}

struct LineCase {
  const char* name;
  bool mainsOnline;
  Attributes battery;
  std::string expected;
};

class BatteryLine : public BatteryLog, public ::testing::WithParamInterface<LineCase> {};

TEST_P(BatteryLine, IsWrittenAtTypeDefault) {
  sysfs_.addMains(GetParam().mainsOnline);
  sysfs_.addSupply("BAT0", GetParam().battery);
  auto entry = run(/*expectLogged=*/true);
  EXPECT_EQ(entry.level, VNSystemLog::Level::Default);
  EXPECT_EQ(entry.text, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Laptop, BatteryLine,
    ::testing::Values(
        LineCase{"Charging", true,
                 battery({{"status", "Charging"}, {"charge_now", "4000000"}, {"charge_full", "6000000"},
                          {"charge_full_design", "5000000"}, {"current_now", "1500000"}, {"capacity", "66"}}),
                 line("powerSource='Power Adapter' chargingState='Charging' percentRemainingHW=66% minutesRemainingHW=80",
                      "currentCapacity=4000mAh maxCapacity=6000mAh health=100.00% designedCapacity=5000mAh",
                      "cycles=42 voltage=12000mV amperage=1500mA watt=-18.000 marketingMinutes=80 marketingPercent=66%")},
        LineCase{"Discharging", false,
                 battery({{"status", "Discharging"}, {"charge_now", "3000000"}, {"charge_full", "6000000"},
                          {"charge_full_design", "7500000"}, {"current_now", "1500000"}, {"capacity", "50"},
                          {"time_to_empty_now", "7200"}}),
                 line("powerSource='Battery' chargingState='Draining' percentRemainingHW=50% minutesRemainingHW=120",
                      "currentCapacity=3000mAh maxCapacity=6000mAh health=80.00% designedCapacity=7500mAh",
                      "cycles=42 voltage=12000mV amperage=-1500mA watt=18.000 marketingMinutes=120 marketingPercent=50%")},
        LineCase{"FullOnAdapter", true,
                 battery({{"status", "Full"}, {"charge_now", "5000000"}, {"charge_full", "5000000"},
                          {"charge_full_design", "5000000"}, {"current_now", "0"}, {"capacity", "100"}}),
                 line("powerSource='Power Adapter' chargingState='Charged' percentRemainingHW=100% minutesRemainingHW=0",
                      "currentCapacity=5000mAh maxCapacity=5000mAh health=100.00% designedCapacity=5000mAh",
                      "cycles=42 voltage=12000mV amperage=0mA watt=-0.000 marketingMinutes=0 marketingPercent=100%")},
        LineCase{"AlmostFullOnAdapter", true,
                 battery({{"status", "Charging"}, {"charge_now", "4950000"}, {"charge_full", "5000000"},
                          {"current_now", "500000"}, {"capacity", "99"}, {"time_to_full_now", "360"}}),
                 line("powerSource='Power Adapter' chargingState='Charging' percentRemainingHW=99% minutesRemainingHW=6",
                      "currentCapacity=4950mAh maxCapacity=5000mAh health=0.00% designedCapacity=0mAh",
                      "cycles=42 voltage=12000mV amperage=500mA watt=-6.000 marketingMinutes=6 marketingPercent=99%")},
        LineCase{"EnergyBased", false,
                 battery({{"status", "Discharging"}, {"energy_now", "48000000"}, {"energy_full", "60000000"},
                          {"energy_full_design", "60000000"}, {"voltage_min_design", "12000000"},
                          {"power_now", "18000000"}}),
                 line("powerSource='Battery' chargingState='Draining' percentRemainingHW=80% minutesRemainingHW=160",
                      "currentCapacity=4000mAh maxCapacity=5000mAh health=100.00% designedCapacity=5000mAh",
                      "cycles=42 voltage=12000mV amperage=-1500mA watt=18.000 marketingMinutes=160 marketingPercent=80%")},
        // Garbage, empty, out-of-range and huge files read as absent or
        // saturate; the line is still written.
        LineCase{"HostileFiles", false,
                 battery({{"status", "Discharging"}, {"charge_now", "99999999999999"}, {"charge_full", "garbage"},
                          {"charge_full_design", ""}, {"current_now", "99999999999999999999999"},
                          {"capacity", "-"}, {"cycle_count", "0x10"}}),
                 line("powerSource='Battery' chargingState='Draining' percentRemainingHW=-1% minutesRemainingHW=-1",
                      "currentCapacity=2147483647mAh maxCapacity=0mAh health=0.00% designedCapacity=0mAh",
                      "cycles=0 voltage=12000mV amperage=0mA watt=-0.000 marketingMinutes=-1 marketingPercent=(null)%")}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(BatteryLog, TheLastOfTwoBatteriesDecidesButKeepsEarlierHealthAndPercentage) {
  sysfs_.addMains(false);
  sysfs_.addSupply("BAT0", battery({{"status", "Discharging"}, {"charge_now", "2000000"},
                                    {"charge_full", "4000000"}, {"charge_full_design", "5000000"}}));
  sysfs_.addSupply("BAT1", battery({{"status", "Discharging"}, {"charge_now", "1000000"}}));
  sysfs_.addSupply("hid-mouse-battery", {{"type", "Battery"}, {"scope", "Device"}, {"charge_now", "7"}});
  EXPECT_EQ(run(/*expectLogged=*/true).text,
            line("powerSource='Battery' chargingState='Draining' percentRemainingHW=50% minutesRemainingHW=-1",
                 "currentCapacity=1000mAh maxCapacity=0mAh health=80.00% designedCapacity=0mAh",
                 "cycles=42 voltage=12000mV amperage=0mA watt=-0.000 marketingMinutes=-1 marketingPercent=50%"));
}

TEST_F(BatteryLog, FailsWithoutPowerSupplyClass) {
  auto entry = run(/*expectLogged=*/false);
  EXPECT_EQ(entry.level, VNSystemLog::Level::Error);
  EXPECT_EQ(entry.text, "Battery Log: Failed to find matching service name");
}

TEST_F(BatteryLog, FailsWithoutAnActiveBattery) {
  sysfs_.addMains(true);
  sysfs_.addSupply("BAT0", battery({{"present", "0"}}));
  EXPECT_EQ(run(/*expectLogged=*/false).text, "Battery Log: Failed to get power source description");
}

// A registry without controllers beside an active battery cannot come out of
// one sysfs tree; this service gives it.
class ControllerlessSources final : public VNPowerSources {
 public:
  std::optional<std::vector<std::optional<VNValue>>> batteryControllers() override {
    return std::vector<std::optional<VNValue>>{std::nullopt};
  }
  std::optional<Snapshot> copySnapshot() override { return Snapshot{true, std::nullopt}; }
};

TEST_F(BatteryLog, KeepsStartValuesWhenNoControllerCanBeRead) {
  VNLogCapture capture(logDir_ / "migration.log");
  VNPlatformOverride<VNPowerSources> sources(std::make_shared<ControllerlessSources>());
  EXPECT_TRUE(logBatteryState());
  ASSERT_EQ(capture.systemLog().entries().size(), 1u);
  EXPECT_EQ(capture.systemLog().entries()[0].text,
            line("powerSource='Unknown' chargingState='Charged' percentRemainingHW=-1% minutesRemainingHW=-255",
                 "currentCapacity=-1mAh maxCapacity=-1mAh health=0.00% designedCapacity=0mAh",
                 "cycles=0 voltage=0mV amperage=0mA watt=0.000 marketingMinutes=-1 marketingPercent=-1%"));
}

}  // namespace
