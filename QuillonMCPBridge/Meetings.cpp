#include "QuillonMCPBridge/Meetings.hpp"

#include "QuillonMCPBridge/FallbackAnswers.hpp"

namespace quillon::bridge {

using nlohmann::json;
namespace read = wire::read;

namespace {

json renderMeeting(const wire::GatewayResponse& response, const ToolCall&) { return meetingText(response); }

constexpr ToolRoute kMeetingRoutes[] = {
    {"meeting_list",
     [](const ToolCall& call) -> Prepared {
       return readRequest(read::MeetingList{.day = call.opt("day"), .person = call.opt("person"), .app = call.opt("app")});
     },
     renderMeeting},
    {"meeting_get",
     [](const ToolCall& call) -> Prepared {
       return readRequest(read::MeetingGet{.id = call.required("id"),
                                           .times = call.flag("times"),
                                           .session = call.sessionArg(),
                                           .subagent = call.subagent});
     },
     renderMeeting},
    {"meeting_search",
     [](const ToolCall& call) -> Prepared {
       return readRequest(read::MeetingSearch{.query = call.required("query"),
                                              .speaker = call.opt("speaker"),
                                              .from = call.opt("from"),
                                              .to = call.opt("to"),
                                              .limit = call.integer("limit")});
     },
     renderMeeting},
    {"meeting_stats",
     [](const ToolCall& call) -> Prepared { return readRequest(read::MeetingStats{.id = call.required("id")}); },
     renderMeeting},
    {"meeting_at",
     [](const ToolCall& call) -> Prepared {
       return readRequest(read::MeetingAt{.id = call.required("id"), .at = call.required("at")});
     },
     renderMeeting},
};

}  // namespace

std::optional<json> callMeeting(const ToolCall& call, wire::Client& client) {
  for (const auto& route : kMeetingRoutes)
    if (route.name == call.name) return serve(route, call, client);
  return std::nullopt;
}

json meetingText(const wire::GatewayResponse& response) { return rendered(response, Defang::no); }

}  // namespace quillon::bridge
