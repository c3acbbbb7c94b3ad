#include "QuillonGateway/StoreGateway.hpp"

#include <chrono>

#include "QuillonGateway/MemoryStore.hpp"
#include "QuillonGateway/SessionBook.hpp"
#include "QuillonGateway/ShapeLaws.hpp"
#include "QuillonGateway/Sqlite.hpp"
#include "QuillonGateway/StoreVerbs.hpp"
#include "QuillonGateway/StoreWording.hpp"
#include "QuillonWire/GatewayRequest.hpp"
#include "QuillonWire/WireCodec.hpp"

namespace quillon::gateway {

namespace {

// Each verb to its `answer`, and every verb without one to `unimplemented`.
struct Verbs {
  VerbContext& context;

  template <class Verb>
  GatewayResponse operator()(const Verb& verb) const {
    if constexpr (requires { answer(context, verb); })
      return answer(context, verb);
    else
      return GatewayResponse{wire::answer::Unimplemented{std::string(Verb::wireName)}};
  }
};

// Another program (an import, most likely) held the store's write lock past the wait.
GatewayResponse busyFailure() {
  return failure("The store is busy: another program has held it for over " + std::to_string(kBusyWaitSeconds) +
                 " s (an import, perhaps); nothing was changed. Try again in a moment.");
}

std::optional<std::string_view> given(const std::string& value, std::size_t limit) {
  if (value.empty() || value.size() > limit) return std::nullopt;
  return value;
}
std::optional<std::string_view> given(const std::optional<std::string>& value, std::size_t limit) {
  if (!value) return std::nullopt;
  return given(*value, limit);
}

// What the request says about the agent session it comes from, when it names one.
template <class Verb>
std::optional<SessionSighting> sightingOf(const Verb& verb) {
  if constexpr (requires { verb.session; }) {
    if (!verb.session) return std::nullopt;
    SessionSighting sighting{.id = *verb.session, .writer = {}, .cwd = {}, .transcript = {}};
    if constexpr (requires { verb.writer; }) sighting.writer = given(verb.writer, ShapeLaws::kMaxWordBytes);
    if constexpr (requires { verb.cwd; }) sighting.cwd = given(verb.cwd, ShapeLaws::kMaxFolderBytes);
    if constexpr (requires { verb.transcript; }) sighting.transcript = given(verb.transcript, ShapeLaws::kMaxFolderBytes);
    return sighting;
  } else {
    return std::nullopt;
  }
}

}  // namespace

void StoreGateway::noteSighting(VerbContext& context, const SessionSighting& sighting) {
  // A bridge names its session on every call: one record a minute says as much as one per call,
  // and keeps reads from writing.
  std::string key(sighting.id);
  for (const auto& part : {sighting.writer, sighting.cwd, sighting.transcript})
    key.append(1, '\0').append(part.value_or("\x01"));
  if (key == lastSighting_ && context.now - lastSightingAt_ < kSightingSeconds) return;
  try {
    noteSession(context, sighting);
    lastSighting_ = std::move(key);
    lastSightingAt_ = context.now;
  } catch (const SqlError&) {
    // A session left unrecorded costs an offer later; a failed answer would cost this request.
  }
}

StoreGateway::StoreGateway(MemoryStore& store, DiagnosticSink diagnostics, Clock clock)
    : store_(store), diagnostics_(std::move(diagnostics)), clock_(std::move(clock)) {}

StoreGateway::Clock StoreGateway::systemClock() {
  return [] {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  };
}

wire::GatewayResponse StoreGateway::serve(const wire::GatewayRequest& request) {
  VerbContext context{.store = store_, .diagnostics = diagnostics_, .now = clock_()};
  const Verbs verbs{context};
  // Whatever the verb read, the next request starts from the latest committed state.
  struct Settle {
    MemoryStore& store;
    ~Settle() {
      try {
        store.settle();
      } catch (...) {
        // Resetting a statement reports only the error its last step already answered.
      }
    }
  } settle{store_};
  try {
    return std::visit(
        [&](const auto& family) {
          return std::visit(
              [&](const auto& verb) {
                if (const auto sighting = sightingOf(verb)) noteSighting(context, *sighting);
                return verbs(verb);
              },
              family.request.value);
        },
        request.value);
  } catch (const SqlError& error) {
    if (error.busy()) return busyFailure();
    return failure("The store could not answer (" + std::string(error.what()) + "); nothing was changed.");
  } catch (const std::exception& error) {
    return failure("The gateway could not answer (" + std::string(error.what()) + "); nothing was changed.");
  }
}

wire::GatewayResponse StoreGateway::serveOnce(const wire::GatewayRequest& request, std::string_view token) {
  if (token.empty() || token.size() > kMaxTokenBytes || !wire::changesStore(request)) return serve(request);
  const double now = clock_();
  try {
    auto transaction = store_.beginWrite();
    if (auto kept = store_.keptAnswer(token, now)) {
      store_.settle();
      if (auto decoded = wire::decodeResponse(*kept)) return std::move(decoded).value();
    }
    wire::GatewayResponse response = serve(request);
    // A failed statement may have ended the whole transaction: then nothing was kept, and a retry
    // is served afresh.
    if (!store_.database().inTransaction()) return response;
    if (const auto encoded = wire::encode(response)) store_.keepAnswer(token, encoded.value(), now);
    transaction->commit();
    return response;
  } catch (const SqlError& error) {
    store_.settle();
    if (error.busy()) return busyFailure();
    return failure("The store could not save this (" + std::string(error.what()) + "); nothing was changed.");
  }
}

}  // namespace quillon::gateway
