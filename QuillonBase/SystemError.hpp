// SystemError: a failed system call told the way every Quillon program tells it.
#pragma once

#include <string>
#include <string_view>

namespace quillon::base {

// "<what>: <the system's text for error>", e.g. "open /tmp/x: Permission denied".
std::string systemError(std::string_view what, int error);
// The same for errno as it is now.
std::string systemError(std::string_view what);

}  // namespace quillon::base
