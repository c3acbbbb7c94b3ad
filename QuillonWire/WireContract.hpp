// WireContract: the version of the wire protocol this build speaks, and what to make of a daemon
// that speaks another.
//
// Every message to the daemon carries `version`; a reply that carries a different one means the
// daemon was updated under a running bridge, whose requests and answers may no longer match. A
// reply without a version is admitted (older daemons did not send one).
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace quillon::wire {

struct WireContract {
  static constexpr std::int64_t version = 1;

  // Shown instead of the daemon's answer once versions differ; no closing full stop.
  static constexpr std::string_view mismatchMessage =
      "Quillon updated; this session's bridge is older than the daemon, restart the session";

  enum class Verdict { admitted, mismatch };

  static constexpr Verdict verdict(std::int64_t ours, std::optional<std::int64_t> daemon) {
    return daemon && *daemon != ours ? Verdict::mismatch : Verdict::admitted;
  }
};

}  // namespace quillon::wire
