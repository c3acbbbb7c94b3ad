// StoreVerbs: the verbs StoreGateway serves, grouped by concept, one file per group.
//
// Each verb is an `answer` overload taking the request's own record; StoreGateway::serve calls
// the overload that exists and answers `unimplemented` for every other verb. A verb runs inside
// one serve: it may throw SqlError (the gateway turns it into a `failure`), and a write it makes
// commits before it returns.
#pragma once

#include "QuillonGateway/StoreGateway.hpp"
#include "QuillonWire/GatewayRequest.hpp"
#include "QuillonWire/GatewayResponse.hpp"

namespace quillon::gateway {

class MemoryStore;
struct SessionSighting;

// What one request may use: the store, where diagnostic lines go, and the request's moment.
struct VerbContext {
  MemoryStore& store;
  const StoreGateway::DiagnosticSink& diagnostics;
  double now;
};

using wire::GatewayResponse;

// Writing notes (NoteWrites.cpp): every change to a memory, and installing a mod.
GatewayResponse answer(VerbContext& context, const wire::notes::Write& write);
GatewayResponse answer(VerbContext& context, const wire::notes::Delete& request);
GatewayResponse answer(VerbContext& context, const wire::notes::Edit& edit);
GatewayResponse answer(VerbContext& context, const wire::notes::Patch& patch);
GatewayResponse answer(VerbContext& context, const wire::notes::EditFilters& edit);
GatewayResponse answer(VerbContext& context, const wire::notes::ModInstall& install);

// Scopes and names (ScopeVerbs.cpp): the scope tree, the folder map, a session's scope, the rules
// in force at a scope, the user's own names.
GatewayResponse answer(VerbContext& context, const wire::notes::ListPaths& request);
GatewayResponse answer(VerbContext& context, const wire::notes::MapPath& map);
GatewayResponse answer(VerbContext& context, const wire::notes::SetPath& set);
GatewayResponse answer(VerbContext& context, const wire::notes::ScopeBoard& request);
GatewayResponse answer(VerbContext& context, const wire::notes::SelfNames& request);
GatewayResponse answer(VerbContext& context, const wire::read::StandingRules& request);

// Reading notes (NoteReads.cpp): by type, the type census, one memory whole, diagnostic lines.
GatewayResponse answer(VerbContext& context, const wire::read::GetByType& request);
GatewayResponse answer(VerbContext& context, const wire::read::ListTypes& request);
GatewayResponse answer(VerbContext& context, const wire::read::Grab& grab);
GatewayResponse answer(VerbContext& context, const wire::diagnostic::Log& log);

// Recall (RecallVerbs.cpp): finding memories by their words, and the primed lane with shortcuts.
GatewayResponse answer(VerbContext& context, const wire::read::Recall& recall);
GatewayResponse answer(VerbContext& context, const wire::read::Grep& grep);
GatewayResponse answer(VerbContext& context, const wire::read::Primed& primed);

// Sessions (SessionVerbs.cpp): the agent sessions seen, offered by scope, and how recall rode.
GatewayResponse answer(VerbContext& context, const wire::read::SessionList& request);
GatewayResponse answer(VerbContext& context, const wire::read::RecallStats& request);
// Records what a request says about its session; an id that cannot name one is passed over.
void noteSession(VerbContext& context, const SessionSighting& sighting);
// The card grab shows for a session id the gateway has seen.
std::optional<wire::Card> sessionCard(VerbContext& context, std::string_view id);

// The agent inventory (AgentInventory.cpp): each agent's install, connection and memory files.
GatewayResponse answer(VerbContext& context, const wire::read::ConfigScan& request);

// The scope a caller works in: the folder→scope map applied to its folder, else the scope its
// session declared, else the root.
std::string callerScope(VerbContext& context, const std::optional<std::string>& cwd,
                        const std::optional<std::string>& session, std::string_view writer);

}  // namespace quillon::gateway
