// StoreGateway: the development gateway's answers, served from a MemoryStore.
//
// It serves the memory verbs (writing, editing, patching and deleting notes, their filters, the
// scopes, the user's names, the mod shelf) and the reads over them (by type, the type census, a
// grab), and takes diagnostic lines. Every other verb answers `unimplemented` naming it: this
// gateway captures no screens, so day, meeting, screen and entity reads have nothing to serve.
// Refusals are `failure` answers worded for the agent that will read them: what broke and how to
// call again.
//
// One StoreGateway per serving thread, each with its own store connection; `serve` never throws
// (a store failure is a `failure` answer). The store and the sink must outlive the gateway.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "QuillonWire/Gateway.hpp"

namespace quillon::gateway {

class MemoryStore;
struct SessionSighting;
struct VerbContext;

class StoreGateway final : public wire::Gateway {
 public:
  // Seconds since the epoch; injectable so tests can fix creation times and session expiry.
  using Clock = std::function<double()>;
  // Where `diagnostic` `log` lines go: the sending program and the line.
  using DiagnosticSink = std::function<void(std::string_view source, std::string_view line)>;

  // How long a scope declared with setPath holds.
  static constexpr double kSessionScopeSeconds = 2 * 60 * 60;
  // The most memories one getByType lists, newest first: enough to browse a type, small enough for
  // an agent's context.
  static constexpr std::size_t kMaxListed = 200;

  StoreGateway(MemoryStore& store, DiagnosticSink diagnostics, Clock clock);
  static Clock systemClock();

  wire::GatewayResponse serve(const wire::GatewayRequest& request) override;

  // `serve`, at most once per token for a request that changes the store: the answer is kept
  // with the token in the transaction of the change itself, and a request arriving again with
  // the token (the door's retry after a broken connection) gets the kept answer. A token longer
  // than kMaxTokenBytes, or on a read, is ignored.
  wire::GatewayResponse serveOnce(const wire::GatewayRequest& request, std::string_view token);
  static constexpr std::size_t kMaxTokenBytes = 128;

 private:
  // How long a sighting of the same session, with the same facts, goes unrecorded again.
  static constexpr double kSightingSeconds = 60;
  void noteSighting(VerbContext& context, const SessionSighting& sighting);

  MemoryStore& store_;
  DiagnosticSink diagnostics_;
  Clock clock_;
  std::string lastSighting_;
  double lastSightingAt_ = 0;
};

}  // namespace quillon::gateway
