// NotesRequest: changes to the memory, sent inside GatewayRequest's `notes` case.
//
// The bridge's memory-writing and scope tools send these: writing, editing, patching and deleting
// memories, editing their filters, mapping folders to scope paths, the scope board, installing
// mods, and the user's own names. In `editFilters`, `set` holds keys to add or replace and `unset`
// keys to remove. `selfNames` without `names` reads the list; with an empty list it clears it.
#pragma once

#include "QuillonWire/FilterValue.hpp"
#include "QuillonWire/WireCatalogue.hpp"

namespace quillon::wire {

// clang-format off
#define QUILLON_NOTES_CASES(CASE)                                                                            \
  CASE(Write, "write", (String, text), (String, why), (String, writer), (String, type), (String, path),      \
       (Opt<Filters>, filters), (Opt<String>, title), (Opt<String>, session), (Opt<String>, subagent))       \
  CASE(Delete, "delete", (String, id))                                                                       \
  CASE(Edit, "edit", (String, id), (Opt<String>, text), (Opt<String>, why), (Opt<String>, type),             \
       (Opt<String>, path), (Opt<Filters>, filters), (Opt<String>, title))                                   \
  CASE(Patch, "patch", (String, id), (String, field), (String, find), (String, replace), (Bool, replaceAll)) \
  CASE(EditFilters, "editFilters", (String, id), (Opt<Filters>, set), (Opt<Vec<String>>, unset))             \
  CASE(ListPaths, "listPaths")                                                                               \
  CASE(MapPath, "mapPath", (String, folder), (String, path))                                                 \
  CASE(SetPath, "setPath", (String, path), (String, writer), (Opt<String>, session))                         \
  CASE(ScopeBoard, "scopeBoard")                                                                             \
  CASE(ModInstall, "modInstall", (String, name), (String, writer))                                           \
  CASE(SelfNames, "selfNames", (Opt<Vec<String>>, names))
// clang-format on
QUILLON_FAMILY(NotesRequest, notes, QUILLON_NOTES_CASES);

}  // namespace quillon::wire
