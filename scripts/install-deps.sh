#!/usr/bin/env bash
# Installs what Quillon needs on a fresh Debian machine, and only what is missing.
# Usage: scripts/install-deps.sh [start|test]
#   start  what building the bridge and the gateway and running the demo need: the compiler and
#          build tools, the libraries, and Node.js (`make start`, `./quillon start`)
#   test   all of that, and what the tests, benchmarks and fuzzing need, with the MCP SDK that the
#          end-to-end client test speaks through, and what making and checking the Debian package
#          needs (the default; `make test`, `make deb`)
# When everything is there it costs one dpkg-query call, so `make start` can run it every time.
set -euo pipefail
cd "$(dirname "$0")/.."
purpose="${1:-test}"

# Debian 12's libheif1 carries its HEVC decoder (libde265) and encoder (x265) as plain
# dependencies, so libheif-dev brings all that reading stored frames and making test frames needs.
packages=(
  build-essential g++ cmake make ninja-build pkg-config
  nlohmann-json3-dev libutf8proc-dev libsqlite3-dev libheif-dev libpng-dev libjpeg-dev libtomlplusplus-dev
  libgtest-dev libgmock-dev libbenchmark-dev
)
# The demo and the tests run Node.js; the SDK comes through npm, over HTTPS.
node_packages=(nodejs)
case "$purpose" in
  start) ;;
  test)
    packages+=(clang libclang-rt-dev ca-certificates)
    # The package: CPack finds the executables with file and their dependencies with
    # dpkg-shlibdeps (dpkg-dev); scripts/check-deb.sh runs lintian on it.
    packages+=(dpkg-dev file lintian)
    node_packages+=(npm)
    ;;
  *) echo "usage: scripts/install-deps.sh [start|test]" >&2; exit 2 ;;
esac
# A machine may carry its own Node.js outside Debian's packages; that one serves as well.
if ! command -v node >/dev/null || { [ "$purpose" = test ] && ! command -v npm >/dev/null; }; then
  packages+=("${node_packages[@]}")
fi

# One dpkg-query for all of them rather than a stamp file: it costs a few milliseconds and it
# cannot go stale when someone removes a package. Unknown names print nothing on stdout.
installed="$(dpkg-query -W -f='${Package} ${db:Status-Abbrev}\n' "${packages[@]}" 2>/dev/null || true)"
declare -A ready=()
while read -r name status; do
  [ "$status" = ii ] && ready[$name]=1
done <<<"$installed"
missing=()
for p in "${packages[@]}"; do
  [ -n "${ready[$p]:-}" ] || missing+=("$p")
done

if [ "${#missing[@]}" -gt 0 ]; then
  sudo=()
  if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null; then
      echo "Quillon needs these Debian packages: ${missing[*]}" >&2
      echo "Installing them takes root, and sudo is not installed. Have root install them:" >&2
      echo "  su -c 'apt-get update && apt-get install --no-install-recommends ${missing[*]}'" >&2
      echo "then run this command again (or run it as root in the first place)." >&2
      exit 1
    fi
    sudo=(sudo)
  fi
  echo "installing: ${missing[*]}"
  "${sudo[@]}" apt-get update -qq
  "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# The end-to-end client test speaks through the official MCP TypeScript SDK.
if [ "$purpose" = test ] && [ -f tests/sdk/package.json ] &&
   [ ! -d tests/sdk/node_modules/@modelcontextprotocol/sdk ]; then
  (cd tests/sdk && npm ci --no-audit --no-fund --loglevel=error)
fi
