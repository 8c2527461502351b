#!/usr/bin/env bash
# Makes the TLS material the HTTPS tests use: a test certificate authority, a server
# certificate it signed for the address 127.0.0.1 only (no host names), and a certificate for
# the same address and key from the same authority that expired in 2020. The others are valid
# for a century so the committed files never expire under CI. Test use only: the keys are
# public. Running it again replaces all of them together.
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

# The expired one: `openssl ca` is the command that takes explicit validity dates.
{
    echo "[ ca ]"
    echo "default_ca = test_ca"
    echo "[ test_ca ]"
    echo "database = $tmp/index.txt"
    echo "new_certs_dir = $tmp"
    echo "serial = $tmp/serial"
    echo "default_md = sha256"
    echo "policy = any"
    echo "x509_extensions = server_ext"
    echo "[ any ]"
    echo "commonName = supplied"
    echo "[ server_ext ]"
    echo "subjectAltName = IP:127.0.0.1"
    echo "basicConstraints = CA:FALSE"
    echo "extendedKeyUsage = serverAuth"
} > "$tmp/ca.cnf"
touch "$tmp/index.txt"
echo 1000 > "$tmp/serial"
openssl ca -batch -notext -config "$tmp/ca.cnf" -cert "$out/ca.pem" -keyfile "$tmp/ca-key.pem" \
    -startdate 20200101000000Z -enddate 20200201000000Z -in "$tmp/server.csr" \
    -out "$out/expired.pem" 2>/dev/null
echo "wrote $out/ca.pem, server.pem, server-key.pem, expired.pem"
