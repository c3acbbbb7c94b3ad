// XPCClient: the bridge's one door to the gateway daemon.
//
// It sends each GatewayRequest as JSON with the wire version, waits for the reply, and turns
// every way that can fail into a `failure` answer worded by DoorFault:
//   - the first attempt waits for as long as the gateway lives (a live gateway may take its
//     time); only a transport error ends it early;
//   - after a transport error it redials once (one redial for all the requests that met the same
//     broken connection), knocks first when a gateway answered this client before (it may have
//     come back as another build), and makes a second attempt bounded by the redial budget;
//   - a second silence is `silent`; a second transport error is `refused` when the service is
//     there and `absent` when it is not (or the stale-copy text when an update replaced us);
//   - a reply from another wire version is `skew`: its answer is replaced by the mismatch text,
//     and `onWireMismatch` is called, once per client, from the thread that met it.
// A second connection carries the subscription for GatewayEvents once `subscribe` is called.
//
// Platform-neutral: connections come from `makeConnection` (SystemDoor::makeConnection in the
// process, fakes or a test gateway in tests). Constructing the client makes its first connection
// object but touches no socket: the first send connects.
//
// Threading: send and sendTimed may be called from several threads at once and block their
// caller. One lock guards the fields marked below, held only for reads and swaps, never across a
// send, sleep or wait; callbacks are called outside it. The client must outlive every call.
// `makeConnection` is called under the lock and must be cheap and not call back into the client.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "QuillonKit/ClientLineage.hpp"
#include "QuillonKit/DoorConnection.hpp"
#include "QuillonKit/DoorFault.hpp"
#include "QuillonKit/DoorRedial.hpp"
#include "QuillonWire/Client.hpp"
#include "QuillonWire/GatewayEvent.hpp"

namespace quillon::kit {

class XPCClient final : public wire::Client {
 public:
  using MakeConnection = std::function<std::shared_ptr<DoorConnection>(const std::string& serviceName)>;
  using EventCallback = std::function<void(const wire::GatewayEvent&)>;

  XPCClient(std::string machServiceName, MakeConnection makeConnection, std::function<void()> onWireMismatch,
            std::function<bool()> serviceRegistered,
            std::function<std::optional<ClientLineage>()> clientLineage, DoorRedial redial = DoorRedial::standard);
  ~XPCClient() override;
  XPCClient(const XPCClient&) = delete;
  XPCClient& operator=(const XPCClient&) = delete;

  wire::GatewayResponse send(const wire::GatewayRequest& request) override;
  wire::TimedResponse sendTimed(const wire::GatewayRequest& request) override;

  // Events pushed by the gateway go to `onEvent` (on the connection's thread) from now on.
  void subscribe(EventCallback onEvent);

  // The fault of the latest exchange; nothing when it was answered.
  std::optional<DoorFault> lastDoorFault() const;
  // How many wire-version probes this client has sent.
  int knocks() const;

 private:
  struct EventRoute;
  struct SkewNotice;

  // Whether a gateway has ever answered this client; never goes back to false.
  class DoorHistory {
   public:
    void markConnected() { connected_.store(true); }
    bool connected() const { return connected_.load(); }

   private:
    std::atomic<bool> connected_{false};
  };

  std::shared_ptr<DoorConnection> dial(DoorConnection::EventHandler onEvent);
  std::shared_ptr<DoorConnection> currentConnection();
  // The connection to retry on after `failed` broke, and whether this caller made it.
  std::pair<std::shared_ptr<DoorConnection>, bool> redialAfter(const std::shared_ptr<DoorConnection>& failed);
  // Sends the wire-version probe and returns without waiting for its reply.
  void knock(DoorConnection& connection);
  void setFault(std::optional<DoorFault> fault);
  void ensureSubscribed();

  const std::string machServiceName_;
  const MakeConnection makeConnection_;
  const std::function<bool()> serviceRegistered_;
  const std::function<std::optional<ClientLineage>()> clientLineage_;
  const DoorRedial redial_;
  // Shared with the subscription's handlers, which may outlive the client by a moment.
  const std::shared_ptr<EventRoute> route_;
  // Shared with the knocks' reply handlers, which may run after the call that knocked has ended.
  const std::shared_ptr<SkewNotice> skew_;
  DoorHistory history_;

  mutable std::mutex lock_;
  std::shared_ptr<DoorConnection> connection_;     // guarded by lock_
  std::shared_ptr<DoorConnection> subConnection_;  // guarded by lock_
  std::optional<DoorFault> fault_;                 // guarded by lock_
  int knocks_ = 0;                                 // guarded by lock_
};

}  // namespace quillon::kit
