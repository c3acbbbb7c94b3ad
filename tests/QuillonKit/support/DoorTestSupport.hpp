// What the door tests share: a private temporary folder standing in for XDG_RUNTIME_DIR, a fresh
// test service name, and requests to send.
#pragma once

#include <stdlib.h>

#include <atomic>
#include <filesystem>
#include <string>

#include "QuillonWire/GatewayRequest.hpp"
#include "QuillonWire/GatewayResponse.hpp"

namespace quillon::test {

// A folder of its own under /tmp, removed with everything in it.
class TempFolder {
 public:
  TempFolder() {
    std::string pattern = "/tmp/quillon-door-test-XXXXXX";
    if (::mkdtemp(pattern.data()) != nullptr) path_ = pattern;
  }
  ~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// "example.fernhollow.quillon.test.door-1", "…door-2", …: each test dials its own service.
inline std::string freshServiceName() {
  static std::atomic<int> next{0};
  return "example.fernhollow.quillon.test.door-" + std::to_string(++next);
}

inline wire::GatewayRequest logRequest(std::string line, std::string source = "test") {
  return wire::GatewayRequest{
      wire::request::Diagnostic{wire::DiagnosticRequest{wire::diagnostic::Log{.source = std::move(source), .line = std::move(line)}}}};
}

inline wire::GatewayResponse failure(std::string message) {
  return wire::GatewayResponse{wire::answer::Failure{.message = std::move(message)}};
}

inline wire::GatewayResponse ok() { return wire::GatewayResponse{wire::answer::Ok{}}; }

}  // namespace quillon::test
