#!/usr/bin/env bash
# `make start`, `make demo` and `make stop` as their scripts behave, against a private gateway:
# the registration blocks start prints must paste as they stand (TOML for Codex, JSON for Cursor
# and opencode, one shell line for Claude Code) even for a path with a space, a quote and a
# backslash; a second start finds the first gateway; stop stops it; and the demo's check and stop
# say plainly that no gateway runs, also when nothing is built.
# Usage: run-scripts.sh <quillon-gateway> [node] [python3]
set -euo pipefail
real_gateway="$1" node="${2:-}" python="${3:-}"
# CMake passes a tool it did not find as NAME-NOTFOUND.
[[ "$node" != *-NOTFOUND ]] || node=""
[[ "$python" != *-NOTFOUND ]] || python=""
scripts="$(cd "$(dirname "$0")/../../scripts" && pwd)"

work="$(mktemp -d "${TMPDIR:-/tmp}/quillon-scripts.XXXXXX")"
# A build folder whose path needs escaping in every format; the bridge is only named, not run.
# shellcheck disable=SC2089  # (the quote and the backslash are meant literally)
build="$work/it's a \"b\\uild"
# shellcheck disable=SC2090
trap '"$scripts/stop-gateway.sh" "$build" >/dev/null 2>&1 || true; rm -rf "$work"' EXIT
mkdir -m 700 "$work/run"
export XDG_RUNTIME_DIR="$work/run" XDG_DATA_HOME="$work/data"
export QUILLON_MCP_GATEWAY_FOR_TESTS="example.fernhollow.quillon.test.scripts-$$"

fail() { echo "run-scripts: $*" >&2; exit 1; }
expect() {  # expect STATUS TEXT command...: the command ends with STATUS and prints TEXT
  local status="$1" text="$2" out rc=0
  shift 2
  out="$("$@" 2>&1)" || rc=$?
  [ "$rc" = "$status" ] || fail "$* ended with $rc, not $status: $out"
  grep -qF -- "$text" <<<"$out" || fail "$* did not say '$text': $out"
  printf '%s\n' "$out"
}

mkdir -p "$build/bin"
ln -s "$real_gateway" "$build/bin/quillon-gateway"
printf '#!/bin/sh\n' >"$build/bin/quillon-mcp"
chmod +x "$build/bin/quillon-mcp"
bridge="$(readlink -f "$build/bin/quillon-mcp")"

expect 1 "The Quillon gateway is not running" "$scripts/gateway-running.sh" "$build" >/dev/null
expect 0 "The Quillon gateway is not running." "$scripts/stop-gateway.sh" "$work/nothing-built" >/dev/null
expect 1 "not built in $work/nothing-built/" "$scripts/gateway-running.sh" "$work/nothing-built" >/dev/null

started="$(expect 0 "Started the Quillon gateway" "$scripts/start-gateway.sh" "$build")"
# Each block is the indented lines after its heading, pasted without the indent.
block() { awk -v head="$1" 'index($0, head) == 1 {on = 1; next} on && /^    / {print substr($0, 5); seen = 1; next}
                             on && seen {exit}' <<<"$started"; }

eval "set -- $(block "Put Quillon")"
[ "$*" = "$(dirname "$bridge")/quillon-hook install --agent claude" ] || fail "the install line gives: $*"
claude() { [ "$*" = "mcp add --scope user quillon -- $bridge" ] || fail "Claude Code line gives: $*"; }
line="$(block "Claude Code")"
eval "$line"

if [ -n "$python" ] && "$python" -c 'import tomllib' 2>/dev/null; then
  block "Codex" | "$python" -c 'import sys, tomllib; print(tomllib.loads(sys.stdin.read())["mcp_servers"]["quillon"]["command"])' \
    >"$work/codex" || fail "the Codex block is not TOML"
  [ "$(cat "$work/codex")" = "$bridge" ] || fail "the Codex block names $(cat "$work/codex")"
else
  echo "run-scripts: no python3 with tomllib; the Codex block is not parsed"
fi
if [ -n "$node" ]; then
  for agent in Cursor opencode; do
    block "$agent" | "$node" -e '
      const config = JSON.parse(require("fs").readFileSync(0, "utf8"));
      const server = config.mcpServers?.quillon ?? config.mcp?.quillon;
      console.log([server.command].flat()[0]);' >"$work/$agent" || fail "the $agent block is not JSON"
    [ "$(cat "$work/$agent")" = "$bridge" ] || fail "the $agent block names $(cat "$work/$agent")"
  done
else
  echo "run-scripts: no node; the Cursor and opencode blocks are not parsed"
fi

expect 0 "already running" "$scripts/start-gateway.sh" "$build" >/dev/null
"$scripts/gateway-running.sh" "$build" || fail "gateway-running.sh does not see the gateway"
expect 0 "Stopped the Quillon gateway" "$scripts/stop-gateway.sh" "$build" >/dev/null
expect 1 "The Quillon gateway is not running" "$scripts/gateway-running.sh" "$build" >/dev/null
expect 0 "The Quillon gateway is not running." "$scripts/stop-gateway.sh" "$build" >/dev/null
echo "run-scripts: passed"
