// MCPExitGate: makes an ending that arrives from another thread wait for the reply that is owed.
//
// The gateway client may report a contract skew at any moment, even while a tool call is between
// reading its request and writing its reply. Ending at once would leave the agent waiting for an
// answer that never comes, so the read loop marks each request with beginRequest/endRequest and
// the skew handler asks stopRequested. One lock makes each operation atomic: a skew landing
// between the two marks is always deferred to the end of that request, and one landing outside
// them always ends the process at once. Safe to call from any thread.
#pragma once

#include <mutex>

namespace quillon::bridge {

class MCPExitGate {
 public:
  MCPExitGate() = default;
  MCPExitGate(const MCPExitGate&) = delete;
  MCPExitGate& operator=(const MCPExitGate&) = delete;

  // A request is taken up: its reply is owed until endRequest.
  void beginRequest();
  // The reply (if any) has been written. True means a stop was deferred meanwhile: exit now.
  bool endRequest();
  // A stop is asked for. True: no reply is owed, the process may stop now. False: the stop is
  // deferred to the end of the current request (and stays decided: the next endRequest ends it).
  bool stopRequested();

 private:
  std::mutex lock_;
  bool replyOwed_ = false;       // guarded by lock_
  bool endingDeferred_ = false;  // guarded by lock_; never cleared once set
};

// What happens to the bridge, and whether it survives it.
enum class BridgeEvent { channelDied, contractSkew, endOfInput };
enum class BridgeVerdict { carryOn, stop };

struct BridgeLifetime {
  // A dropped gateway connection is redialled on the next request; skew and end of input end us.
  static constexpr BridgeVerdict verdict(BridgeEvent event) {
    return event == BridgeEvent::channelDied ? BridgeVerdict::carryOn : BridgeVerdict::stop;
  }
};

}  // namespace quillon::bridge
