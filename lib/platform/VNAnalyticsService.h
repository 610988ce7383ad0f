#pragma once

#include <memory>
#include <string_view>

#include "foundation/VNExport.h"
#include "foundation/VNValue.h"

// The analytics service: receives named events with a dictionary payload,
// fire and forget.
//
// On Linux each event is one structured journal entry; docs/analytics.md
// gives its fields and how the payload becomes them. When no journal runs the
// event is dropped without delay.
class VN_EXPORT VNAnalyticsService {
 public:
  virtual ~VNAnalyticsService() = default;

  virtual void sendEvent(std::string_view eventName, const VNValue& payload) = 0;

  static std::shared_ptr<VNAnalyticsService> makeDefault();
};
