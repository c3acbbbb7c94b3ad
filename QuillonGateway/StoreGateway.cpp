#include "QuillonGateway/StoreGateway.hpp"

#include <chrono>

#include "QuillonGateway/MemoryStore.hpp"
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

}  // namespace

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
    return std::visit([&](const auto& family) { return std::visit(verbs, family.request.value); }, request.value);
  } catch (const SqlError& error) {
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
    return failure("The store could not save this (" + std::string(error.what()) + "); nothing was changed.");
  }
}

}  // namespace quillon::gateway
