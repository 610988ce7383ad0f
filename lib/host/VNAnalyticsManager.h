#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/VNExport.h"
#include "foundation/VNValue.h"

// Keys of the event payloads, exported so that callers build their payloads
// with the same names.
VN_EXTERN_C VN_EXPORT const char* const VNAnalyticsEVEventPayloadKeyLTSTRetries;
VN_EXTERN_C VN_EXPORT const char* const VNAnalyticsEVEventPayloadKeyLTSTIssuingSuccess;
VN_EXTERN_C VN_EXPORT const char* const VNAnalyticsEVEventPayloadKeyPath;
VN_EXTERN_C VN_EXPORT const char* const VNAnalyticsEVEventPayloadKeyFHPostLoginPerfTotalDuration;
VN_EXTERN_C VN_EXPORT const char* const VNAnalyticsEVEventPayloadKeyFHPostLoginErrorIdentity;
VN_EXTERN_C VN_EXPORT const char* const VNAnalyticsEVEventPayloadKeyFHPostLoginErrorCount;
VN_EXTERN_C VN_EXPORT const char* const VNAnalyticsEVEventPayloadKeyFHPostLoginErrorDescriptions;
VN_EXTERN_C VN_EXPORT const char* const VNAnalyticsEVEventPayloadKeyMigrationID;
VN_EXTERN_C VN_EXPORT const char* const VNAnalyticsEVEventPayloadKeyOriginatingApp;
VN_EXTERN_C VN_EXPORT const char* const VNAnalyticsEVEventPayloadKeySourceType_1;
VN_EXTERN_C VN_EXPORT const char* const VNAnalyticsEVEventPayloadKeyRequestState_1;
VN_EXTERN_C VN_EXPORT const char* const VNAnalyticsEVEventPayloadKeyPhase;
VN_EXTERN_C VN_EXPORT const char* const VNAnalyticsEVEventPayloadKeyResult;
VN_EXTERN_C VN_EXPORT const char* const VNAnalyticsEVEventPayloadKeyErrorSignature;
VN_EXTERN_C VN_EXPORT const char* const VNAnalyticsEVEventPayloadKeySizeExpected;
VN_EXTERN_C VN_EXPORT const char* const VNAnalyticsEVEventPayloadKeySizeTransferred;
VN_EXTERN_C VN_EXPORT const char* const VNAnalyticsEVEventPayloadKeyTimeExpected;
VN_EXTERN_C VN_EXPORT const char* const VNAnalyticsEVEventPayloadKeyTimeTaken;
VN_EXTERN_C VN_EXPORT const char* const VNAnalyticsEVEventPayloadKeyPreferredTransferMode;
VN_EXTERN_C VN_EXPORT const char* const VNAnalyticsEVEventPayloadKeyWireThroughput;
VN_EXTERN_C VN_EXPORT const char* const VNAnalyticsEVEventPayloadKeyWireThroughputExpected;
VN_EXTERN_C VN_EXPORT const char* const VNAnalyticsEVEventPayloadKeyOverallThroughput;
VN_EXTERN_C VN_EXPORT const char* const VNAnalyticsEVEventPayloadKeyWiFiSignalNoise;
VN_EXTERN_C VN_EXPORT const char* const VNAnalyticsEVEventPayloadKeyWiFiSignalStrength;
VN_EXTERN_C VN_EXPORT const char* const VNAnalyticsEVEventPayloadKeyWiFiSpecification;

// Reports a migration's usage and outcome events to the analytics service
// (VNAnalyticsService). Every event is logged (type 2) before it is sent;
// while the environment holds "__OSINSTALL_ENVIRONMENT", with any value,
// nothing is logged or sent. Event names and the journal entries they become
// are in docs/analytics.md. Any thread may call any method.
class VN_EXPORT VNAnalyticsManager {
 public:
  // The process-wide instance, made once.
  static std::shared_ptr<VNAnalyticsManager> sharedManager();
  static std::shared_ptr<VNAnalyticsManager> init();

  void traceLTTokenIssuingSuccess(bool success, std::uint64_t retries) const;
  // Without a path the event goes out with an empty payload.
  void traceQuarantinedPath(const std::optional<std::string>& path) const;
  // A status outside the table sends the event with an empty payload.
  void traceMigrationTransferStatus(std::int64_t status) const;
  // These send the caller's payload unchanged.
  void traceMigrationCompleted(const VNValue& payload) const;
  void tracePostLoginTaskPerformance(const VNValue& payload) const;
  void tracePostLoginTaskErrors(const VNValue& payload) const;
  void traceEventOverallResults1_0(const VNValue& payload) const;
  void traceWiFiInfo(const VNValue& payload) const;
  // The one way out to the analytics service.
  void sendEvent(std::string_view eventName, const VNValue& payload) const;

  // The transfer-status table.
  const std::map<std::int64_t, std::string>& status() const { return status_; }

  VNAnalyticsManager(const VNAnalyticsManager&) = delete;
  VNAnalyticsManager& operator=(const VNAnalyticsManager&) = delete;

 private:
  VNAnalyticsManager();
  const std::map<std::int64_t, std::string> status_;
};

// Event names: our reverse-DNS prefix and the event's own suffix.
VN_EXPORT extern const char* const VNAnalyticsEventLTTokenIssuing;
VN_EXPORT extern const char* const VNAnalyticsEventQuarantinedPath;
VN_EXPORT extern const char* const VNAnalyticsEventMigrationCompleted;
VN_EXPORT extern const char* const VNAnalyticsEventPostLoginPerf;
VN_EXPORT extern const char* const VNAnalyticsEventPostLoginErrors;
VN_EXPORT extern const char* const VNAnalyticsEventOverallResults1_0;
VN_EXPORT extern const char* const VNAnalyticsEventWiFiInfo;
