// ClientProfile: whether this is a development or a production build of the suite.
//
// A development suite registers its daemon under its own service name and words the menu's
// connection lines for developers. This build is production.
#pragma once

#include <optional>
#include <string_view>

namespace quillon::wire {

class ClientProfile {
 public:
  enum Value { dev, production };

  constexpr ClientProfile(Value value) : value_(value) {}

  // Exactly "dev" or "production"; any other text (other case, blanks) builds no profile.
  static constexpr std::optional<ClientProfile> fromRawValue(std::string_view raw) {
    if (raw == "dev") return ClientProfile(dev);
    if (raw == "production") return ClientProfile(production);
    return std::nullopt;
  }

  static constexpr ClientProfile current() { return production; }

  constexpr std::string_view rawValue() const { return value_ == dev ? "dev" : "production"; }
  constexpr bool isProduction() const { return value_ == production; }

  bool operator==(const ClientProfile&) const = default;

 private:
  Value value_;
};

}  // namespace quillon::wire
