#!/usr/bin/env bash
# Installs what building and testing Quillon needs on a fresh Debian machine: the compilers and
# build tools, the libraries, and the MCP SDK that the end-to-end client test speaks through.
# Safe to run again: apt and npm skip what is already there.
set -euo pipefail
cd "$(dirname "$0")/.."

# Debian 12's libheif1 carries its HEVC decoder (libde265) and encoder (x265) as plain
# dependencies, so libheif-dev brings all that reading stored frames and making test frames needs.
packages=(
  build-essential g++ cmake make pkg-config clang libclang-rt-dev
  nlohmann-json3-dev libutf8proc-dev libsqlite3-dev libheif-dev libpng-dev libjpeg-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  nodejs npm
)

sudo=""
if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
# A machine may carry its own Node.js outside Debian's packages; that one serves as well.
if command -v node >/dev/null && command -v npm >/dev/null; then
  filtered=()
  for p in "${missing[@]}"; do [ "$p" = nodejs ] || [ "$p" = npm ] || filtered+=("$p"); done
  missing=("${filtered[@]}")
fi
if [ "${#missing[@]}" -gt 0 ]; then
  echo "installing: ${missing[*]}"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# The end-to-end client test speaks through the official MCP TypeScript SDK.
if [ -f tests/sdk/package.json ] && [ ! -d tests/sdk/node_modules/@modelcontextprotocol/sdk ]; then
  (cd tests/sdk && npm ci --no-audit --no-fund --loglevel=error)
fi
