#!/usr/bin/env bash
# fuzz_signing_certificate_attribute.sh OUTDIR: writes signing-certificate
# attributes for the fuzz target's fixed certificate — v1, v2 with the
# default SHA-256, v2 with SHA-384 and SHA-512 identifiers, v2 without
# issuerSerial, two entries with policies — and broken ones: another issuer,
# a SHA-1-sized hash under SHA-256, an unknown digest, no entries, a value
# that is no SEQUENCE, no value, another attribute type, a truncated one, a
# primitive SET.
set -euo pipefail
out=$1
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$out"
# The fuzz target's certificate (fuzz_signing_certificate_attribute.cpp).
cat >"$work/signer.pem" <<'PEM'
-----BEGIN CERTIFICATE-----
MIIBQjCB6QICEAEwCgYIKoZIzj0EAwIwLTEUMBIGA1UEAwwLRnV6eiBTaWduZXIx
FTATBgNVBAoMDFRlc3NlcmEgRnV6ejAeFw0yNDAzMDEwMDAwMDBaFw0zNDAzMDEw
MDAwMDBaMC0xFDASBgNVBAMMC0Z1enogU2lnbmVyMRUwEwYDVQQKDAxUZXNzZXJh
IEZ1enowWTATBgcqhkjOPQIBBggqhkjOPQMBBwNCAATzQ/nArDG/RYQErzPa/7xl
H/2DixLiQSIcTJfgp5Pcq3YxQasaeOUhe3eJ8SiHAchO9O8y+lCeDnXryQFUoQkq
MAoGCCqGSM49BAMCA0gAMEUCIQCZyTNTvffr9p0P6/GpBQ5kwWcWHjZehv0OgUpj
dF/LQAIgUtqHZbXm5lVv6lLloaJVhk1aDtLR/T/jk15va62/dTo=
-----END CERTIFICATE-----
PEM
openssl x509 -in "$work/signer.pem" -outform DER -out "$work/signer.der"
PYTHONPATH="$here" /usr/bin/python3 - "$work/signer.der" "$out" <<'PY'
import hashlib
import sys

from der import children, oid, tlv

def seq(*parts):
    return tlv(0x30, b''.join(parts))

cert = open(sys.argv[1], 'rb').read()
out = sys.argv[2]
tbs = children(children(cert)[0])  # serial, signature, issuer, ...
serial, issuer = tbs[0], tbs[2]
V1, V2 = '1.2.840.113549.1.9.16.2.12', '1.2.840.113549.1.9.16.2.47'

def issuer_serial(name=issuer, number=serial):
    return seq(seq(tlv(0xA4, name)), number)

def cert_id(digest, alg=None, with_serial=True, name=issuer):
    parts = [seq(oid(alg))] if alg else []
    parts.append(tlv(0x04, digest))
    if with_serial:
        parts.append(issuer_serial(name))
    return seq(*parts)

def attribute(kind, *values):
    return seq(oid(kind), tlv(0x31, b''.join(values)))

def write(name, der):
    open(f'{out}/seed-{name}.der', 'wb').write(der)

sha1, sha256 = hashlib.sha1(cert).digest(), hashlib.sha256(cert).digest()
sha384, sha512 = hashlib.sha384(cert).digest(), hashlib.sha512(cert).digest()
other = seq(tlv(0x31, seq(oid('2.5.4.3'), tlv(0x0C, b'Other CA'))))
policies = seq(seq(oid('1.2.3.4')))

write('v1', attribute(V1, seq(seq(cert_id(sha1)))))
write('v2-sha256', attribute(V2, seq(seq(cert_id(sha256)))))
write('v2-sha384', attribute(V2, seq(seq(cert_id(sha384, '2.16.840.1.101.3.4.2.2')))))
write('v2-no-serial', attribute(V2, seq(seq(cert_id(sha512, '2.16.840.1.101.3.4.2.3',
                                                    with_serial=False)))))
write('v1-two-policies', attribute(V1, seq(seq(cert_id(sha1), cert_id(sha1, name=other)),
                                           policies)))
write('v1-other-issuer', attribute(V1, seq(seq(cert_id(sha1, name=other)))))
write('v2-short-hash', attribute(V2, seq(seq(cert_id(sha1)))))
write('v2-unknown-digest', attribute(V2, seq(seq(cert_id(sha256, '1.2.3.4')))))
write('v2-no-entries', attribute(V2, seq(seq())))
write('v1-octets', attribute(V1, tlv(0x04, sha1)))
write('v2-no-value', attribute(V2))
write('other-type', attribute('1.2.840.113549.1.9.3', seq(seq(cert_id(sha1)))))
write('v2-truncated', attribute(V2, seq(seq(cert_id(sha256))))[:-7])
# A SET in primitive form: OpenSSL reads it, but not its own encoding of it.
write('primitive-set', seq(oid(V2), bytes.fromhex('110420023000')))
PY
