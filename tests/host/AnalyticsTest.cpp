// Analytics events: names, payloads, the status table's two families, the
// install-environment switch, the PHY table and the journal fields.
#include <stdlib.h>

#include "host/VNAnalyticsFieldConverter.h"
#include "host/VNAnalyticsManager.h"
#include "platform/VNAnalyticsService.h"
#include "platform/internal/VNJournalFields.h"
#include "support/VNTest.h"

namespace {

class RecordingAnalytics final : public VNAnalyticsService {
 public:
  void sendEvent(std::string_view name, const VNValue& payload) override { sent.push_back({std::string(name), payload}); }
  std::vector<std::pair<std::string, VNValue>> sent;
};

class Analytics : public ::testing::Test {
 protected:
  Analytics() : capture_(dir_ / "log"), override_(service_) { ::unsetenv("__OSINSTALL_ENVIRONMENT"); }
  ~Analytics() override { ::unsetenv("__OSINSTALL_ENVIRONMENT"); }
  VNTestDir dir_;
  VNLogCapture capture_;
  std::shared_ptr<RecordingAnalytics> service_ = std::make_shared<RecordingAnalytics>();
  VNPlatformOverride<VNAnalyticsService> override_;
};

TEST_F(Analytics, TransferStatusFamiliesDifferAtTheirThirdEntry) {
  auto manager = VNAnalyticsManager::sharedManager();
  manager->traceMigrationTransferStatus(7);
  manager->traceMigrationTransferStatus(2);
  manager->traceMigrationTransferStatus(10);
  manager->traceMigrationCompleted(VNValue::dictionary());
  ASSERT_EQ(service_->sent.size(), 4u);
  for (const auto& [name, payload] : service_->sent) EXPECT_EQ(name, "org.varnel.Varnel.MigrationCompleted");
  EXPECT_EQ(*service_->sent[0].second.findString("Result"), "windows.transfer.warning");
  EXPECT_EQ(*service_->sent[1].second.findString("Result"), "target.transfer.complete.warning");
  EXPECT_EQ(service_->sent[2].second, VNValue::dictionary());
}

TEST_F(Analytics, TokenIssuingSendsExactlyRetriesAndSuccess) {
  VNAnalyticsManager::sharedManager()->traceLTTokenIssuingSuccess(false, 3);
  VNValue expected = VNValue::dictionary();
  expected.set("Retries", VNValue(3));
  expected.set("Success", VNValue(false));
  ASSERT_EQ(service_->sent.size(), 1u);
  EXPECT_EQ(service_->sent[0].second, expected);
  auto entries = capture_.systemLog().entries();
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].text.rfind("Reporting analytics for:\nEvent : org.varnel.Varnel.Kestos.LTTokenIssuing\n", 0), 0u);
}

TEST_F(Analytics, InstallEnvironmentEvenEmptySilencesEverything) {
  ::setenv("__OSINSTALL_ENVIRONMENT", "", 1);
  VNAnalyticsManager::sharedManager()->traceWiFiInfo(VNValue::dictionary());
  EXPECT_TRUE(service_->sent.empty());
  EXPECT_TRUE(capture_.systemLog().entries().empty());
}

TEST(AnalyticsFieldConverter, PhyModesFollowThePayloadOrder) {
  const std::pair<std::int64_t, const char*> cases[] = {{-1, "1"}, {0, "1"}, {1, "3"}, {2, "2"}, {3, "4"},
                                                        {4, "5"}, {5, "6"}, {6, "7"}, {7, "1"}};
  for (auto [code, text] : cases) EXPECT_EQ(VNAnalyticsFieldConverter::valueForRPPHYMode(code), text) << code;
}

TEST(AnalyticsJournal, FieldsCarryAStableIdAndEveryEntry) {
  VNValue payload = VNValue::dictionary();
  payload.set("Path", VNValue("/a\nb"));
  payload.set("nested-key", VNValue::dictionary());
  payload.set("", VNValue(1));
  auto fields = VNAnalyticsJournalFields("org.varnel.Varnel.QuarantinedPath", payload);
  EXPECT_EQ(VNAnalyticsMessageID("org.varnel.Varnel.QuarantinedPath").size(), 32u);
  EXPECT_NE(std::find(fields.begin(), fields.end(), "VARNEL_PAYLOAD_PATH=/a\nb"), fields.end());
  EXPECT_NE(std::find(fields.begin(), fields.end(), "VARNEL_PAYLOAD_NESTED_KEY={}"), fields.end());
  EXPECT_EQ(VNAnalyticsFieldName(std::string(100, 'k')).size(), 64u);
}

}  // namespace
