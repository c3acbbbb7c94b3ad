#include "QuillonMCPBridge/Meetings.hpp"

#include "QuillonMCPBridge/FallbackAnswers.hpp"

namespace quillon::bridge {

nlohmann::json meetingText(const wire::GatewayResponse& response) { return rendered(response, Defang::no); }

}  // namespace quillon::bridge
