#pragma once

#include <cstdint>
#include <optional>

#include "foundation/VNExport.h"
#include "foundation/VNFileURL.h"
#include "foundation/VNValue.h"
#include "platform/VNComponentVersion.h"

// Which of two copies of a bundle to keep, from the source copy's point of
// view: -1 keep the destination, 0 neither is newer, 1 take the source. Two
// rules come before the order of versions (docs/bundle-versions.md): a
// destination left over from an interrupted migration always loses, and a
// store-installed destination is never replaced by a copy that is not.

// Why a comparison came out as it did.
enum class VNBundleComparisonReason { Leftover, StoreRule, Versions };

struct VNBundleComparison {
  std::int64_t order = 0;
  VNBundleComparisonReason reason = VNBundleComparisonReason::Versions;
  std::optional<VNComponentVersionField> decidedBy;  // for Versions, unless the same
};

// Suffix of the marker that the migration tools leave beside a bundle they
// have not finished copying: "Name.app" has the marker "Name.app.incompleteMigration".
inline constexpr const char* kVNLeftoverMarkerSuffix = ".incompleteMigration";

// The marker of the bundle at `destination`; none for a URL without a last
// component to mark (such as "/").
VN_EXPORT std::optional<VNFileURL> VNLeftoverMarkerURL(const VNFileURL& destination);

// The decision on the two bundle information dictionaries, changing nothing:
// a leftover destination is reported, not removed.
VN_EXPORT VNBundleComparison VNDecideBundleComparison(const VNValue& source, const VNValue& destination,
                                                      const VNFileURL& destinationPath);

namespace VNUtilities {

// The decision above, acted on: a leftover destination bundle is removed
// (the marker stays), with a log line, and a second one when the removal
// fails; it counts as 1 either way. `sourcePath` takes no part.
VN_EXPORT std::int64_t VN_compareBundleVersionsForSourceBundleInformation(const VNValue& source,
                                                                          const VNValue& destination,
                                                                          const VNFileURL& sourcePath,
                                                                          const VNFileURL& destinationPath);

// The same on the bundle information read from the two bundles now.
VN_EXPORT std::int64_t VN_compareBundleVersionsForPath(const VNFileURL& source, const VNFileURL& destination);

}  // namespace VNUtilities
