// ControlRequest: changes to the daemon's own state, sent inside GatewayRequest's `control` case.
//
// The suite's menu and settings clients send these (rules, concepts, forgetting, pause and resume,
// the recovery phrase, export, the keep switches, grants); the bridge shares the list so that one
// daemon answers every client. A daemon answers them with `ok`, `flag` or `failure`.
// `storeKeyForMigration` asks the daemon to hand its store key to another peer; its refusals are
// worded by StoreKeyWire.
#pragma once

#include "QuillonWire/WireCatalogue.hpp"

namespace quillon::wire {

// clang-format off
#define QUILLON_CONTROL_CASES(CASE)                                                                  \
  CASE(AddRule, "addRule", (String, value), (String, kind), (String, tier))                          \
  CASE(RemoveRule, "removeRule", (String, id))                                                       \
  CASE(ToggleRule, "toggleRule", (String, id), (Bool, enabled))                                      \
  CASE(AddConcept, "addConcept", (String, name, _0))                                                 \
  CASE(RemoveConcept, "removeConcept", (String, name, _0))                                           \
  CASE(Forget, "forget", (String, thingID))                                                          \
  CASE(DeleteUtterance, "deleteUtterance", (String, meeting), (Int64, rowid), (String, witness))     \
  CASE(DeleteAll, "deleteAll")                                                                       \
  CASE(ConnectApp, "connectApp", (String, app, _0))                                                  \
  CASE(DisconnectApp, "disconnectApp", (String, app, _0))                                            \
  CASE(RevealPhrase, "revealPhrase")                                                                 \
  CASE(EnterPhrase, "enterPhrase", (Vec<String>, words))                                             \
  CASE(Pause, "pause")                                                                               \
  CASE(PauseFor, "pauseFor", (Int, minutes))                                                         \
  CASE(Resume, "resume")                                                                             \
  CASE(GeneratePhrase, "generatePhrase")                                                             \
  CASE(Export, "export", (String, path))                                                             \
  CASE(Shutdown, "shutdown")                                                                         \
  CASE(SetDiagnosticLogging, "setDiagnosticLogging", (Bool, enabled, _0))                            \
  CASE(SetFrameKeep, "setFrameKeep", (Bool, enabled, _0))                                            \
  CASE(SetReelKeep, "setReelKeep", (Bool, enabled, _0))                                              \
  CASE(LogUpdate, "logUpdate", (String, line))                                                       \
  CASE(RequestGrant, "requestGrant", (String, kind))                                                 \
  CASE(StoreKeyForMigration, "storeKeyForMigration", (Int, legs))
// clang-format on
QUILLON_FAMILY(ControlRequest, control, QUILLON_CONTROL_CASES);

}  // namespace quillon::wire
