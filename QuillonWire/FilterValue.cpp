#include "QuillonWire/FilterValue.hpp"

#include <charconv>
#include <cmath>
#include <cstdint>

namespace quillon::wire {

std::string renderFilterValue(const FilterValue& value) {
  if (const auto* text = value.asString()) return *text;
  if (const auto* flag = value.asBool()) return *flag ? "true" : "false";
  const double number = *value.asNumber();
  if (std::trunc(number) == number && std::fabs(number) < 1e15)
    return std::to_string(static_cast<std::int64_t>(number));
  // No format argument: the shortest text that round-trips, plain where plain is shorter
  // (1234567.5, where the general format would say 1.2345675e+06).
  char buffer[32];
  const auto written = std::to_chars(buffer, buffer + sizeof buffer, number);
  return std::string(buffer, written.ptr);
}

}  // namespace quillon::wire
