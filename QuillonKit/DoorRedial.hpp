// DoorRedial: how hard the door client tries again after the gateway connection breaks.
//
// After a transport error the client redials at once and makes one more attempt, bounded by
// `budget`; when it knocks first (a gateway that answered before may have come back as another
// build), it waits `pause` before the knock. Plain values; tests pass a short budget.
#pragma once

#include <chrono>

namespace quillon::kit {

struct DoorRedial {
  std::chrono::milliseconds budget;
  std::chrono::milliseconds pause;

  static const DoorRedial standard;

  // The budget in whole seconds, as the connection messages state it: truncated, and at least 1.
  constexpr int budgetSeconds() const {
    const auto seconds = budget.count() / 1000;
    return seconds < 1 ? 1 : static_cast<int>(seconds);
  }
};

inline constexpr DoorRedial DoorRedial::standard{std::chrono::seconds(3), std::chrono::milliseconds(100)};

}  // namespace quillon::kit
