#!/usr/bin/env bash
# Makes the TLS material the HTTPS tests use: a test certificate authority and a server
# certificate it signed for the address 127.0.0.1 only (no host names). Valid for a century so
# the committed files never expire under CI. Test use only: the keys are public.
set -euo pipefail
out="$(cd "$(dirname "$0")/.." && pwd)/tests/data/tls"
mkdir -p "$out"
tmp="$(mktemp -d)"
trap 'rm -rf "$tmp"' EXIT

openssl req -x509 -newkey rsa:2048 -nodes -days 36500 -subj "/CN=Pelora test CA" \
    -keyout "$tmp/ca-key.pem" -out "$out/ca.pem" \
    -addext "basicConstraints=critical,CA:TRUE" -addext "keyUsage=critical,keyCertSign,cRLSign"
openssl req -newkey rsa:2048 -nodes -subj "/CN=127.0.0.1" \
    -keyout "$out/server-key.pem" -out "$tmp/server.csr"
printf 'subjectAltName=IP:127.0.0.1\nbasicConstraints=CA:FALSE\nextendedKeyUsage=serverAuth\n' \
    > "$tmp/ext.cnf"
openssl x509 -req -in "$tmp/server.csr" -CA "$out/ca.pem" -CAkey "$tmp/ca-key.pem" \
    -CAserial "$tmp/ca.srl" -CAcreateserial -days 36500 -extfile "$tmp/ext.cnf" -out "$out/server.pem"
echo "wrote $out/ca.pem, server.pem, server-key.pem"
