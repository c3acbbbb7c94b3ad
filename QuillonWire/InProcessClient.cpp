#include "QuillonWire/InProcessClient.hpp"

#include <exception>
#include <string>

#include "QuillonWire/GatewayRequest.hpp"
#include "QuillonWire/GatewayWire.hpp"
#include "QuillonWire/WireCodec.hpp"

namespace quillon::wire {
namespace {

GatewayResponse failure(std::string_view message) { return GatewayResponse{answer::Failure{std::string(message)}}; }

}  // namespace

GatewayResponse InProcessClient::send(const GatewayRequest& request) { return sendTimed(request).response; }

TimedResponse InProcessClient::sendTimed(const GatewayRequest& request) {
  const Encoded sent = encode(request);
  if (!sent) return {failure(GatewayWire::encodeFailed), std::nullopt};

  // The gateway's side of the door.
  GatewayResponse answer;
  std::optional<std::chrono::milliseconds> served;
  const Decoded<GatewayRequest> received = decodeRequest(sent.value());
  if (!received) {
    answer = failure(GatewayWire::malformedRequest);
  } else {
    const auto start = std::chrono::steady_clock::now();
    try {
      answer = gateway_.serve(received.value());
    } catch (const std::exception& e) {
      answer = failure(std::string("the in-process gateway failed: ") + e.what());
    } catch (...) {
      answer = failure("the in-process gateway failed");
    }
    served = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
  }
  const Encoded reply = encode(answer);
  if (!reply) return {failure(GatewayWire::badReply), std::nullopt};

  // The client's side again.
  Decoded<GatewayResponse> decoded = decodeResponse(reply.value());
  if (!decoded) return {failure(GatewayWire::badReply), std::nullopt};
  return {std::move(decoded).value(), served};
}

}  // namespace quillon::wire
