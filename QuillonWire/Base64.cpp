#include "QuillonWire/Base64.hpp"

#include <array>

namespace quillon::wire {
namespace {

constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t kInvalid = 0xFF;

constexpr std::array<std::uint8_t, 256> makeSextets() {
  std::array<std::uint8_t, 256> sextets{};
  sextets.fill(kInvalid);
  for (std::size_t i = 0; i < kAlphabet.size(); ++i)
    sextets[static_cast<unsigned char>(kAlphabet[i])] = static_cast<std::uint8_t>(i);
  return sextets;
}
constexpr auto kSextets = makeSextets();

}  // namespace

std::string base64Encode(std::span<const std::uint8_t> bytes) {
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  std::size_t i = 0;
  for (; i + 3 <= bytes.size(); i += 3) {
    const std::uint32_t group = (std::uint32_t{bytes[i]} << 16) | (std::uint32_t{bytes[i + 1]} << 8) | bytes[i + 2];
    text += kAlphabet[(group >> 18) & 63];
    text += kAlphabet[(group >> 12) & 63];
    text += kAlphabet[(group >> 6) & 63];
    text += kAlphabet[group & 63];
  }
  const std::size_t rest = bytes.size() - i;
  if (rest == 1) {
    const std::uint32_t group = std::uint32_t{bytes[i]} << 16;
    text += kAlphabet[(group >> 18) & 63];
    text += kAlphabet[(group >> 12) & 63];
    text += "==";
  } else if (rest == 2) {
    const std::uint32_t group = (std::uint32_t{bytes[i]} << 16) | (std::uint32_t{bytes[i + 1]} << 8);
    text += kAlphabet[(group >> 18) & 63];
    text += kAlphabet[(group >> 12) & 63];
    text += kAlphabet[(group >> 6) & 63];
    text += '=';
  }
  return text;
}

std::optional<std::vector<std::uint8_t>> base64Decode(std::string_view text) {
  if (text.size() % 4 != 0) return std::nullopt;
  std::size_t padding = 0;
  if (!text.empty() && text.back() == '=') padding = text[text.size() - 2] == '=' ? 2 : 1;
  std::vector<std::uint8_t> bytes;
  bytes.reserve(text.size() / 4 * 3);
  for (std::size_t i = 0; i < text.size(); i += 4) {
    const bool last = i + 4 == text.size();
    const std::size_t digits = last ? 4 - padding : 4;
    std::uint32_t group = 0;
    for (std::size_t k = 0; k < 4; ++k) {
      std::uint8_t sextet = 0;
      if (k < digits) {
        sextet = kSextets[static_cast<unsigned char>(text[i + k])];
        if (sextet == kInvalid) return std::nullopt;
      }
      group = (group << 6) | sextet;
    }
    bytes.push_back(static_cast<std::uint8_t>(group >> 16));
    if (digits > 2) bytes.push_back(static_cast<std::uint8_t>(group >> 8));
    if (digits > 3) bytes.push_back(static_cast<std::uint8_t>(group));
    // Bits below the last whole byte must be zero, so every byte string has one spelling.
    const std::uint32_t stray = digits == 2 ? (group & 0xFFFF) : digits == 3 ? (group & 0xFF) : 0;
    if (stray != 0) return std::nullopt;
  }
  return bytes;
}

}  // namespace quillon::wire
