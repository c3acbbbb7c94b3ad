#include "QuillonGateway/ModShelf.hpp"

namespace quillon::gateway {

namespace {

std::vector<ShippedMod> makeShelf() {
  ShippedMod tasks{.name = "tasks", .parts = {}};
  tasks.parts.push_back(ModPart{
      .part = "data",
      .behavior = "",
      .title = "tasks mod: the task record",
      .text = "Tasks are memories of type task. text: the work, one line. title: a few words naming it. filters: "
              "status (queued, doing, blocked, done), kind (task, subtask, epic), parent (m:<id> of the epic or task "
              "it belongs to), and when known due (YYYY-MM-DD) and priority (high, normal, low). One fact per "
              "key; the story goes in text or why.",
      .why = "The tasks mod's data file: what a task is and how it is keyed, so every agent files and finds them "
             "the same way."});
  tasks.parts.push_back(ModPart{
      .part = "behavior",
      .behavior = "add",
      .title = "tasks mod: add a task",
      .text = "When the user asks to add a task, sub-task or epic: propose its title, text and filters (status "
              "queued, its kind, its parent when it has one), wait for their yes, then memory_add with type task.",
      .why = "Runs in conversation. Never files a task the user has not said yes to."});
  tasks.parts.push_back(ModPart{
      .part = "behavior",
      .behavior = "show",
      .title = "tasks mod: show the board",
      .text = "When the user asks what is on their plate or to see the board: memory_get_by_type task (filters "
              "status to narrow it), then show the tasks grouped by status, epics with their sub-tasks under them.",
      .why = "Runs in conversation. The board is read fresh each time; nothing is cached."});
  tasks.parts.push_back(ModPart{
      .part = "behavior",
      .behavior = "edit",
      .title = "tasks mod: move a task along",
      .text = "When the user starts, blocks or finishes a task: memory_edit_filters with set status "
              "(doing, blocked, done); change wording with memory_patch. Never delete a done task unless asked.",
      .why = "Runs in conversation. Status lives in filters so software can count it."});
  tasks.parts.push_back(ModPart{
      .part = "behavior",
      .behavior = "tidy",
      .title = "tasks mod: tidy the board",
      .text = "When the user asks to tidy tasks: list done tasks and tasks whose parent no longer exists, propose "
              "what to delete or re-parent, and change only what they approve.",
      .why = "Runs in conversation, on request only."});
  return {std::move(tasks)};
}

}  // namespace

const std::vector<ShippedMod>& ModShelf::all() {
  static const std::vector<ShippedMod> shelf = makeShelf();
  return shelf;
}

const ShippedMod* ModShelf::find(std::string_view name) {
  for (const auto& mod : all())
    if (mod.name == name) return &mod;
  return nullptr;
}

std::string ModShelf::names() {
  std::string names;
  for (const auto& mod : all()) names += (names.empty() ? "" : ", ") + mod.name;
  return names;
}

}  // namespace quillon::gateway
