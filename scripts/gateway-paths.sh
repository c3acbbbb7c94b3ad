# Sourced by start-gateway.sh and stop-gateway.sh: where the gateway started from this environment
# serves and keeps its files. These follow the same rules the bridge and the gateway apply, so the
# scripts find the gateway a bridge started in the same shell would reach.

quillon_trim() {
  local value="$1"
  value="${value#"${value%%[![:space:]]*}"}"
  printf '%s' "${value%"${value##*[![:space:]]}"}"
}

quillon_strip_slashes() {
  local path="$1"
  while [ "${#path}" -gt 1 ] && [ "${path%/}" != "$path" ]; do path="${path%/}"; done
  [ "$path" = / ] && path=""
  printf '%s' "$path"
}

# The service: a test name only when it names one, as the bridge resolves it.
quillon_service=example.fernhollow.quillon.gateway
quillon_test_prefix=example.fernhollow.quillon.test.
if [ -n "${QUILLON_MCP_GATEWAY_FOR_TESTS+set}" ]; then
  quillon_candidate="$(quillon_trim "$QUILLON_MCP_GATEWAY_FOR_TESTS")"
  if [ "${#quillon_candidate}" -gt "${#quillon_test_prefix}" ] && [ "${quillon_candidate#"$quillon_test_prefix"}" != "$quillon_candidate" ]; then
    quillon_service="$quillon_candidate"
  fi
fi

# The door's folder: $XDG_RUNTIME_DIR/quillon for an absolute XDG_RUNTIME_DIR, else /tmp/quillon-<uid>.
if [ "$(printf %.1s "${XDG_RUNTIME_DIR:-}")" = / ]; then
  quillon_door="$(quillon_strip_slashes "$XDG_RUNTIME_DIR")/quillon"
else
  quillon_door="/tmp/quillon-$(id -u)"
fi
quillon_socket="$quillon_door/$quillon_service"

# The data folder: $XDG_DATA_HOME/quillon for an absolute XDG_DATA_HOME, else under the home folder.
if [ "$(printf %.1s "${XDG_DATA_HOME:-}")" = / ]; then
  quillon_data="$(quillon_strip_slashes "$XDG_DATA_HOME")/quillon"
else
  quillon_home="${HOME:-}"
  [ -n "$quillon_home" ] || quillon_home="$(getent passwd "$(id -u)" | cut -d: -f6)"
  quillon_data="$(quillon_strip_slashes "${quillon_home:-/}")/.local/share/quillon"
fi
quillon_store="$quillon_data/store.db"
quillon_log="$quillon_data/gateway.log"
quillon_diagnostics="$quillon_data/diagnostic.log"
# Written by start-gateway.sh for the gateway it started; a gateway started otherwise has none.
quillon_pidfile="$quillon_data/gateway.pid"

# Whether the pid is a live quillon-gateway of this user.
quillon_is_gateway() {
  local pid="$1"
  [[ "$pid" =~ ^[0-9]+$ ]] || return 1
  [ "$(cat "/proc/$pid/comm" 2>/dev/null)" = quillon-gateway ] || return 1
  # One that exited but that nobody has reaped yet (a container without an init) is not running.
  [ "$(sed 's/.*) //' "/proc/$pid/stat" 2>/dev/null | cut -d' ' -f1)" != Z ] || return 1
  [ "$(stat -c %u "/proc/$pid" 2>/dev/null)" = "$(id -u)" ]
}

# Prints the pid of the gateway serving this service, when it can be told: the pid file, else the
# last "serving <service> at …" line of the gateway's log (a gateway started by hand or by systemd).
quillon_gateway_pid() {
  local pid=""
  if [ -f "$quillon_pidfile" ]; then
    pid="$(cat "$quillon_pidfile" 2>/dev/null || true)"
    if quillon_is_gateway "$pid"; then printf '%s' "$pid"; return 0; fi
  fi
  # The log turns over into gateway.log.1 when it fills.
  pid="$(grep -hsF "serving $quillon_service at $quillon_socket " "$quillon_log.1" "$quillon_log" | tail -n 1 |
         sed -n 's/.*(pid \([0-9][0-9]*\)).*/\1/p' || true)"
  if quillon_is_gateway "$pid"; then printf '%s' "$pid"; return 0; fi
  return 1
}
