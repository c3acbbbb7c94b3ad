# shellcheck shell=bash
# Sourced by the scripts that start, stop and check the gateway. The built gateway says where it
# serves and keeps its files (`quillon-gateway --paths`), so the scripts look in the very folder
# the gateway and a bridge started from the same environment use; the rule lives in QuillonKit.

# Sets quillon_service, quillon_door, quillon_socket, quillon_data, quillon_store, quillon_log,
# quillon_diagnostics and quillon_pidfile from the gateway built in the folder $1. Fails with the
# reason on stderr when that gateway is not built or cannot tell.
quillon_paths() {
  local gateway="$1/bin/quillon-gateway" assignments
  if [ ! -x "$gateway" ]; then
    echo "$gateway is not built." >&2
    return 1
  fi
  if ! assignments="$("$gateway" --paths </dev/null 2>/dev/null)" || [ -z "$assignments" ]; then
    echo "$gateway cannot say where it serves (built from an older checkout?); 'make start' rebuilds it." >&2
    return 1
  fi
  # shellcheck disable=SC2034  # (read by the scripts that source this)
  quillon_service="" quillon_door="" quillon_socket="" quillon_data=""
  # shellcheck disable=SC2034
  quillon_store="" quillon_log="" quillon_diagnostics=""
  eval "$assignments"
  if [ -z "$quillon_socket" ] || [ -z "$quillon_data" ]; then
    echo "$gateway --paths did not name its socket and data folder." >&2
    return 1
  fi
  # Written by start-gateway.sh for the gateway it started; a gateway started otherwise has none.
  quillon_pidfile="$quillon_data/gateway.pid"
}

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
