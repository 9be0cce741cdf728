#!/usr/bin/env bash
# `tessera validate` over every public CAdES signature of tests/vectors/cades,
# through the basic process and the process with time, each run bounded by
# `timeout`: none may crash or hang, and each ends with the indication written
# below. The anchors of a sample (for signers and time-stamp authorities) are
# the certificates it carries; nothing is fetched. Every signer certificate
# among them expired by November 2025, and the process with time checks the
# signer at the current time whatever --time says, so the samples stay
# indeterminate for want of a proof that they were signed in time.
set -uo pipefail
cli=$1
vectors=$(cd "$(dirname "$0")/../vectors/cades" && pwd)
source "$(dirname "$0")/cli_lib.sh"
export TZ=UTC

validated=()
# expect SAMPLE PROCESS STATUS INDICATION SUBINDICATION: validating SAMPLE
# with PROCESS exits STATUS (0 passed, 1 failed, 2 indeterminate) and the
# whole report ends with INDICATION and SUBINDICATION.
expect() {
    local sample=$1 process=$2 status=$3 content=() detached=()
    if [ "$sample" = cades-lta-detached.pkcs7 ]; then
        content=(--content "$vectors/hello_world.txt")
        detached=(-content "$vectors/hello_world.txt")
    fi
    validated+=("$sample")
    openssl cms -verify -noverify -inform DER -in "$vectors/$sample" "${detached[@]}" \
        -certsout "$sample.pem" -out /dev/null 2>/dev/null
    check "$sample: its certificates extracted" $?
    run timeout 30 "$cli" validate "$vectors/$sample" "${content[@]}" --trust "$sample.pem" \
        --tsa-trust "$sample.pem" --process "$process" --time 2026-01-01T00:00:00Z
    [ "$rc" -eq "$status" ]; check "$sample --process $process: exit $status (got $rc)" $?
    [ "$(tail -n 2 <<<"$out" | sed 's/^ *//' | tr '\n' ' ')" = "Indication: $4 SubIndication: $5 " ]
    check "$sample --process $process: ends $4/$5" $?
}

# No time-stamp: the signer's certificate expired in 2021.
expect cades-enveloping.pkcs7 basic 2 repIndeterminate repOutOfBoundsNoPOE
expect cades-enveloping.pkcs7 time 2 repIndeterminate repOutOfBoundsNoPOE
# Both tokens' TSA expired in 2021 with the signer: neither proves anything.
expect cades-t-duplicated-sigtst.p7m basic 2 repIndeterminate repOutOfBoundsNoPOE
expect cades-t-duplicated-sigtst.p7m time 2 repIndeterminate repOutOfBoundsNoPOE
# The signer expired in 2018; the altered token is refused (below), so it
# can never lift the signature to passed.
expect CAdES-BpT_modified_ts_hash.p7m basic 2 repIndeterminate repOutOfBoundsNoPOE
expect CAdES-BpT_modified_ts_hash.p7m time 2 repIndeterminate repOutOfBoundsNoPOE
grep -A 3 -x '    > TimeStamp validation' <<<"$out" | grep -q -x '      SubIndication: repHashFailure'
check "CAdES-BpT_modified_ts_hash.p7m: the token's imprint is found wrong" $?
# The signer expired in 2015 and the TSA in February 2026; the archive
# time-stamp would need the long-term process, which the tool does not run.
expect Signature-C-HU_POL-3.p7m basic 2 repIndeterminate repOutOfBoundsNoPOE
expect Signature-C-HU_POL-3.p7m time 2 repIndeterminate repOutOfBoundsNoPOE
# Signer and TSA expired in 2021; the archive time-stamp is not read here.
expect cades-lta-detached.pkcs7 basic 2 repIndeterminate repOutOfBoundsNoPOE
expect cades-lta-detached.pkcs7 time 2 repIndeterminate repOutOfBoundsNoPOE
# Signer and TSA expired in November 2025; the broken hash index belongs to
# the archive time-stamp, which neither process reads.
expect cades-ats-v3-wrong-cert.p7m basic 2 repIndeterminate repOutOfBoundsNoPOE
expect cades-ats-v3-wrong-cert.p7m time 2 repIndeterminate repOutOfBoundsNoPOE
# It names a signature policy, which the one validation policy cannot judge.
expect cades-extended-epes-sig-pol-store.pkcs7 basic 2 repIndeterminate repPolicyProcessingError
expect cades-extended-epes-sig-pol-store.pkcs7 time 2 repIndeterminate repPolicyProcessingError

[ "$(cd "$vectors" && printf '%s\n' *.p7m *.pkcs7 | sort)" = \
    "$(printf '%s\n' "${validated[@]}" | sort -u)" ]
check "every sample of tests/vectors/cades is validated here" $?
exit $fail
