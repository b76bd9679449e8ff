#!/usr/bin/env bash
# Makes what agents need to mount each other over TLS: a CA (DIR/ca.crt,
# DIR/ca.key) and, for each NAME, a certificate signed by it (DIR/NAME.crt)
# with its key (DIR/NAME.key). Each certificate names NAME, localhost and
# 127.0.0.1, so it serves on this machine and is accepted as a client named
# NAME (ZET_ATTRLOG_TLS_PEERS).
#
#   scripts/make-certs.sh DIR [NAME...]     names default to agent-a agent-b
#
# With --refused first, DIR also gets what a CA-checking peer must turn
# down: other-ca.crt and stranger.crt (signed by that other CA), expired.crt
# (signed by the CA, no longer valid) and elsewhere.crt (signed by the CA,
# naming only elsewhere.example).
set -euo pipefail

refused=false
if [ "${1:-}" = "--refused" ]; then
  refused=true
  shift
fi
if [ $# -lt 1 ]; then
  echo "usage: $0 [--refused] DIR [NAME...]" >&2
  exit 2
fi
dir=$1
shift
names=("$@")
[ ${#names[@]} -gt 0 ] || names=(agent-a agent-b)
mkdir -p "$dir"
umask 077  # keys are readable by their owner only

# make_ca NAME: a self-signed CA certificate and key.
make_ca() {
  openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 3650 \
    -subj "/CN=$1" -keyout "$dir/$1.key" -out "$dir/$1.crt" 2>/dev/null
}

# make_cert NAME CA DAYS ALTNAMES: a certificate for NAME signed by CA,
# valid for DAYS (negative: expired already), naming ALTNAMES.
make_cert() {
  local name=$1 ca=$2 days=$3 altnames=$4
  openssl req -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -subj "/CN=$name" \
    -keyout "$dir/$name.key" -out "$dir/$name.csr" 2>/dev/null
  openssl x509 -req -in "$dir/$name.csr" -CA "$dir/$ca.crt" -CAkey "$dir/$ca.key" -CAcreateserial \
    -days "$days" -extfile <(printf 'subjectAltName=%s\n' "$altnames") -out "$dir/$name.crt" 2>/dev/null
  rm -f "$dir/$name.csr"
}

local_names() { echo "DNS:$1,DNS:localhost,IP:127.0.0.1,IP:::1"; }

make_ca ca
for name in "${names[@]}"; do
  make_cert "$name" ca 825 "$(local_names "$name")"
done
if $refused; then
  make_ca other-ca
  make_cert stranger other-ca 825 "$(local_names stranger)"
  make_cert expired ca -1 "$(local_names expired)"
  make_cert elsewhere ca 825 "DNS:elsewhere.example"
fi
chmod 644 "$dir"/*.crt
