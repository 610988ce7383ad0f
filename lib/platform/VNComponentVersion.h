#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "foundation/VNExport.h"

struct VNOpenedBundle;

// The package service's version of a component: four optional strings. Their
// order and how one string compares with another are set out in
// docs/bundle-versions.md.
struct VN_EXPORT VNComponentVersion {
  std::optional<std::string> shortVersionString;
  std::optional<std::string> bundleVersion;
  std::optional<std::string> sourceVersion;
  std::optional<std::string> buildVersion;
  bool onDisk = false;  // describes a component installed on a disk

  // The version of an on-disk bundle read from its information dictionary.
  // Strings and integers (as decimal text) count; an empty string, a string
  // longer than kMaxVersionBytes or a value of any other kind is absent.
  static VNComponentVersion ofBundle(const VNOpenedBundle& bundle);
  static constexpr std::size_t kMaxVersionBytes = 4096;
};

// The four strings in the order of their precedence.
enum class VNComponentVersionField { ShortVersionString, BundleVersion, SourceVersion, BuildVersion };

// Keys of the information dictionary holding the source and build versions.
VN_EXTERN_C VN_EXPORT const char* const VNSourceVersionKey;
VN_EXTERN_C VN_EXPORT const char* const VNBuildVersionKey;

struct VNComponentVersionOrder {
  int order = 0;  // -1, 0 or 1: the first version against the second
  std::optional<VNComponentVersionField> decidedBy;  // none when the two are the same
};

// The total order of component versions, and of two version strings within
// it. Both run in time linear in the strings' lengths and allocate nothing.
VN_EXPORT VNComponentVersionOrder VNCompareComponentVersions(const VNComponentVersion& first,
                                                             const VNComponentVersion& second);
VN_EXPORT int VNCompareVersionStrings(std::string_view first, std::string_view second);
