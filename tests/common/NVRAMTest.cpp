// Firmware variables over an efivarfs-like folder of the test's: the bytes
// of each value type, refused names, a missing store, and the immutable flag
// of an existing variable (on a loop-mounted ext4 image).
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include "common/VNGeneralUtilities.h"
#include "platform/VNFirmwareVariables.h"
#include "platform/VNPlatformService.h"
#include "support/VNLogCapture.h"
#include "support/VNLoopImage.h"
#include "support/VNTestDir.h"

namespace {

std::string fileOf(const std::string& folder, const std::string& name) {
  return folder + "/" + name + "-" + VNFirmwareVendorGUID;
}

std::string stored(const std::string& bytes) {
  std::string out(4, '\0');
  std::memcpy(out.data(), &VNFirmwareVariableAttributes, 4);
  return out + bytes;
}

class NVRAMTest : public ::testing::Test {
 protected:
  void useStore(const std::string& root) {
    override_ = std::make_unique<VNPlatformOverride<VNFirmwareVariables>>(VNMakeFirmwareVariables(root));
  }
  VNTestDir dir_;
  VNLogCapture capture_{dir_ / "migration.log"};
  std::unique_ptr<VNPlatformOverride<VNFirmwareVariables>> override_;
};

TEST_F(NVRAMTest, StoresTheAttributeWordAndTheValuesBytes) {
  std::filesystem::create_directory(dir_ / "vars");
  useStore(dir_ / "vars");
  const std::int64_t integer = -2;
  const double real = 1.5;
  std::string integerBytes(8, '\0'), realBytes(8, '\0');
  std::memcpy(integerBytes.data(), &integer, 8);
  std::memcpy(realBytes.data(), &real, 8);
  const std::pair<VNValue, std::string> cases[] = {
      {VNValue("boot-args"), "boot-args"},
      {VNValue(true), std::string(1, '\1')},
      {VNValue(integer), integerBytes},
      {VNValue(real), realBytes},
      {VNValue(VNValue::Data{0, 0xff}), std::string("\0\xff", 2)},
  };
  int index = 0;
  for (const auto& [value, bytes] : cases) {
    const std::string name = "Var" + std::to_string(index++);
    ASSERT_TRUE(VNUtilities::writeNVRAMVariable(name, value)) << name;
    EXPECT_EQ(VNReadTestFile(fileOf(dir_ / "vars", name)), stored(bytes)) << name;
  }
  EXPECT_TRUE(capture_.systemLog().entries().empty());
}

TEST_F(NVRAMTest, RefusesNamesThatCouldLeaveTheFolder) {
  std::filesystem::create_directory(dir_ / "vars");
  useStore(dir_ / "vars");
  for (const std::string& name : std::vector<std::string>{"../escape", "a/b", "..", ".", "", std::string("nul\0x", 5)})
    EXPECT_FALSE(VNUtilities::writeNVRAMVariable(name, VNValue("x"))) << name;
  EXPECT_TRUE(std::filesystem::is_empty(dir_ / "vars"));
  EXPECT_FALSE(std::filesystem::exists(fileOf(dir_.path(), "../escape")));
  const auto entries = capture_.systemLog().entries();
  ASSERT_EQ(entries.size(), 6u);
  EXPECT_EQ(entries[0].text, "Could not write NVRAM key \"../escape\" Error Return: 22");
}

TEST_F(NVRAMTest, AMissingStoreFailsWithOneLine) {
  useStore(dir_ / "absent");
  EXPECT_FALSE(VNUtilities::writeNVRAMVariable("Boot", VNValue("x")));
  const auto entries = capture_.systemLog().entries();
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].level, VNSystemLog::Level::Error);
  EXPECT_EQ(entries[0].text, "Could not obtain Kelvane node to write NVRAM key \"Boot\"");
}

TEST_F(NVRAMTest, LiftsAndRestoresTheImmutableFlagOfAnExistingVariable) {
  VN_MOUNT_OR_SKIP(image, VNLoopImage::Kind::Ext4, 32 << 20);
  useStore(image->mountPoint());
  const std::string file = fileOf(image->mountPoint(), "Locked");
  VNWriteTestFile(file, stored("old"));
  ASSERT_EQ(VNRunCommand("chattr +i '" + file + "'"), 0);
  EXPECT_TRUE(VNUtilities::writeNVRAMVariable("Locked", VNValue("new")));
  EXPECT_EQ(VNReadTestFile(file), stored("new"));
  const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
  int flags = 0;
  ASSERT_EQ(::ioctl(fd, FS_IOC_GETFLAGS, &flags), 0);
  ::close(fd);
  EXPECT_TRUE(flags & FS_IMMUTABLE_FL);
  VNRunCommand("chattr -i '" + file + "'");
}

}  // namespace
