// Texts shared by both ends of the door, carried in `failure` answers.
//
// GatewayWire words the faults of a message itself; StoreKeyWire the daemon's refusals to hand
// its store key to another peer (`storeKeyForMigration`). Clients show these texts, never parse
// them.
#pragma once

#include <string_view>

namespace quillon::wire {

struct GatewayWire {
  // A request the gateway could not decode.
  static constexpr std::string_view malformedRequest = "malformed request";
  // A request the client could not encode; nothing was sent.
  static constexpr std::string_view encodeFailed = "encode failed";
  // A reply without a payload, or whose payload is not a GatewayResponse.
  static constexpr std::string_view badReply = "bad reply";
};

struct StoreKeyWire {
  static constexpr std::string_view noKeyResolved = "this daemon has resolved no store key, so it can hand none";
  static constexpr std::string_view refused = "this door does not hand the store key to that peer";
  static constexpr std::string_view noPipe = "the store key could not be put on a pipe; nothing was handed over";
};

}  // namespace quillon::wire
