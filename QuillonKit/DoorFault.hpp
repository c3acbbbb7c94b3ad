// DoorFault: why the bridge got no admitted answer from the gateway, and the one sentence that
// tells the user (through the agent) what is wrong and what to do.
//
// The door client decides which fault applies (XPCClient); this type only words it. Every text
// is returned as a tool result; a fault never ends the bridge by itself. Plain value; thread-safe.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "QuillonWire/ClientProfile.hpp"

namespace quillon::kit {

class DoorFault {
 public:
  enum Value {
    absent,   // the gateway's service is not there: the suite is not running
    refused,  // the service is there but every connection failed: it refused this process
    silent,   // the gateway did not answer within the redial budget
    skew,     // the gateway speaks another wire version than this bridge
  };

  constexpr DoorFault(Value value) : value_(value) {}

  // Exactly "absent", "refused", "silent" or "skew"; anything else (other case included) is none.

  // Consulted only after two transport failures in a row: a service that is there refused us.
  static constexpr DoorFault forDoubleFailure(bool serviceRegistered) { return serviceRegistered ? refused : absent; }

  // Said instead of the `refused` text when this executable was replaced by an update while it
  // ran: the new gateway does not know the old binary. `version` is the installed one, if known.
  static std::string staleRefusalMessage(const std::optional<std::string>& version);

  std::string_view rawValue() const;
  // The text returned to the agent.
  std::string message() const;
  // The shorter line of the suite's menu.
  std::string menuLine(wire::ClientProfile profile) const;
  // Only a refusal is final: this process will not be admitted later, so its host may stop trying.
  constexpr bool isTerminalForThisProcess() const { return value_ == refused; }

  bool operator==(const DoorFault&) const = default;

 private:
  Value value_;
};

}  // namespace quillon::kit
