// The user's time zone for the length of a test: a POSIX zone rule, so no zone files are needed.
#pragma once

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

namespace quillon::test {

class ScopedTimeZone {
 public:
  explicit ScopedTimeZone(const char* rule) {
    if (const char* old = std::getenv("TZ")) previous_ = old;
    setenv("TZ", rule, 1);
    tzset();
  }
  ~ScopedTimeZone() {
    if (previous_)
      setenv("TZ", previous_->c_str(), 1);
    else
      unsetenv("TZ");
    tzset();
  }
  ScopedTimeZone(const ScopedTimeZone&) = delete;
  ScopedTimeZone& operator=(const ScopedTimeZone&) = delete;

 private:
  std::optional<std::string> previous_;
};

}  // namespace quillon::test
