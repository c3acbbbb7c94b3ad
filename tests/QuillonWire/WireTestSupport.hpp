// Helpers shared by the wire tests: wrapping cases in their envelope and looking at JSON.
#pragma once

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "QuillonWire/WireCodec.hpp"
#include "QuillonWire/WireJSON.hpp"

namespace quillon::wire::testing {

using nlohmann::json;

inline GatewayRequest asRequest(ReadRequest read) { return {request::Read{std::move(read)}}; }
inline GatewayRequest asRequest(ControlRequest control) { return {request::Control{std::move(control)}}; }
inline GatewayRequest asRequest(NotesRequest notes) { return {request::Notes{std::move(notes)}}; }
inline GatewayRequest asRequest(DiagnosticRequest diagnostic) { return {request::Diagnostic{std::move(diagnostic)}}; }

// The JSON a value encodes to; a failed encoding fails the test and gives null.
template <class T>
json jsonOf(const T& value) {
  auto encoded = toJSON(value);
  EXPECT_TRUE(encoded.ok()) << encoded.error().describe();
  return encoded ? encoded.value() : json();
}

// Encodes to text and decodes it again, as the door would carry it.
inline Decoded<GatewayRequest> overTheWire(const GatewayRequest& request) {
  auto text = encode(request);
  if (!text) return text.error();
  return decodeRequest(text.value());
}
inline Decoded<GatewayResponse> overTheWire(const GatewayResponse& response) {
  auto text = encode(response);
  if (!text) return text.error();
  return decodeResponse(text.value());
}

// The wire names of a family's cases, in declaration order.
template <class Family>
std::vector<std::string> caseNames() {
  using Cases = typename Family::Cases;
  return []<std::size_t... I>(std::index_sequence<I...>) {
    return std::vector<std::string>{std::string(std::variant_alternative_t<I, Cases>::wireName)...};
  }(std::make_index_sequence<std::variant_size_v<Cases>>{});
}

}  // namespace quillon::wire::testing
