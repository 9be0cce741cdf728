# What the check_cli_*.sh scripts share; sourced, not run. Sourcing it moves
# into a scratch directory that is removed on exit (a script that cleans up
# more sets its own trap, $scratch included) and sets fail=0, which the
# script ends with.

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
fail=0
cd "$scratch" || exit 1

# check DESCRIPTION STATUS: a failure is reported, and remembered in $fail,
# when STATUS is not 0.
check() { if [ "$2" -ne 0 ]; then echo "FAILED: $1"; fail=1; fi; }

# run CMD...: $out is what CMD printed on stdout, $err on stderr, $rc its status.
run() { out=$("$@" 2>"$scratch/.stderr"); rc=$?; err=$(<"$scratch/.stderr"); }
# ok DESCRIPTION CMD...: CMD exits 0.
ok() { run "${@:2}"; check "$1: exit 0 (got $rc)" "$rc"; }
# has DESCRIPTION GREP-ARGS...: the last $out matches.
has() { grep -q "${@:2}" <<<"$out"; check "$1" $?; }
# fails DESCRIPTION PATTERN CMD...: CMD exits 1 with PATTERN (grep) on stderr.
fails() {
    run "${@:3}"
    [ "$rc" -eq 1 ]; check "$1: exit 1 (got $rc)" $?
    grep -q -- "$2" <<<"$err"; check "$1: stderr says '$2'" $?
}
# usage DESCRIPTION CMD...: CMD exits 2, a usage error.
usage() { run "${@:2}"; [ "$rc" -eq 2 ]; check "$1 is a usage error (got $rc)" $?; }

# write_ca_cnf CERT KEY [LINE...]: ca.cnf for `openssl ca -gencrl` with the
# CA certificate CERT and key KEY over index.txt and crlnumber here; CRLs get
# an authority key identifier, and each LINE joins the CA section.
write_ca_cnf() {
    {
        printf '[ca]\ndefault_ca = test\n[test]\ndatabase = index.txt\ncrlnumber = crlnumber\n'
        printf 'certificate = %s\nprivate_key = %s\ndefault_md = sha256\n' "$1" "$2"
        if [ $# -gt 2 ]; then printf '%s\n' "${@:3}"; fi
        printf 'crl_extensions = crl_ext\n[crl_ext]\nauthorityKeyIdentifier = keyid:always\n'
    } >ca.cnf
}

# fixture_crl PKI: crl.pem, the CRL of the ocsp fixture's test CA (PKI its
# directory, written by tessera_testpki) over the fixture's own index,
# issued 2024-06-10 and next due 2024-07-10.
fixture_crl() {
    cp "$1/index.txt" index.txt
    echo 1000 >crlnumber
    write_ca_cnf "$1/ca.pem" "$1/ca.key.pem"
    openssl ca -config ca.cnf -gencrl -crl_lastupdate 20240610000000Z \
        -crl_nextupdate 20240710000000Z -out crl.pem 2>/dev/null
}

# rsa_pki NAME CRL_FROM CRL_UNTIL: root.pem/.key (CN=NAME Root, 2024-2044)
# and signer.pem/.key (CN=NAME Signer, RSA-2048, 2024-2034) issued with
# `openssl ca`, and crl.pem, the root's CRL from CRL_FROM to CRL_UNTIL
# (GeneralizedTime), with an authority key identifier.
rsa_pki() {
    cat >ca.cnf <<'CNF'
[ca]
default_ca = test
[test]
database = index.txt
new_certs_dir = .
serial = serial
crlnumber = crlnumber
default_md = sha256
policy = any_name
crl_extensions = crl_ext
[any_name]
organizationName = optional
commonName = supplied
[root_ext]
basicConstraints = critical,CA:TRUE
keyUsage = critical,keyCertSign,cRLSign
subjectKeyIdentifier = hash
[signer_ext]
keyUsage = critical,digitalSignature,nonRepudiation
authorityKeyIdentifier = keyid
[crl_ext]
authorityKeyIdentifier = keyid:always
CNF
    : >index.txt
    echo 1000 >serial
    echo 1000 >crlnumber
    local name
    for name in root signer; do
        openssl req -new -newkey rsa:2048 -nodes -keyout "$name.key" -out "$name.csr" \
            -subj "/O=Tessera Test/CN=$1 ${name^}" 2>/dev/null
    done
    openssl ca -batch -config ca.cnf -in root.csr -startdate 20240101000000Z \
        -enddate 20440101000000Z -extensions root_ext -notext -out root.pem -selfsign \
        -keyfile root.key 2>/dev/null
    openssl ca -batch -config ca.cnf -in signer.csr -startdate 20240101000000Z \
        -enddate 20340101000000Z -extensions signer_ext -notext -out signer.pem -cert root.pem \
        -keyfile root.key 2>/dev/null
    openssl ca -config ca.cnf -cert root.pem -keyfile root.key -gencrl -crl_lastupdate "$2" \
        -crl_nextupdate "$3" -out crl.pem 2>/dev/null
}

# ec_ca SUBJECT: ca.pem and ca.key, a self-signed P-256 CA for two days.
ec_ca() {
    openssl req -x509 -new -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout ca.key \
        -subj "$1" -days 2 -out ca.pem 2>/dev/null
}
# ec_csr NAME SUBJECT: NAME.key and NAME.csr, a P-256 key and its request.
ec_csr() {
    openssl req -new -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout "$1.key" \
        -subj "$2" -out "$1.csr" 2>/dev/null
}
