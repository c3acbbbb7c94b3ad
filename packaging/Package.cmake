# The Debian package, built by CPack from a configured and built tree (`make deb`, which runs
# `cpack -G DEB` in it) out of the same install rules as `cmake --install`: the programs stripped
# in /usr/lib/quillon with links in /usr/bin, the frames library beside them, the runbooks, the
# systemd user unit, the manual pages and the documentation. scripts/check-deb.sh inspects it.
file(STRINGS ${PROJECT_SOURCE_DIR}/VERSION QUILLON_VERSION LIMIT_COUNT 1)
string(STRIP "${QUILLON_VERSION}" QUILLON_VERSION)
set(QUILLON_MAINTAINER "Quillon developers <quillon@example.org>")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME quillon)
set(CPACK_PACKAGE_VERSION ${QUILLON_VERSION})
set(CPACK_PACKAGE_CONTACT ${QUILLON_MAINTAINER})
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${QUILLON_MAINTAINER})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "memory for AI coding agents: MCP server, gateway and prompt hooks")
set(CPACK_PACKAGE_DESCRIPTION [[
Quillon keeps a person's notes, standing rules, shortcuts and scopes, and
offers them to AI coding agents (Claude Code, Codex, Cursor, opencode).
.
This package holds quillon-mcp, the MCP server an agent starts over standard
input and output; quillon-gateway, the daemon with an embedded SQLite store
that serves it, with a systemd user unit; and quillon-hook, which the agents'
prompt hooks run and which installs Quillon into an agent's configuration.
]])
# What the package needs at run time is what its executables and library link, as dpkg-shlibdeps
# finds it, never a list kept by hand.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The files' modes do not depend on the umask of whoever builds the package.
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
# Installed into a staging folder through DESTDIR with the prefix /usr, so everything written at
# install time (the unit's ExecStart) names the path the package installs to, not the staging one.
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
include(CPack)
