// ClientInstance: which suite instance this client belongs to, and so which Mach services it dials.
//
// The segment is inserted between the bundle prefix and the suffix of every service identifier;
// it and the suffixes are empty in this build. Constants, computed once; thread-safe.
#pragma once

#include <string>
#include <string_view>

namespace quillon::wire {

struct ClientInstance {
  static constexpr std::string_view bundlePrefix = "example.fernhollow.quillon";
  static constexpr std::string_view segment = "";
  static constexpr std::string_view dataSuffix = "";
  static constexpr std::string_view displaySuffix = "";
  // The first word of every connection message.
  static constexpr std::string_view productName = "Quillon";

  // The daemon's Mach service: "example.fernhollow.quillon.gateway".
  static const std::string& gatewayID();
  static const std::string& menubarID();
};

}  // namespace quillon::wire
