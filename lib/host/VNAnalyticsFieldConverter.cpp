#include "host/VNAnalyticsFieldConverter.h"

std::string VNAnalyticsFieldConverter::valueForRPPHYMode(std::int64_t phyMode) {
  // Payload order differs from code order: 802.11b is "2", 802.11a "3".
  switch (phyMode) {
    case 1: return "3";
    case 2: return "2";
    case 3: return "4";
    case 4: return "5";
    case 5: return "6";
    case 6: return "7";
    default: return "1";
  }
}
