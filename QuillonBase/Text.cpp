#include "QuillonBase/Text.hpp"

namespace quillon::base {

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  const auto first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::string grouped(std::int64_t n) {
  // Digits of |n|; the most negative value has no positive twin, so work on the unsigned form.
  const std::uint64_t magnitude = n < 0 ? ~static_cast<std::uint64_t>(n) + 1 : static_cast<std::uint64_t>(n);
  const std::string digits = std::to_string(magnitude);
  std::string out;
  if (n < 0) out.push_back('-');
  const std::size_t lead = digits.size() % 3 == 0 ? 3 : digits.size() % 3;
  out.append(digits, 0, lead);
  for (std::size_t i = lead; i < digits.size(); i += 3) {
    out.push_back(',');
    out.append(digits, i, 3);
  }
  return out;
}

}  // namespace quillon::base
