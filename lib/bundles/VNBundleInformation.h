#pragma once

#include "foundation/VNExport.h"
#include "foundation/VNFileURL.h"
#include "foundation/VNValue.h"

// The bundle information dictionary: the version facts of one bundle copy on
// which a migration decides which copy to keep. Every entry is optional.
namespace VNBundleInformationKey {
inline constexpr const char* kBundleIdentifier = "BundleIdentifier";
inline constexpr const char* kRawShortVersionString = "RawQFBundleShortVersionString";
inline constexpr const char* kRawBundleVersion = "RawQFBundleVersionString";
inline constexpr const char* kShortVersionString = "QFBundleShortVersionString";
inline constexpr const char* kSourceVersion = "SourceVersion";
inline constexpr const char* kBuildVersion = "BuildVersion";
inline constexpr const char* kBundleVersion = "QFBundleVersion";
inline constexpr const char* kStore = "Emporia";
}  // namespace VNBundleInformationKey

namespace VNUtilities {

// The bundle information of the bundle folder at `url`, read from disk at this
// call: the identifier, the information dictionary's short version and
// bundle version as the text of whatever value it holds ("Raw" entries), the
// four strings of the bundle's component version, and "Emporia", whether the
// bundle holds the store receipt "Contents/_EmporiaReceipt". A fact the
// bundle does not state is absent; a bundle that cannot be opened gives an
// empty dictionary. Safe to call from any thread.
VN_EXPORT VNValue VN_bundleInformationAtPath(const VNFileURL& url);

// `legacy` with every entry of the older short key names ("bnlID", "stVsStr",
// "srcV", "bldV", "bnlV", "bnlASV") copied under its current name, replacing
// an entry of that name; the short keys stay. A value that is no dictionary
// gives an empty one.
VN_EXPORT VNValue VN_legacyBundleInfoToCurrentBundleInfo(const VNValue& legacy);

}  // namespace VNUtilities
