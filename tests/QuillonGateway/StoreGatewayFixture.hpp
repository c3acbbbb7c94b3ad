// The development gateway served in process from a store in a temporary file, with its clock
// fixed: requests go in as their wire JSON and answers come back as JSON, as the door carries them.
#pragma once

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <cstdlib>
#include <ctime>

#include "DoorTestSupport.hpp"
#include "QuillonGateway/MemoryStore.hpp"
#include "QuillonGateway/StoreGateway.hpp"
#include "QuillonWire/GatewayRequest.hpp"
#include "QuillonWire/GatewayResponse.hpp"
#include "QuillonWire/WireCodec.hpp"
#include "QuillonWire/WireJSON.hpp"

namespace quillon::gateway {

using nlohmann::json;

inline constexpr double kNoon = 1795262400;  // 2026-11-21 12:00 UTC

class StoreGatewayTest : public ::testing::Test {
 protected:
  StoreGatewayTest() {
    setenv("TZ", "UTC", 1);
    tzset();
  }

  // The answer to one request given as its wire JSON, as JSON.
  json serve(const json& request) {
    auto decoded = wire::decodeRequest(request.dump());
    EXPECT_TRUE(decoded.ok()) << decoded.error().describe();
    return wire::toJSON(gateway.serve(decoded.value())).value();
  }
  json notes(const std::string& verb, json payload = json::object()) {
    return serve({{"notes", {{"_0", {{verb, std::move(payload)}}}}}});
  }
  json read(const std::string& verb, json payload = json::object()) {
    return serve({{"read", {{"_0", {{verb, std::move(payload)}}}}}});
  }
  json write(const std::string& text, json extra = json::object()) {
    json payload = {{"text", text}, {"why", "because"}, {"writer", "claude-code"}, {"type", ""}, {"path", ""}};
    payload.update(extra);
    return notes("write", payload);
  }

  static json text(const std::string& value) { return {{"text", {{"_0", value}}}}; }
  static json failure(const std::string& message) { return {{"failure", {{"message", message}}}}; }
  static json updated(const std::string& id, std::vector<std::string> echo) {
    return {{"noteID", {{"_0", id}, {"echo", echo}}}};
  }

  test::TempFolder temp;
  MemoryStore store{temp.path() + "/store.db"};
  double now = kNoon;
  std::vector<std::string> diagnostics;
  StoreGateway gateway{store,
                       [this](std::string_view source, std::string_view line) {
                         diagnostics.push_back(std::string(source) + ": " + std::string(line));
                       },
                       [this] { return now; }};
};

}  // namespace quillon::gateway
