// ModShelf: the mods the gateway ships, ready to install into the user's memory.
//
// A mod is plain text: one data memory saying what its records are and how they are keyed, and
// behaviour memories saying how to run it and when. Installing writes them as memories of type
// "mod" filed at "/", each tagged mod=<name> and part=data|behavior, so that they ride prompts
// like any memory and the user can edit them. Stateless.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quillon::gateway {

struct ModPart {
  std::string part;      // "data" or "behavior"
  std::string behavior;  // the behaviour's name; empty for the data part
  std::string title;
  std::string text;
  std::string why;
};

struct ShippedMod {
  std::string name;
  std::vector<ModPart> parts;
};

struct ModShelf {
  static const std::vector<ShippedMod>& all();
  // The shipped mod of this name, or null.
  static const ShippedMod* find(std::string_view name);
  // The names on the shelf joined with ", " ("tasks").
  static std::string names();
};

}  // namespace quillon::gateway
