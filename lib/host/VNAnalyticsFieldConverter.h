#pragma once

#include <cstdint>
#include <string>

#include "foundation/VNExport.h"

// Turns platform values into the texts analytics payloads carry.
class VN_EXPORT VNAnalyticsFieldConverter {
 public:
  VNAnalyticsFieldConverter() = delete;

  // The wireless PHY mode code (1 802.11a, 2 b, 3 g, 4 n, 5 ac, 6 ax) as its
  // payload text; "1" for every other code.
  static std::string valueForRPPHYMode(std::int64_t phyMode);
};
