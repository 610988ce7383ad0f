#pragma once

#include <optional>
#include <string>
#include <string_view>

// The device-type table of docs/device-types.md: identifiers and readable
// descriptions of the chassis words, and how a model code maps to one.

// The identifier of a chassis word; the generic computer's for nothing or
// for a word outside the table.
std::string VNDeviceTypeOfChassis(const std::optional<std::string>& chassis);
// The identifier of a model code: the first chassis word (or synonym) that
// stands in it as a whole word, case ignored; else the generic computer's.
std::string VNDeviceTypeOfModel(std::string_view model);
// The description of an identifier; empty for one outside the table.
std::string VNDeviceTypeDescription(std::string_view type);
