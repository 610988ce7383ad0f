#pragma once

#include <cmath>
#include <ctime>
#include <string>

#include "foundation/VNFormat.h"
#include "foundation/VNValue.h"

// Formats a date with strftime's `format` in UTC. Calendar years only go so
// far (a year must fit an int), and a read file may hold any double, so a
// date beyond about 300 million years either way, or not finite, is written
// as its seconds from the reference date instead of being converted.
inline std::string VNDateText(const VNValue::Date& date, const char* format) {
  constexpr double kCalendarLimit = 1e16;
  double unix = date.unixTime();
  std::tm tm{};
  if (std::isfinite(unix) && std::fabs(unix) < kCalendarLimit) {
    auto t = static_cast<std::time_t>(std::floor(unix));
    char buffer[64];
    if (gmtime_r(&t, &tm) && std::strftime(buffer, sizeof buffer, format, &tm) > 0) return buffer;
  }
  return VNFormat("%.17g s from 2001-01-01", date.sinceReferenceDate);
}
