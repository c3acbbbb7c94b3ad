// Which gateway the bridge dials: the suite's, unless a test names a test service.
#include <gtest/gtest.h>

#include "QuillonKit/MCPGatewayName.hpp"

namespace quillon::kit {
namespace {

std::string resolved(std::optional<std::string> value) {
  if (!value) return MCPGatewayName::resolve(fixedEnvironment({}));
  return MCPGatewayName::resolve(fixedEnvironment({{"QUILLON_MCP_GATEWAY_FOR_TESTS", *value}}));
}

TEST(MCPGatewayName, TheSuiteGatewayUnlessATestServiceIsNamed) {
  EXPECT_EQ(resolved(std::nullopt), "example.fernhollow.quillon.gateway");
  EXPECT_EQ(resolved("example.fernhollow.quillon.test.x"), "example.fernhollow.quillon.test.x");
  EXPECT_EQ(resolved(" example.fernhollow.quillon.test.x\n"), "example.fernhollow.quillon.test.x");
  EXPECT_EQ(resolved("\xC2\xA0\texample.fernhollow.quillon.test.bridge-7\xE2\x80\xA8"), "example.fernhollow.quillon.test.bridge-7");
}

TEST(MCPGatewayName, AnythingButATestServiceIsIgnored) {
  for (const char* name : {"example.fernhollow.quillon.test.", "  example.fernhollow.quillon.test.  ",
                           "example.fernhollow.quillon.dev.gateway", "x.example.fernhollow.quillon.test.y",
                           "EXAMPLE.fernhollow.quillon.test.y", ""})
    EXPECT_EQ(resolved(name), "example.fernhollow.quillon.gateway") << name;
}

}  // namespace
}  // namespace quillon::kit
