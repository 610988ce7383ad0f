// Resource values from one statx of the item.
#include <fcntl.h>
#include <sys/stat.h>

#include <functional>
#include <map>

#include "platform/VNResourceValues.h"

namespace {

using Reader = std::function<std::optional<VNValue>(const VNFileURL&, const struct statx&)>;

VNValue::Date dateOf(const struct statx_timestamp& time) {
  return VNValue::Date::fromUnixTime(static_cast<double>(time.tv_sec) + time.tv_nsec / 1e9);
}

VNValue number(std::uint64_t value) { return VNValue(static_cast<std::int64_t>(value)); }

const std::map<std::string, Reader, std::less<>>& readers() {
  static const std::map<std::string, Reader, std::less<>> table = {
      {VNResourceKey::kName, [](const VNFileURL& url, const struct statx&) { return VNValue(url.lastPathComponent()); }},
      {VNResourceKey::kIsDirectory, [](const VNFileURL&, const struct statx& s) { return VNValue(S_ISDIR(s.stx_mode)); }},
      {VNResourceKey::kIsRegularFile, [](const VNFileURL&, const struct statx& s) { return VNValue(S_ISREG(s.stx_mode)); }},
      {VNResourceKey::kIsSymbolicLink, [](const VNFileURL&, const struct statx& s) { return VNValue(S_ISLNK(s.stx_mode)); }},
      {VNResourceKey::kFileSize, [](const VNFileURL&, const struct statx& s) { return number(s.stx_size); }},
      {VNResourceKey::kAllocatedSize, [](const VNFileURL&, const struct statx& s) { return number(s.stx_blocks * 512); }},
      {VNResourceKey::kCreationDate,
       [](const VNFileURL&, const struct statx& s) -> std::optional<VNValue> {
         if (!(s.stx_mask & STATX_BTIME)) return std::nullopt;
         return VNValue(dateOf(s.stx_btime));
       }},
      {VNResourceKey::kModificationDate, [](const VNFileURL&, const struct statx& s) { return VNValue(dateOf(s.stx_mtime)); }},
      {VNResourceKey::kInode, [](const VNFileURL&, const struct statx& s) { return number(s.stx_ino); }},
      {VNResourceKey::kLinkCount, [](const VNFileURL&, const struct statx& s) { return number(s.stx_nlink); }},
      {VNResourceKey::kOwnerID, [](const VNFileURL&, const struct statx& s) { return number(s.stx_uid); }},
      {VNResourceKey::kGroupID, [](const VNFileURL&, const struct statx& s) { return number(s.stx_gid); }},
      {VNResourceKey::kPermissions, [](const VNFileURL&, const struct statx& s) { return number(s.stx_mode & 07777); }},
  };
  return table;
}

class VNResourceValuesLinux final : public VNResourceValues {
 public:
  std::optional<VNValue::Dictionary> valuesForKeys(const VNFileURL& url, const std::vector<std::string>& keys) override {
    struct statx status {};
    if (url.empty() ||
        ::statx(AT_FDCWD, url.path().c_str(), AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS | STATX_BTIME, &status) != 0)
      return std::nullopt;
    VNValue::Dictionary values;
    for (const std::string& key : keys) {
      auto reader = readers().find(key);
      if (reader == readers().end()) continue;
      if (std::optional<VNValue> value = reader->second(url, status)) values.insert_or_assign(key, std::move(*value));
    }
    return values;
  }
};

}  // namespace

std::shared_ptr<VNResourceValues> VNResourceValues::makeDefault() { return std::make_shared<VNResourceValuesLinux>(); }
