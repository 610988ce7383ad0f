#include "bundles/VNBundleVersionComparison.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "bundles/VNBundleInformation.h"
#include "common/VNLogging.h"
#include "foundation/VNError.h"
#include "foundation/VNFormat.h"
#include "foundation/VNUniqueFd.h"
#include "platform/VNRemoveTree.h"

namespace {

namespace Key = VNBundleInformationKey;

// "Emporia" as true: a true boolean or a number other than zero.
bool isFromStore(const VNValue& information) {
  const VNValue* value = information.find(Key::kStore);
  if (!value) return false;
  if (const bool* flag = value->asBoolean()) return *flag;
  std::optional<double> number = value->asReal();
  return number && *number != 0;
}

std::optional<std::string> stringEntry(const VNValue& information, const char* key) {
  const std::string* text = information.findString(key);
  return text ? std::optional<std::string>(*text) : std::nullopt;
}

VNComponentVersion componentVersion(const VNValue& information) {
  return {stringEntry(information, Key::kShortVersionString), stringEntry(information, Key::kBundleVersion),
          stringEntry(information, Key::kSourceVersion), stringEntry(information, Key::kBuildVersion),
          /*onDisk=*/true};
}

bool isOneComponent(const std::string& name) {
  return !name.empty() && name != "/" && name != "." && name != ".." && name.find('/') == std::string::npos;
}

// The folder holding the destination bundle, held open, and the bundle's name in it.
struct HeldEntry {
  VNUniqueFd folder;
  std::string name;
};

std::optional<HeldEntry> holdParent(const VNFileURL& destination) {
  std::string name = destination.lastPathComponent();
  if (!isOneComponent(name)) return std::nullopt;
  std::string parent = destination.URLByDeletingLastPathComponent().path();
  HeldEntry entry{VNUniqueFd(::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)), std::move(name)};
  if (!entry.folder) return std::nullopt;
  return entry;
}

bool markerExists(const HeldEntry& entry) {
  struct stat item {};
  return ::fstatat(entry.folder.get(), (entry.name + kVNLeftoverMarkerSuffix).c_str(), &item, 0) == 0;
}

VNBundleComparison decide(const VNValue& source, const VNValue& destination, bool leftover) {
  using Reason = VNBundleComparisonReason;
  if (leftover) return {1, Reason::Leftover, std::nullopt};
  if (!isFromStore(source) && isFromStore(destination)) return {-1, Reason::StoreRule, std::nullopt};
  VNComponentVersionOrder order = VNCompareComponentVersions(componentVersion(source), componentVersion(destination));
  return {order.order, Reason::Versions, order.decidedBy};
}

void removeLeftover(const HeldEntry& entry, const VNFileURL& destination) {
  VNLogging::logType(VNLogTypeError, __func__, __LINE__,
                     VNFormat("  *!!* The Bundle '%@' was left over from a previous migration.", destination));
  VNError error;
  if (!VNRemoveTreeAt(entry.folder.get(), entry.name, destination.path(), &error))
    VNLogging::logType(VNLogTypeError, __func__, __LINE__,
                       VNFormat("  *!!* Failed to Remove %@: %@", destination, error));
}

}  // namespace

std::optional<VNFileURL> VNLeftoverMarkerURL(const VNFileURL& destination) {
  std::string name = destination.lastPathComponent();
  if (!isOneComponent(name)) return std::nullopt;
  return destination.URLByDeletingLastPathComponent().URLByAppendingPathComponent(name + kVNLeftoverMarkerSuffix);
}

VNBundleComparison VNDecideBundleComparison(const VNValue& source, const VNValue& destination,
                                            const VNFileURL& destinationPath) {
  std::optional<HeldEntry> entry = holdParent(destinationPath);
  return decide(source, destination, entry && markerExists(*entry));
}

namespace VNUtilities {

std::int64_t VN_compareBundleVersionsForSourceBundleInformation(const VNValue& source, const VNValue& destination,
                                                                const VNFileURL&,
                                                                const VNFileURL& destinationPath) {
  std::optional<HeldEntry> entry = holdParent(destinationPath);
  bool leftover = entry && markerExists(*entry);
  if (leftover) removeLeftover(*entry, destinationPath);
  return decide(source, destination, leftover).order;
}

std::int64_t VN_compareBundleVersionsForPath(const VNFileURL& source, const VNFileURL& destination) {
  return VN_compareBundleVersionsForSourceBundleInformation(VN_bundleInformationAtPath(source),
                                                            VN_bundleInformationAtPath(destination), source,
                                                            destination);
}

}  // namespace VNUtilities
