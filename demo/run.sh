#!/usr/bin/env bash
# End-to-end demo of what Tessera does so far, through its command-line tool.
# The time-stamp authority and the OCSP responders are the loopback test
# servers (127.0.0.1, stopped at the end), started with RSA keys: the
# validation policy of `tessera validate` accepts only RSA signatures, on
# time-stamps, OCSP responses and CRLs as on the signatures themselves.
set -uo pipefail
build=${1:-build}
root=$(cd "$(dirname "$0")/.." && pwd)
export PATH="$root/$build/bin:$PATH"
work=$(mktemp -d)
servers=$work/servers
cleanup() {
    "$root/tests/servers/stop_server.sh" "$servers/tsa" >/dev/null 2>&1
    "$root/tests/servers/stop_server.sh" "$servers/ocsp" >/dev/null 2>&1
    rm -rf "$work"
}
trap cleanup EXIT

# Shows a command line, then runs it.
step() {
    printf '\n== %s\n$ %s\n' "$1" "$2"
    (cd "$work" && bash -o pipefail -c "$2")
    local rc=$?
    [ "$rc" -eq 0 ] || printf '(exit code %d)\n' "$rc"
}

step "The library's version text" "tessera version"
step "The error codes every failure carries (the first five of $(tessera errors | wc -l))" \
     "tessera errors | sed -n 1,5p"

printf 'Tessera demo document\n' >"$work/document.txt"
step "Digests, like sha256sum" "tessera hash document.txt && tessera hash --alg sha512 document.txt"
step "Base64 with the library's own codec" "tessera base64 encode document.txt | tee document.b64 && tessera base64 decode document.b64"

openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -aes-256-cbc -pass pass:secret \
    -out "$work/key.pem" 2>/dev/null
step "An encrypted private key, read with its password" "tessera keyinfo key.pem --password secret"
step "... and with a wrong one" "tessera keyinfo key.pem --password wrong"

mkdir -p "$servers"
testpki="$root/$build/tests/tessera_testpki"
if "$root/tests/servers/tsa_start.sh" "$servers/tsa" "$testpki" rsa >/dev/null 2>&1 &&
   "$root/tests/servers/ocsp_start.sh" "$servers/ocsp" "$testpki" rsa >/dev/null 2>&1; then
    pki=$servers/ocsp/pki
    step "A certificate of the test PKI, as the library reads it" "tessera cert $pki/revoked.pem"
    step "An RFC 3161 time-stamp from a loopback TSA" \
         "tessera timestamp --url $(cat "$servers/tsa/url") --out document.tsr document.txt"
    step "OpenSSL verifies that token" \
         "openssl ts -verify -token_in -in document.tsr -data document.txt -CAfile $servers/tsa/ca.pem -untrusted $servers/tsa/tsa.pem"
    step "OCSP: a revoked certificate, the responder found through the certificate's AIA" \
         "tessera ocsp --client --issuer $pki/ca.pem --cert $pki/revoked.pem"
    step "OCSP: a responder nobody trusts is refused" \
         "tessera ocsp --url $(cat "$servers/ocsp/untrusted-url") --issuer $pki/ca.pem --cert $pki/good.pem"
else
    printf '\n(the loopback TSA and OCSP responder did not start; skipping those steps)\n'
fi

