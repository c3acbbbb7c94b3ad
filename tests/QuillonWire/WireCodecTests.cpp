// The text edge of the wire: what is not JSON, what nests too deep, text that is not UTF-8, and
// the base64 of byte strings.
#include <gtest/gtest.h>

#include "QuillonWire/Base64.hpp"
#include "QuillonWire/GatewayRequest.hpp"
#include "QuillonWire/GatewayResponse.hpp"
#include "WireTestSupport.hpp"

namespace quillon::wire {
namespace {

using namespace testing;

TEST(WireCodec, TextThatIsNotOneJSONValueIsRefused) {
  for (const char* text : {"", "{", "ok", R"({"ok":{}} {"ok":{}})", R"({"ok":{},})", R"({"text":{"_0":"\ud800"}})",
                           "[1e400]"}) {
    const auto decoded = decodeResponse(text);
    ASSERT_FALSE(decoded.ok()) << text;
    EXPECT_TRUE(decoded.error().message.starts_with("not valid JSON: ")) << decoded.error().message;
  }
  EXPECT_EQ(decodeResponse("[]").error().message, "expected an object holding one GatewayResponse case, got an array");
}

TEST(WireCodec, DeepNestingIsRefusedBeforeParsing) {
  const std::string deep(100'000, '[');
  EXPECT_EQ(decodeRequest(deep).error().message, "not accepted: nested deeper than 512 levels");

  std::string objects;
  for (int i = 0; i < 600; ++i) objects += R"({"a":)";
  EXPECT_EQ(decodeResponse(objects).error().message, "not accepted: nested deeper than 512 levels");

  // Brackets inside strings are text, and nesting within the limit is read (and its keys ignored).
  const std::string brackets(5000, '[');
  const auto text = decodeResponse(R"({"text":{"_0":")" + brackets + R"(","later":)" + std::string(500, '[') +
                                   std::string(500, ']') + "}}");
  ASSERT_TRUE(text.ok()) << text.error().describe();
  EXPECT_EQ(std::get<answer::Text>(text.value().value).text, brackets);
}

TEST(WireCodec, InvalidUTF8IsReplacedOnEncoding) {
  const GatewayResponse response{answer::Text{std::string("caf\xC3\xA9 \xFF end")}};
  const auto encoded = encode(response);
  ASSERT_TRUE(encoded.ok());
  EXPECT_EQ(encoded.value(), "{\"text\":{\"_0\":\"caf\xC3\xA9 \xEF\xBF\xBD end\"}}");
  EXPECT_TRUE(decodeResponse(encoded.value()).ok());
}

TEST(Base64, EncodesTheStandardVectors) {
  const auto bytes = [](std::string_view text) { return std::vector<std::uint8_t>(text.begin(), text.end()); };
  const std::pair<const char*, const char*> vectors[] = {{"", ""},         {"f", "Zg=="},         {"fo", "Zm8="},
                                                         {"foo", "Zm9v"},  {"foob", "Zm9vYg=="},  {"fooba", "Zm9vYmE="},
                                                         {"foobar", "Zm9vYmFy"}};
  for (const auto& [plain, encoded] : vectors) {
    EXPECT_EQ(base64Encode(bytes(plain)), encoded);
    EXPECT_EQ(base64Decode(encoded), bytes(plain)) << encoded;
  }
  EXPECT_EQ(base64Encode(std::vector<std::uint8_t>{0xFB, 0xFF}), "+/8=");
}

TEST(Base64, RefusesAnythingButCanonicalPaddedText) {
  for (const char* text : {"Zg", "Zg=", "Zm9vY", "Z===", "====", "Zm=v", "Zm9v\n", " Zm9v", "Zm-_", "Zh==", "Zm9=",
                           "Zg==Zg=="}) {
    EXPECT_FALSE(base64Decode(text)) << text;
  }
}

}  // namespace
}  // namespace quillon::wire
