#include "host/VNAnalyticsManager.h"

#include <cstdlib>

#include "common/VNLogging.h"
#include "foundation/VNFormat.h"
#include "platform/VNAnalyticsService.h"
#include "platform/VNPlatformService.h"

const char* const VNAnalyticsEVEventPayloadKeyLTSTRetries = "Retries";
const char* const VNAnalyticsEVEventPayloadKeyLTSTIssuingSuccess = "Success";
const char* const VNAnalyticsEVEventPayloadKeyPath = "Path";
const char* const VNAnalyticsEVEventPayloadKeyFHPostLoginPerfTotalDuration = "TotalDuration";
const char* const VNAnalyticsEVEventPayloadKeyFHPostLoginErrorIdentity = "ErrorIdentity";
const char* const VNAnalyticsEVEventPayloadKeyFHPostLoginErrorCount = "ErrorCount";
const char* const VNAnalyticsEVEventPayloadKeyFHPostLoginErrorDescriptions = "ErrorDescriptions";
const char* const VNAnalyticsEVEventPayloadKeyMigrationID = "MigrationID";
const char* const VNAnalyticsEVEventPayloadKeyOriginatingApp = "OriginatingApp";
const char* const VNAnalyticsEVEventPayloadKeySourceType_1 = "SourceType";
const char* const VNAnalyticsEVEventPayloadKeyRequestState_1 = "RequestState";
const char* const VNAnalyticsEVEventPayloadKeyPhase = "Phase";
const char* const VNAnalyticsEVEventPayloadKeyResult = "Result";
const char* const VNAnalyticsEVEventPayloadKeyErrorSignature = "ErrorSignature";
const char* const VNAnalyticsEVEventPayloadKeySizeExpected = "SizeExpected";
const char* const VNAnalyticsEVEventPayloadKeySizeTransferred = "SizeTransferred";
const char* const VNAnalyticsEVEventPayloadKeyTimeExpected = "TimeExpected";
const char* const VNAnalyticsEVEventPayloadKeyTimeTaken = "TimeTaken";
const char* const VNAnalyticsEVEventPayloadKeyPreferredTransferMode = "PreferredTransferMode";
const char* const VNAnalyticsEVEventPayloadKeyWireThroughput = "WireThroughput";
const char* const VNAnalyticsEVEventPayloadKeyWireThroughputExpected = "WireThroughputExpected";
const char* const VNAnalyticsEVEventPayloadKeyOverallThroughput = "OverallThroughput";
const char* const VNAnalyticsEVEventPayloadKeyWiFiSignalNoise = "SignalNoise";
const char* const VNAnalyticsEVEventPayloadKeyWiFiSignalStrength = "SignalStrength";
const char* const VNAnalyticsEVEventPayloadKeyWiFiSpecification = "WLANSpecification";

const char* const VNAnalyticsEventLTTokenIssuing = "org.varnel.Varnel.Kestos.LTTokenIssuing";
const char* const VNAnalyticsEventQuarantinedPath = "org.varnel.Varnel.QuarantinedPath";
const char* const VNAnalyticsEventMigrationCompleted = "org.varnel.Varnel.MigrationCompleted";
const char* const VNAnalyticsEventPostLoginPerf = "org.varnel.Varnel.FerrulePostLoginPerf";
const char* const VNAnalyticsEventPostLoginErrors = "org.varnel.Varnel.FerrulePostLoginErrors";
const char* const VNAnalyticsEventOverallResults1_0 = "org.varnel.Varnel.OverallResults.1.0";
const char* const VNAnalyticsEventWiFiInfo = "org.varnel.Varnel.WiFiInfo";

namespace {

// Set, with any value, inside the OS installation environment, where no
// event may leave the machine.
constexpr const char* kInstallEnvironment = "__OSINSTALL_ENVIRONMENT";

}  // namespace

VNAnalyticsManager::VNAnalyticsManager()
    : status_{{0, "target.transfer.unknown"},  {1, "target.transfer.complete"},
              {2, "target.transfer.complete.warning"}, {3, "target.transfer.canceled"},
              {4, "target.transfer.failed"},   {5, "windows.transfer.unknown"},
              {6, "windows.transfer.complete"}, {7, "windows.transfer.warning"},
              {8, "windows.transfer.canceled"}, {9, "windows.transfer.failed"}} {}

std::shared_ptr<VNAnalyticsManager> VNAnalyticsManager::init() {
  return std::shared_ptr<VNAnalyticsManager>(new VNAnalyticsManager());
}

std::shared_ptr<VNAnalyticsManager> VNAnalyticsManager::sharedManager() {
  static const std::shared_ptr<VNAnalyticsManager> shared = init();
  return shared;
}

void VNAnalyticsManager::traceLTTokenIssuingSuccess(bool success, std::uint64_t retries) const {
  VNValue payload = VNValue::dictionary();
  payload.set(VNAnalyticsEVEventPayloadKeyLTSTRetries, VNValue(static_cast<unsigned long long>(retries)));
  payload.set(VNAnalyticsEVEventPayloadKeyLTSTIssuingSuccess, VNValue(success));
  sendEvent(VNAnalyticsEventLTTokenIssuing, payload);
}

void VNAnalyticsManager::traceQuarantinedPath(const std::optional<std::string>& path) const {
  VNValue payload = VNValue::dictionary();
  if (path) payload.set(VNAnalyticsEVEventPayloadKeyPath, VNValue(*path));
  sendEvent(VNAnalyticsEventQuarantinedPath, payload);
}

void VNAnalyticsManager::traceMigrationTransferStatus(std::int64_t status) const {
  VNValue payload = VNValue::dictionary();
  if (auto found = status_.find(status); found != status_.end())
    payload.set(VNAnalyticsEVEventPayloadKeyResult, VNValue(found->second));
  sendEvent(VNAnalyticsEventMigrationCompleted, payload);
}

void VNAnalyticsManager::traceMigrationCompleted(const VNValue& payload) const {
  sendEvent(VNAnalyticsEventMigrationCompleted, payload);
}

void VNAnalyticsManager::tracePostLoginTaskPerformance(const VNValue& payload) const {
  sendEvent(VNAnalyticsEventPostLoginPerf, payload);
}

void VNAnalyticsManager::tracePostLoginTaskErrors(const VNValue& payload) const {
  sendEvent(VNAnalyticsEventPostLoginErrors, payload);
}

void VNAnalyticsManager::traceEventOverallResults1_0(const VNValue& payload) const {
  sendEvent(VNAnalyticsEventOverallResults1_0, payload);
}

void VNAnalyticsManager::traceWiFiInfo(const VNValue& payload) const {
  sendEvent(VNAnalyticsEventWiFiInfo, payload);
}

void VNAnalyticsManager::sendEvent(std::string_view eventName, const VNValue& payload) const {
  if (std::getenv(kInstallEnvironment) != nullptr) return;
  VNLogging::logType(VNLogTypeDefault, __func__, __LINE__,
                     VNFormat("Reporting analytics for:\nEvent : %@\n%@", std::string(eventName), payload));
  VNPlatformSlot<VNAnalyticsService>::get()->sendEvent(eventName, payload);
}
