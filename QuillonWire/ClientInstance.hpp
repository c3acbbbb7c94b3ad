// ClientInstance: which suite instance this client belongs to, and so which Mach services it dials.
//
// The segment is inserted between the bundle prefix and the suffix of every service identifier;
// it and the suffixes are empty in this build. Constants, computed once; thread-safe.
#pragma once

#include <string>
#include <string_view>

namespace quillon::wire {

struct ClientInstance {
  static constexpr std::string_view bundlePrefix = "example.fernhollow.quillon";
  static constexpr std::string_view segment = "";
  static constexpr std::string_view dataSuffix = "";
  static constexpr std::string_view displaySuffix = "";
  // The first word of every connection message.
  static constexpr std::string_view productName = "Quillon";

  // The daemon's Mach service: "example.fernhollow.quillon.gateway".
  static const std::string& gatewayID();
  static const std::string& menubarID();

  // The folder that holds the user's runbooks (rules.md, shortcuts.md, mods.md, duplicates.md,
  // scopes.md, retrospective.md, optimize.md), which agents are told to read by path: always
  // absolute, with no "~" left in it. Linux: $XDG_DATA_HOME/quillon/runbooks when XDG_DATA_HOME is
  // an absolute path, else $HOME/.local/share/quillon/runbooks. macOS: the suite's folder under
  // ~/Library/Application Support. HOME unset or relative falls back to the account's home
  // folder. Read from the environment on each call (cheap, and tests can move it).
  static std::string runbooksRootExpanded();
};

// The user's home folder: HOME when it is absolute, else the account's entry in the user
// database, else "/" (a path that is at least absolute, for a process with no home at all).
std::string homeFolder();

}  // namespace quillon::wire
