// Feeds arbitrary bytes to the request, response and event decoders. Beyond "no crash, no hang",
// whatever decodes must encode again, decode to an equal value, and encode to the same bytes:
// the two directions of the wire must agree on every message either end can produce.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "QuillonWire/GatewayEvent.hpp"
#include "QuillonWire/GatewayRequest.hpp"
#include "QuillonWire/GatewayResponse.hpp"
#include "QuillonWire/WireCodec.hpp"

namespace {

using namespace quillon::wire;

template <class T, class Decode>
void expectStableRoundTrip(const Decoded<T>& decoded, Decode decodeAgain) {
  if (!decoded) return;
  const Encoded encoded = encode(decoded.value());
  if (!encoded) std::abort();
  const Decoded<T> again = decodeAgain(encoded.value());
  if (!again || !(again.value() == decoded.value())) std::abort();
  const Encoded reencoded = encode(again.value());
  if (!reencoded || reencoded.value() != encoded.value()) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  expectStableRoundTrip(decodeRequest(text), decodeRequest);
  expectStableRoundTrip(decodeResponse(text), decodeResponse);
  expectStableRoundTrip(decodeEvent(text), decodeEvent);
  return 0;
}
