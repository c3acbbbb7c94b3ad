#!/usr/bin/env bash
# Starts the built development gateway in the background, unless one already serves this user's
# door, and says where everything is and how to connect an agent. `make start` builds first.
# Usage: scripts/start-gateway.sh [build-dir]   (default: build)
set -euo pipefail
cd "$(dirname "$0")/.."
build="${1:-build}"
. scripts/gateway-paths.sh

gateway="$build/bin/quillon-gateway"
bridge="$build/bin/quillon-mcp"
for program in "$gateway" "$bridge"; do
  if [ ! -x "$program" ]; then
    echo "start-gateway: $program is not built; run 'make start' (it builds it)." >&2
    exit 1
  fi
done
quillon_paths "$build" || exit 1
bridge="$(readlink -f "$bridge")"

# The gateway itself decides whether another one is live (it holds a lock and probes the socket)
# and refuses with exit status 1 and a reason on stderr; its reason is kept only until it has
# either refused or started.
errors="$(mktemp "${TMPDIR:-/tmp}/quillon-start.XXXXXX")"
trap 'rm -f "$errors"' EXIT
# A socket file already there may be a live gateway's or one a dead gateway left; in the second
# case the new gateway replaces it, and only its own "(pid N)" line in the log says it is ready.
socket_was_there=""
[ -e "$quillon_socket" ] && socket_was_there=yes

# Its own session and no terminal: closing this shell or pressing Ctrl-C here never stops it.
( exec setsid nohup "$gateway" </dev/null >/dev/null 2>"$errors" ) &
pid=$!

ready() {
  [ -S "$quillon_socket" ] || return 1
  [ -z "$socket_was_there" ] && return 0
  grep -qsF "(pid $pid)" "$quillon_log" "$quillon_log.1"
}

state=""
# The gateway binds or refuses within moments; the bound only keeps a broken machine from
# leaving this script waiting for ever.
for _ in $(seq 1 600); do
  if ! kill -0 "$pid" 2>/dev/null; then state=exited; break; fi
  if ready; then state=started; break; fi
  sleep 0.05
done

case "$state" in
  started)
    (umask 077 && echo "$pid" > "$quillon_pidfile")
    echo "Started the Quillon gateway (pid $pid)."
    ;;
  exited)
    status=0
    wait "$pid" || status=$?
    if grep -q "already serves" "$errors"; then
      running="$(quillon_gateway_pid || true)"
      echo "The Quillon gateway is already running${running:+ (pid $running)}."
    else
      echo "The Quillon gateway did not start (exit status $status):" >&2
      cat "$errors" >&2
      exit 1
    fi
    ;;
  *)
    echo "The Quillon gateway (pid $pid) has not opened $quillon_socket yet; see $quillon_log." >&2
    exit 1
    ;;
esac

make_args=""
[ "$build" = build ] || make_args=" BUILD=$(printf %q "$build")"

# The bridge's path as a TOML and JSON string (both escape a backslash and a quote alike), and as
# a shell word, so that every block below can be pasted as it stands.
string="${bridge//\\/\\\\}"
string="\"${string//\"/\\\"}\""
word="$(printf '%q' "$bridge")"
hook_word="$(printf '%q' "$(dirname "$bridge")/quillon-hook")"

cat <<EOF

  socket  $quillon_socket
  store   $quillon_store
  logs    $quillon_log
          $quillon_diagnostics
  bridge  $bridge

Put Quillon into your agent: its MCP server, and the hooks that bring your rules and memory to
every prompt (claude, codex, cursor, opencode or all; --dry-run shows what would change first):

    $hook_word install --agent claude

Or register only the bridge by hand (more in README.md, "Register the bridge with an agent").

Claude Code, in a shell:

    claude mcp add --scope user quillon -- $word

Codex, in ~/.codex/config.toml:

    [mcp_servers.quillon]
    command = $string

Cursor, in ~/.cursor/mcp.json (or a project's .cursor/mcp.json):

    {
      "mcpServers": {
        "quillon": { "command": $string }
      }
    }

opencode, in opencode.json (a project's) or ~/.config/opencode/opencode.json:

    {
      "\$schema": "https://opencode.ai/config.json",
      "mcp": {
        "quillon": { "type": "local", "command": [$string], "enabled": true }
      }
    }

Try it:   make demo$make_args
Stop it:  make stop$make_args
EOF