# CMS signatures over a small PKI made with the openssl command: a root CA,
# two signers and the CA's CRL.
pki=$work/pki
mkdir -p "$pki"
(
    cd "$pki" || exit 1
    openssl req -x509 -newkey rsa:2048 -nodes -keyout ca.key -out ca.pem -days 3650 \
        -subj "/O=Tessera Demo/CN=Demo Root CA" \
        -addext "basicConstraints=critical,CA:TRUE" -addext "keyUsage=critical,keyCertSign,cRLSign"
    # The signers claim QcCompliance (a qcStatements extension), which the
    # validation policy of `tessera validate` asks for.
    printf 'keyUsage=critical,digitalSignature,nonRepudiation\nextendedKeyUsage=emailProtection\n' >ee.ext
    printf '1.3.6.1.5.5.7.1.3=DER:30:0a:30:08:06:06:04:00:8e:46:01:01\n' >>ee.ext
    serial=4096
    for who in Alice Bob; do
        serial=$((serial + 1))
        openssl req -newkey rsa:2048 -nodes -keyout "$who.key" -out "$who.csr" \
            -subj "/O=Tessera Demo/CN=$who"
        openssl x509 -req -in "$who.csr" -CA ca.pem -CAkey ca.key -set_serial "$serial" \
            -days 365 -extfile ee.ext -out "$who.pem"
    done
    : >index.txt
    echo 01 >crlnumber
    printf '[ca]\ndefault_ca=demo\n[demo]\ndatabase=index.txt\ncrlnumber=crlnumber\ndefault_md=sha256\ndefault_crl_days=30\n' >ca.cnf
    # A CRL speaks for certificates issued before it: let a second pass.
    sleep 1
    openssl ca -config ca.cnf -gencrl -keyfile ca.key -cert ca.pem -out ca.crl
) >/dev/null 2>&1
signer="--cert pki/Alice.pem --key pki/Alice.key"
cosigner="--cert pki/Bob.pem --key pki/Bob.key"
trust="--trust pki/ca.pem --crl pki/ca.crl"
step "Sign a document, content inside the signature" "tessera sign $signer document.txt signed.p7s"
step "Sign it again, detached (the signature without the content)" \
     "tessera sign $signer --detached document.txt detached.p7s"
step "A second signer co-signs the first signature" "tessera cosign $cosigner signed.p7s cosigned.p7s"
step "What the co-signed signature carries" "tessera info cosigned.p7s"
step "Verify both signers with path building and the CA's CRL" \
     "tessera verify cosigned.p7s $trust --verify chain"
step "OpenSSL agrees" \
     "openssl cms -verify -binary -inform DER -in cosigned.p7s -CAfile pki/ca.pem -out /dev/null"
step "The path of the first signer, with the CRL that decided" "tessera chain pki/Alice.pem $trust"
step "A CAdES-BES signature, validated by the basic signature validation: its report tree" \
     "tessera sign $signer --cades bes document.txt bes.p7s && tessera validate bes.p7s $trust --process basic"
openssl pkcs12 -export -in "$pki/Alice.pem" -inkey "$pki/Alice.key" -certfile "$pki/ca.pem" \
    -passout pass:secret -out "$work/Alice.p12" >/dev/null 2>&1
step "A PKCS#12 file brings its own CA certificates for the whole chain" \
     "tessera sign --p12 Alice.p12 --password secret --include whole document.txt p12.p7s && tessera info p12.p7s | grep "^certificate""
cp "$work/signed.p7s" "$work/padded.p7s" && head -c 4096 /dev/zero >>"$work/padded.p7s"
step "A signature zero-padded to a reserved size (as in a PDF field) still verifies" \
     "tessera verify padded.p7s $trust --verify chain"
(
    cd "$pki" &&
        openssl ca -config ca.cnf -revoke Bob.pem -keyfile ca.key -cert ca.pem &&
        sleep 1 &&
        openssl ca -config ca.cnf -gencrl -keyfile ca.key -cert ca.pem -out ca.crl
) >/dev/null 2>&1
step "The CA revokes the second signer: its signature no longer verifies" \
     "tessera verify cosigned.p7s $trust --verify chain"
printf 'Tessera demo document, changed\n' >"$work/tampered.txt"
step "Changed content does not match the detached signature" \
     "tessera verify detached.p7s --content tampered.txt $trust --verify chain"

step "A mistyped command is refused with the usage text and exit code 2" "tessera sgin"

