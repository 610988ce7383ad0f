#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "foundation/VNValue.h"

// The journal fields of one analytics event, each "NAME=value" (values may
// hold any bytes); docs/analytics.md documents them. Never fails: payload
// entries that make no field name are kept in the JSON payload field only.
std::vector<std::string> VNAnalyticsJournalFields(std::string_view eventName, const VNValue& payload);

// The MESSAGE_ID of an event: the first 16 bytes of the SHA-256 of its name,
// as 32 lowercase hexadecimal digits.
std::string VNAnalyticsMessageID(std::string_view eventName);

// A payload key as a journal field name: "VARNEL_ANALYTICS_" and the key with
// ASCII letters in upper case and every other byte but digits as "_", cut to
// the journal's 64 characters; empty for an empty key.
std::string VNAnalyticsFieldName(std::string_view key);
