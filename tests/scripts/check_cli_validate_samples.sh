#!/usr/bin/env bash
# `tessera validate` over every public CAdES signature of tests/vectors/cades,
# through the basic process and the process with time, each run bounded by
# `timeout`: none may crash or hang, and each ends with the indication written
# below. The anchors of a sample (for signers and time-stamp authorities) are
# the certificates it carries; nothing is fetched. Every signer certificate
# among them expired by November 2025, and the process with time checks the
# signer at the current time whatever --time says, so the samples stay
# indeterminate for want of a proof that they were signed in time. The three
# LTA samples are also shown by `info` and verified with `validate --poe`.
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

# longterm SAMPLE INDEX TIME ARCHIVE RESULT: `info` shows an LTA signer whose
# archive time-stamp's token carries hash index INDEX; `validate --poe` at
# TIME, with the certificates extracted above as anchors, exits 1 and gives
# the archive time-stamp ARCHIVE and the signer RESULT (grep patterns).
longterm() {
    local sample=$1 content=()
    [ "$sample" = cades-lta-detached.pkcs7 ] && content=(--content "$vectors/hello_world.txt")
    ok "$sample: info" "$cli" info "$vectors/$sample"
    has "$sample: info shows LTA" -x '  longTermForm:  LTA'
    has "$sample: archive time-stamp with hash index $2" \
        -x "  archiveStamp:  [0-9.]* [0-9:]* UTC (hash index $2)"
    run timeout 60 "$cli" validate "$vectors/$sample" "${content[@]}" --trust "$sample.pem" \
        --tsa-trust "$sample.pem" --time "$3" --poe
    [ "$rc" -eq 1 ]; check "$sample --poe at $3: exit 1 (got $rc)" $?
    has "$sample --poe at $3: the archive time-stamp gives $4" \
        -x "Archive time-stamp 1: [0-9.]* [0-9:]* UTC: $4"
    has "$sample --poe at $3: the signer gives $5" -x "Result: $5"
}
# The message lacks the issuer of the archive token's TSA, so neither its
# path nor (checked at the time without proof) the signer's is complete.
longterm Signature-C-HU_POL-3.p7m v1 2026-01-01T00:00:00Z 'error 146: .*' 'error 146: .*'
# Nothing proves the archive token before 2026, when its TSA had expired
# (2021): it fails, and so does the signer's path at that time.
longterm cades-lta-detached.pkcs7 v3 2026-01-01T00:00:00Z 'error 118: .*' 'error 118: .*'
# At 2020-06-01 the archive token passes and proves the signature value at
# its own time; the signer's path then lacks revocation data (a CRL of its
# issuer is not in the message).
longterm cades-lta-detached.pkcs7 v3 2020-06-01T00:00:00Z passed 'error 147: .*'
has "cades-lta-detached.pkcs7 --poe: the signature proven at the archive time-stamp" \
    -x 'Signature proven at: 26.03.2020 09:44:44 UTC'
# The broken certificate index is the archive time-stamp's failure, recorded
# while the signer is still checked (a revocation status unknown at 2025).
longterm cades-ats-v3-wrong-cert.p7m v3 2025-01-01T00:00:00Z 'error 159: .*' 'error 147: .*'
run "$cli" validate "$vectors/cades-ats-v3-wrong-cert.p7m" --trust cades-ats-v3-wrong-cert.p7m.pem \
    --time 2025-01-01T00:00:00Z --poe --json
has "--poe --json: the archive time-stamp's code" '"archiveTimeStamps": \[{"time": "2024-12-19T14:45:45Z", "passed": false, "error": {"code": 159,'

[ "$(cd "$vectors" && printf '%s\n' *.p7m *.pkcs7 | sort)" = \
    "$(printf '%s\n' "${validated[@]}" | sort -u)" ]
check "every sample of tests/vectors/cades is validated here" $?
exit $fail