# CAdES: a signature policy of the public vectors, an EPES signature naming
# it (the demo's signer is not under its trust point, so the policy is only
# named and its hash checked, not applied), and a time-stamped signature.
icp=$root/tests/vectors/policies/PA_AD_RB_v2_3.der
step "A signature policy (DER), as the library reads it (the first lines)" \
     "tessera policy $icp | cut -c1-100 | sed -n 1,8p"
step "A CAdES-EPES signature that names this policy" \
     "tessera sign $signer --cades epes --policy $icp document.txt epes.p7s"
step "Its form, levels and the policy hash checked against the document" \
     "tessera verify epes.p7s $trust --verify chain --policy $icp"
if [ -s "$servers/tsa/url" ]; then
    # The TSA certificate's path is checked with revocation too: a CRL of
    # the fixture's CA over its own index.
    (
        cd "$servers/tsa/pki" &&
            printf '[ca]\ndefault_ca=tsa\n[tsa]\ndatabase=index.txt\ncrlnumber=crlnumber\ndefault_md=sha256\ndefault_crl_days=30\n' >crl.cnf &&
            echo 01 >crlnumber &&
            openssl ca -config crl.cnf -gencrl -keyfile ca.key.pem -cert ca.pem -out "$pki/tsa.crl"
    ) >/dev/null 2>&1
    step "A CAdES-T signature: the loopback TSA time-stamps the signature value" \
         "tessera sign $signer --tsa $(cat "$servers/tsa/url") document.txt cades-t.p7s"
    step "Verified with the TSA's anchor: the time-stamp's time, its authority and result" \
         "tessera verify cades-t.p7s $trust --crl pki/tsa.crl --tsa-trust $servers/tsa/ca.pem --verify chain"
    step "A second time-stamp added later, for a signature that must outlive the first" \
         "tessera upgrade cades-t.p7s --tsa $(cat "$servers/tsa/url") cades-t2.p7s && tessera info cades-t2.p7s | grep unsignedAttr"
fi

