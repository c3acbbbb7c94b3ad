// Runbooks: the instructions the rules block and the "?" menu send the model to (rules.md,
// shortcuts.md, …), shipped inside the gateway and put into the user's runbooks root at start.
//
// Only a missing runbook is written: the user may have changed one, and theirs stays. The texts
// are the repository's runbooks/*.md, embedded by the build.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quillon::gateway {

struct RunbookText {
  std::string_view name;  // "rules.md"
  std::string_view text;
};

const std::vector<RunbookText>& shippedRunbooks();

// Writes each shipped runbook that `root` lacks (making the folder, private to the user, when
// missing) and returns the names written; a runbook that cannot be written is named in `problems`.
std::vector<std::string> placeMissingRunbooks(const std::string& root, std::vector<std::string>& problems);

}  // namespace quillon::gateway
