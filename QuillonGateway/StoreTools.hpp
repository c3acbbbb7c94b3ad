// StoreTools: what a person runs on the store from a shell, beside a running gateway or without
// one: `status`, `export`, `import` and `backup` (docs/gateway.md, "Status, export, import and
// backup").
//
// Each works on the store the gateway of the same environment serves (DaemonSettings), and never
// leaves a file half-written: exports and backups are written beside their name and renamed into
// place, an import changes the store in one transaction or not at all. Exit codes: 0 done, 1 failed
// (one line on the error stream, "quillon-gateway: …"), 2 a usage error, 3 from `status` when no
// gateway runs. Reads go through SQLite's WAL, so a serving gateway is never held up for longer
// than one write of an import.
#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "QuillonKit/Environment.hpp"

namespace quillon::gateway {

struct StoreTools {
  static constexpr int kFailed = 1;
  static constexpr int kUsageError = 2;
  static constexpr int kNotRunning = 3;

  // Runs the tool `arguments` name (its name first). Nothing when they name none: they are the
  // gateway's own options.
  static std::optional<int> run(const std::vector<std::string>& arguments, const kit::Environment& environment,
                                std::ostream& out, std::ostream& err);
  // The same for this process: its arguments after the program's name, its environment, standard
  // output and error.
  static std::optional<int> run(int argc, char** argv);
};

}  // namespace quillon::gateway
