#include "QuillonMCPBridge/ToolDispatch.hpp"

#include "QuillonMCPBridge/CardRendering.hpp"
#include "QuillonMCPBridge/DayReports.hpp"
#include "QuillonMCPBridge/FallbackAnswers.hpp"
#include "QuillonMCPBridge/MemoryFilters.hpp"
#include "QuillonMCPBridge/Meetings.hpp"
#include "QuillonMCPBridge/MemoryWriting.hpp"
#include "QuillonMCPBridge/RecallInjection.hpp"
#include "QuillonMCPBridge/RequiredArguments.hpp"
#include "QuillonMCPBridge/Screens.hpp"
#include "QuillonMCPBridge/SessionList.hpp"
#include "QuillonMCPBridge/StandingRules.hpp"
#include "QuillonMCPBridge/ToolResult.hpp"

namespace quillon::bridge {

using nlohmann::json;
using wire::GatewayResponse;
namespace read = wire::read;

namespace {

std::string dayOf(const ToolCall& call) { return call.opt("day").value_or("today"); }

// A search or grep that carried a from or to bound: an empty answer then says the window was empty.
bool windowed(const ToolCall& call) { return call.opt("from") || call.opt("to"); }

json plainText(const GatewayResponse& response, const ToolCall&) { return rendered(response, Defang::no); }
json noteTextOf(const GatewayResponse& response, const ToolCall&) { return noteText(response); }
json noteEditedOf(const GatewayResponse& response, const ToolCall&) { return noteEdited(response); }

// Every tool that reaches the gateway directly, in dispatch order.
constexpr ToolRoute kRoutes[] = {
    {"memory_get_relevant", preparePrimed, [](const GatewayResponse& response, const ToolCall&) { return primed(response); }},
    {"rules_get", prepareStandingRules,
     [](const GatewayResponse& response, const ToolCall& call) {
       return standingRules(response, call.flag("card"), validCeiling(call.given("card_ceiling")),
                            validCeiling(call.given("card_head_ceiling")));
     }},
    {"search",
     [](const ToolCall& call) -> Prepared {
       return readRequest(read::Recall{.query = call.required("query"), .from = call.opt("from"), .to = call.opt("to")});
     },
     [](const GatewayResponse& response, const ToolCall& call) { return cards(response, windowed(call)); }},
    {"grep",
     [](const ToolCall& call) -> Prepared {
       return readRequest(read::Grep{.query = call.required("query"), .from = call.opt("from"), .to = call.opt("to")});
     },
     [](const GatewayResponse& response, const ToolCall& call) { return cards(response, windowed(call)); }},
    {"memory_get_by_type",
     [](const ToolCall& call) -> Prepared {
       std::optional<wire::Filters> filters;
       if (auto refusal = readFilters(call, "filters", filters)) return std::move(*refusal);
       return readRequest(read::GetByType{.type = call.required("type"),
                                          .path = call.opt("scope"),
                                          .filters = std::move(filters),
                                          .session = call.sessionArg()});
     },
     [](const GatewayResponse& response, const ToolCall& call) { return byType(response, call.required("type")); }},
    {"memory_list_types",
     [](const ToolCall& call) -> Prepared { return readRequest(read::ListTypes{.scope = call.opt("scope")}); },
     [](const GatewayResponse& response, const ToolCall&) { return listTypes(response); }},
    {"grab",
     [](const ToolCall& call) -> Prepared {
       return readRequest(read::Grab{.id = call.required("id"),
                                     .session = call.sessionArg(),
                                     .full = call.flag("full"),
                                     .subagent = call.subagent});
     },
     [](const GatewayResponse& response, const ToolCall&) { return thing(response); }},
    {"day_get", [](const ToolCall& call) -> Prepared { return readRequest(read::GetDay{.day = dayOf(call)}); },
     plainText},
    {"day_get_card", [](const ToolCall& call) -> Prepared { return readRequest(read::DayCard{.day = dayOf(call)}); },
     plainText},
    {"day_get_hours_by_app",
     [](const ToolCall& call) -> Prepared {
       return readRequest(read::DayPresence{.day = dayOf(call), .app = call.opt("app")});
     },
     [](const GatewayResponse& response, const ToolCall&) { return presence(response); }},
    // The entity's text quotes the user's screen history, so it is the one plain text defanged.
    {"entity_get",
     [](const ToolCall& call) -> Prepared { return readRequest(read::GetEntity{.name = call.required("name")}); },
     [](const GatewayResponse& response, const ToolCall&) { return rendered(response, Defang::yes); }},
    {"session_list", prepareSessionList, [](const GatewayResponse& response, const ToolCall&) { return sessionList(response); }},
    {"storage_get_stats",
     [](const ToolCall& call) -> Prepared { return readRequest(read::StorageStats{.days = call.integer("days")}); },
     plainText},
    {"recall_stats",
     [](const ToolCall& call) -> Prepared { return readRequest(read::RecallStats{.days = call.integer("days")}); },
     plainText},
    {"memory_config_scan", [](const ToolCall&) -> Prepared { return readRequest(read::ConfigScan{}); }, plainText},
    {"moment_get",
     [](const ToolCall& call) -> Prepared { return readRequest(read::GetMoment{.id = call.required("id")}); },
     plainText},
    {"chapter_get",
     [](const ToolCall& call) -> Prepared { return readRequest(read::GetChapter{.id = call.required("id")}); },
     plainText},
    // Not in the catalogue, so the generic check does not cover its id: it words the same fault.
    {"title_trace",
     [](const ToolCall& call) -> Prepared {
       const auto id = call.s("id");
       if (!id) return Refusal{"title_trace needs a string 'id'."};
       return readRequest(read::TitleTrace{.id = *id});
     },
     plainText},
    {"screen_get", prepareScreenGet, screenGetOf},
    {"screen_open", prepareScreenOpen, screenOpenOf},
    {"memory_add", prepareMemoryAdd, [](const GatewayResponse& response, const ToolCall&) { return noteWritten(response); }},
    {"memory_delete", prepareMemoryDelete,
     [](const GatewayResponse& response, const ToolCall&) { return noteDeleted(response); }},
    {"memory_edit", prepareMemoryEdit, noteEditedOf},
    {"memory_patch", prepareMemoryPatch, noteEditedOf},
    {"memory_edit_filters", prepareMemoryEditFilters, noteEditedOf},
    {"mod_install", prepareModInstall, noteTextOf},
    {"self_names", prepareSelfNames, noteTextOf},
    {"scope_list_all", prepareScopeListAll, noteTextOf},
    {"scope_map_folder", prepareScopeMapFolder, noteTextOf},
    {"scope_set_for_session", prepareScopeSetForSession, noteTextOf},
};

}  // namespace

json dispatch(const ToolCall& call, wire::Client& client) {
  if (auto fault = requiredArgumentFault(call.name, call.arguments)) return errorContent(std::move(*fault));
  for (const auto& route : kRoutes)
    if (route.name == call.name) return serve(route, call, client);
  if (auto meeting = callMeeting(call, client)) return std::move(*meeting);
  return errorContent("Unknown tool: " + std::string(call.name));
}

}  // namespace quillon::bridge
