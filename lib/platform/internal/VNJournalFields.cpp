#include "platform/internal/VNJournalFields.h"

#include "common/VNStringUtilities.h"

namespace {

// The journal limits field names to 64 characters.
constexpr std::size_t kFieldNameLimit = 64;
constexpr std::string_view kPayloadPrefix = "VARNEL_PAYLOAD_";

std::string fieldValue(const VNValue& value) {
  if (const std::string* text = value.asString()) return *text;
  return value.jsonString();
}

}  // namespace

std::string VNAnalyticsMessageID(std::string_view eventName) {
  return VNUtilities::VN_sha256Hash(eventName).substr(0, 32);
}

std::string VNAnalyticsFieldName(std::string_view key) {
  if (key.empty()) return {};
  std::string name(kPayloadPrefix);
  for (unsigned char byte : key) {
    if (name.size() == kFieldNameLimit) break;
    if (byte >= 'a' && byte <= 'z') name += static_cast<char>(byte - 'a' + 'A');
    else if ((byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9')) name += static_cast<char>(byte);
    else name += '_';
  }
  return name;
}

std::vector<std::string> VNAnalyticsJournalFields(std::string_view eventName, const VNValue& payload) {
  std::vector<std::string> fields{
      "MESSAGE=Analytics event " + std::string(eventName),
      "MESSAGE_ID=" + VNAnalyticsMessageID(eventName),
      "PRIORITY=6",
      "VARNEL_ANALYTICS_EVENT=" + std::string(eventName),
      "VARNEL_ANALYTICS_PAYLOAD=" + payload.jsonString(),
  };
  if (const auto* entries = payload.asDictionary())
    for (const auto& [key, value] : *entries)
      if (std::string name = VNAnalyticsFieldName(key); !name.empty())
        fields.push_back(name + "=" + fieldValue(value));
  return fields;
}
