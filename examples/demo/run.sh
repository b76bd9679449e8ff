#!/usr/bin/env bash
# Two agents on this machine, in about ten seconds:
#   A builds a small tree (/shared/board) and exports it on a TCP port and a
#     domain socket;
#   B mounts A's board over TCP, with A's socket as the backup source, and
#     builds its workspace once the board is there.
# B's status changes (--watch) and the monitor's failure reports are shown as
# they happen: A stops, B's mount is disconnected and keeps trying; A comes
# back on its socket only, and B's mount recovers through the backup.
#
#   examples/demo/run.sh [path/to/agentenv]      (default: build/release/tools/agentenv)
set -euo pipefail
agentenv=${1:-build/release/tools/agentenv}
here=$(dirname "$0")
dir=$(mktemp -d)
port=$((20000 + RANDOM % 20000))
socket=$dir/a.sock
socket_uri="unix://${socket//\//%2F}"

start_a() {  # $1: the port A exports on
  "$agentenv" run --agent-name A -D PORT="$1" -D SOCKET="$socket" "$here/exporter.conf" >"$dir/a.out" 2>&1 &
  a=$!
  sleep 0.5
}
say() { printf '\n== %s\n' "$*"; }

say "A exports /shared/board on port $port and on $socket"
start_a "$port"
say "B mounts it at /remote/board (backup: the socket) and builds /work/space"
"$agentenv" run --agent-name B --watch -D PORT="$port" -D SOCKET_URI="$socket_uri" "$here/mounter.conf" &
b=$!
sleep 1.5
say "A stops"
kill -9 "$a"
wait "$a" 2>/dev/null || true
sleep 1.5
say "A is back, on its socket only: B recovers through the backup source"
start_a $((port + 1))  # another port: of B's sources only the socket serves
sleep 2.5
say "B is interrupted and prints its table"
kill -INT "$b"
wait "$b"
kill "$a"
wait "$a" 2>/dev/null || true
rm -rf "$dir"
