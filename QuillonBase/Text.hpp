// Text: the small shapings of ASCII text the programs share.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace quillon::base {

// Without the blanks, tabs and line breaks (" \t\r\n") at either end; a view into `text`.
std::string_view trimmed(std::string_view text);

// Digits in groups of three: 16000 → "16,000"; -1234 → "-1,234".
std::string grouped(std::int64_t n);

}  // namespace quillon::base
