#include "QuillonGateway/StoreVerbs.hpp"

#include "QuillonBase/Text.hpp"
#include "QuillonGateway/MemoryStore.hpp"
#include "QuillonGateway/SessionBook.hpp"
#include "QuillonGateway/Sqlite.hpp"
#include "QuillonGateway/ShapeLaws.hpp"
#include "QuillonGateway/StoreWording.hpp"

namespace quillon::gateway {

namespace {

Shaped scopeOrRoot(const std::optional<std::string>& given) {
  if (!given || base::trimmed(*given).empty()) return Shaped{.value = "/", .refusal = {}};
  return ShapeLaws::scope(*given);
}

}  // namespace

GatewayResponse answer(VerbContext& context, const wire::read::GetByType& request) {
  // Reading is lenient: "Ticket " finds the tickets.
  std::string lowered(base::trimmed(request.type));
  for (char& c : lowered)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  const auto type = ShapeLaws::type(lowered);
  auto scope = scopeOrRoot(request.path);
  if (!scope.value) return failure(scope.refusal);
  std::vector<wire::Card> cards;
  if (type.value) {
    std::vector<wire::FilterPair> equal;
    if (request.filters) equal = pairs(*request.filters);
    for (const auto& memory : context.store.byType(*type.value, *scope.value, equal, StoreGateway::kMaxListed))
      cards.push_back(listedCard(memory));
  }
  return GatewayResponse{wire::answer::KindCards{.scope = *scope.value, .cards = std::move(cards)}};
}

GatewayResponse answer(VerbContext& context, const wire::read::ListTypes& request) {
  auto scope = scopeOrRoot(request.scope);
  if (!scope.value) return failure(scope.refusal);
  return GatewayResponse{wire::answer::KindTypes{.scope = *scope.value, .types = context.store.typeCounts(*scope.value)}};
}

GatewayResponse answer(VerbContext& context, const wire::read::Grab& grab) {
  const std::string asked(base::trimmed(grab.id));
  const auto id = parseMemoryID(asked);
  if (!id) return GatewayResponse{wire::answer::Thing{sessionCard(context, asked)}};
  const auto memory = context.store.find(*id);
  if (!memory) return GatewayResponse{wire::answer::Thing{}};
  if (grab.session && SessionBook::isSessionID(*grab.session)) {
    try {
      SessionBook(context.store.database()).noteGrab(*grab.session, grab.subagent.has_value(), *id, context.now);
    } catch (const SqlError&) {
      // An opening left uncounted costs a statistic, never the grab.
    }
  }
  return GatewayResponse{wire::answer::Thing{noteCard(*memory)}};
}

GatewayResponse answer(VerbContext& context, const wire::diagnostic::Log& log) {
  if (context.diagnostics) context.diagnostics(log.source, log.line);
  return GatewayResponse{wire::answer::Ok{}};
}

}  // namespace quillon::gateway