# The validation with time, revocation asked of the loopback OCSP responder.
# The demo CA's signers name no responder, and the responder answers only
# for the test PKI's CA: Carol is certified by that CA, names the responder
# in her AIA and is added to its index. `openssl ocsp` takes a changed index
# only after answering one more request from the old one, so the trusted
# responder is started again on its port whenever the index changes.
restart_ocsp() {
    local dir=$servers/ocsp old port
    old=$(head -n 1 "$dir/pid")
    port=$(sed 's/.*://' "$dir/url")
    kill "$old" 2>/dev/null
    for _ in $(seq 50); do kill -0 "$old" 2>/dev/null || break; sleep 0.1; done
    (exec timeout 900 openssl ocsp -index "$dir/pki/index.txt" -port "$port" \
        -rsigner "$dir/pki/ocsp.pem" -rkey "$dir/pki/ocsp.key.pem" -CA "$dir/pki/ca.pem" \
        -ignore_err -nmin 60 >"$dir/trusted.log" 2>&1) &
    sed -i "1s/.*/$!/" "$dir/pid"
    for _ in $(seq 200); do
        grep -q "waiting for OCSP client connections" "$dir/trusted.log" && return 0
        sleep 0.05
    done
    return 1
}
if [ -s "$servers/tsa/url" ] && [ -s "$servers/ocsp/url" ]; then
    ocsp_pki=$servers/ocsp/pki
    (
        cd "$pki" &&
            cp ee.ext carol.ext &&
            printf 'authorityInfoAccess=OCSP;URI:%s\n' "$(cat "$servers/ocsp/url")" >>carol.ext &&
            openssl req -newkey rsa:2048 -nodes -keyout Carol.key -out Carol.csr \
                -subj "/O=Tessera Demo/CN=Carol" &&
            openssl x509 -req -in Carol.csr -CA "$ocsp_pki/ca.pem" -CAkey "$ocsp_pki/ca.key.pem" \
                -set_serial 0x2001 -days 365 -extfile carol.ext -out Carol.pem &&
            end=$(date -u -d "$(openssl x509 -in Carol.pem -noout -enddate | cut -d= -f2)" +%y%m%d%H%M%SZ) &&
            printf 'V\t%s\t\t2001\tunknown\t/O=Tessera Demo/CN=Carol\n' "$end" >>"$ocsp_pki/index.txt"
    ) >/dev/null 2>&1
    restart_ocsp || printf '\n(the OCSP responder did not start again)\n'
    # The two times the validation with time compares, from the JSON report.
    when='import json, sys; r = json.load(sys.stdin)[0]["report"]; '
    when+='print("revoked at:", r["basicReport"]["x509CertificateValidation"]["certificateRevocationTime"]); '
    when+='print("best signature time:", r["bestSignatureTime"])'
    tsa_trust="--tsa-trust $servers/tsa/ca.pem --tsu $servers/tsa/tsa.pem --crl pki/tsa.crl"
    # The TSA's certificate names no responder: its CRL decides for it.
    carol_check="--trust $ocsp_pki/ca.pem $tsa_trust --mode either --fetch"
    step "A CAdES-T signature by a signer whose certificate names the loopback OCSP responder" \
         "tessera sign --cert pki/Carol.pem --key pki/Carol.key --tsa $(cat "$servers/tsa/url") document.txt carol-t.p7s"
    step "The validation with time passes: the responder says the signer is good, the TSA's CRL does not list the time-stamping authority" \
         "tessera validate carol-t.p7s $carol_check"
    # A revocation in a later second than the time-stamp's genTime.
    sleep 1
    sed -i "s/^V\t\([0-9Z]*\)\t\t2001\t/R\t\1\t$(date -u +%y%m%d%H%M%SZ),keyCompromise\t2001\t/" \
        "$ocsp_pki/index.txt"
    restart_ocsp
    step "The CA revokes the signer after the time-stamp; the responder says so" \
         "tessera ocsp --client --issuer $ocsp_pki/ca.pem --cert pki/Carol.pem"
    step "The validation with time still passes after the revocation: the signer's check is indeterminate (revoked), but the revocation came after the time-stamp's time" \
         "tessera validate carol-t.p7s $carol_check"
    step "Why: the revocation time is later than the best signature time (from the same report as JSON)" \
         "tessera validate carol-t.p7s $carol_check --json | python3 -c '$when'"
    step "The basic validation, which takes no time-stamp into account, is indeterminate after the revocation (repRevokedNoPOE)" \
         "tessera validate carol-t.p7s --trust $ocsp_pki/ca.pem --mode ocsp --fetch --process basic"
fi

# The long term: the CAdES-T signature extended to LTA, so that it stays
# verifiable after the signer's and the TSA's certificates expire or are
# revoked: the certificates and CRLs of both paths are added, then an archive
# time-stamp over the signature, them and the signature time-stamp.
if [ -s "$servers/tsa/url" ]; then
    lta_paths="$trust --trust $servers/tsa/ca.pem --crl pki/tsa.crl"
    step "The CAdES-T signature extended to LTA: validation data and an archive time-stamp" \
         "tessera extend cades-t.p7s --to lta --tsa $(cat "$servers/tsa/url") $lta_paths cades-lta.p7s && tessera info cades-lta.p7s | grep -E '^(certificate|crl)|longTermForm|archiveStamp'"
    step "OpenSSL still verifies the extended signature" \
         "openssl cms -verify -binary -inform DER -in cades-lta.p7s -CAfile pki/ca.pem -out /dev/null"
    step "Validated with proofs of existence: the archive time-stamp proves what it covers" \
         "tessera validate cades-lta.p7s $trust --crl pki/tsa.crl --tsa-trust $servers/tsa/ca.pem --poe"
fi

printf '\nDemo finished.\n'
