#!/usr/bin/env bash
# Two agents on this machine mount each other over TLS, with certificates
# only, in about five seconds:
#   scripts/make-certs.sh makes a CA and a certificate for agent-a and agent-b;
#   each agent exports its tree on a TCP port that speaks TLS only and serves
#     the other agent's certificate name only (ZET_ATTRLOG_TLS_PEERS), and
#     mounts the other's board over tls://;
#   agentenv status --remote shows agent-b's statuses over TLS as agent-a,
#     and is refused when it presents agent-b's own certificate.
#
#   examples/demo/tls.sh [path/to/agentenv]      (default: build/release/tools/agentenv)
set -euo pipefail
agentenv=${1:-build/release/tools/agentenv}
here=$(dirname "$0")
dir=$(mktemp -d)
a= b=
# Whatever happens, the agents stop and the keys go.
trap 'kill $a $b 2>/dev/null || true; rm -rf "$dir"' EXIT
port_a=$((20000 + RANDOM % 20000))
port_b=$((port_a + 1))
say() { printf '\n== %s\n' "$*"; }
# as NAME COMMAND...: runs the command with NAME's certificate.
as() {
  local name=$1
  shift
  exec env ZET_ATTRLOG_TLS_CERT="$dir/$name.crt" ZET_ATTRLOG_TLS_KEY="$dir/$name.key" \
    ZET_ATTRLOG_TLS_CA="$dir/ca.crt" "$@"
}
# ready NAME: waits (up to 10 s) until NAME's mount of its peer is done.
ready() {
  for _ in $(seq 100); do
    "$agentenv" why --control "unix:$dir/$1.sock" peer >/dev/null 2>&1 && return 0
    sleep 0.1
  done
  echo "$1 did not get its peer's board; its output:" >&2
  cat "$dir/$1.out" >&2
  return 1
}
# agent NAME PORT PEER PEER_PORT: an agent host in the background, which
# serves PEER only.
agent() {
  (as "$1" ZET_ATTRLOG_TLS_PEERS="$3" "$agentenv" run --agent-name "$1" --control "unix:$dir/$1.sock" \
    -D SELF="$1" -D PORT="$2" -D PEER="$3" -D PEER_PORT="$4" "$here/tls-agent.conf") >"$dir/$1.out" 2>&1 &
}

say "certificates for agent-a and agent-b, signed by a CA made here (scripts/make-certs.sh)"
"$here/../../scripts/make-certs.sh" "$dir" agent-a agent-b
ls "$dir"
say "agent-a exports on port $port_a, agent-b on port $port_b (TLS only); each mounts the other's board"
agent agent-a "$port_a" agent-b "$port_b"
a=$!
agent agent-b "$port_b" agent-a "$port_a"
b=$!
ready agent-a
ready agent-b
say "agent-b's statuses, read over TLS by a process with agent-a's certificate"
(as agent-a "$agentenv" status --remote "tls://localhost:$port_b")
say "the same with agent-b's own certificate, which agent-b does not serve"
(as agent-b "$agentenv" status --remote "tls://localhost:$port_b" 2>&1) || true
say "both agents stop and print their tables"
kill -INT "$a" "$b"
wait "$a" "$b" || true
a= b=
cat "$dir/agent-a.out" "$dir/agent-b.out"
