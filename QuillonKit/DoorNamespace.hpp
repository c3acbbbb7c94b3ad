// DoorNamespace: the folder where gateways listen on systems without XPC (docs/door.md).
//
// `$XDG_RUNTIME_DIR/quillon` when XDG_RUNTIME_DIR is an absolute path; without one (agents that
// start the bridge with a cleaned environment drop it), `/run/user/<uid>/quillon` when the login
// manager made that user runtime folder, else `/tmp/quillon-<uid>`. Every process of the user, a
// gateway started from a login shell and a bridge started by any agent, so meets at one folder.
// Each service is the Unix socket `<folder>/<service name>`. Anyone who can put a socket there can
// feed the agent text, so the folder must be a real folder (not a link), owned by this user and
// writable by no one else; a client never dials through one that is not, and a gateway creates it
// with mode 0700. Stateless; thread-safe.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "QuillonKit/Environment.hpp"

namespace quillon::kit {

struct DoorNamespace {
  // What a check of the folder looks at (lstat's answer), so the rule can be tested for any owner.
  struct FolderFacts {
    bool isLink = false;
    bool isFolder = false;
    uid_t owner = 0;
    mode_t mode = 0;  // permission bits
  };

  // Where login managers make each user's runtime folder, `<root>/<uid>`.
  static constexpr const char* userRuntimeRoot = "/run/user";

  // `runtimeRoot` is read only when the environment names no absolute XDG_RUNTIME_DIR.
  static std::string folder(const Environment& environment, uid_t user, const std::string& runtimeRoot = userRuntimeRoot);
  // For this process: its environment and effective user.
  static std::string folder();

  // Whether a user runtime folder is one the login manager made for `user`: a real folder (not a
  // link) of that user with no group or other permission bits. Anything else may be a trap laid
  // by another user, so the door never moves into it.
  static bool isPrivateRuntimeFolder(const FolderFacts& facts, uid_t user);

  // Why the folder may not hold the door, or nothing when it may.
  static std::optional<std::string> problem(const std::string& folder, const FolderFacts& facts, uid_t user);
  // The same for the folder on disk, as this process's effective user; a missing folder is a problem.
  static std::optional<std::string> check(const std::string& folder);
  // Creates the folder with mode 0700 when missing, then checks it. Nothing when it may be used.
  static std::optional<std::string> create(const std::string& folder);

  // The socket of `serviceName` in `folder`; nothing when the name cannot be one file of the
  // folder ("", ".", "..", a "/" or a NUL in it) or the path is too long for a Unix socket.
  static std::optional<std::string> servicePath(const std::string& folder, const std::string& serviceName);
};

}  // namespace quillon::kit
