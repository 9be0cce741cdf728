# Sourced by the seed scripts: make_pki DIR writes a small PKI made by the
# openssl command line — an RSA root, an EC end entity with extensions, a CRL
# with one revoked entry and a PKCS#12 (password "fuzz").
make_pki() {
    local d=$1
    openssl req -x509 -newkey rsa:2048 -nodes -days 3650 -subj "/C=SK/O=Seed/CN=Seed Root" \
        -keyout "$d/root.key" -out "$d/root.pem" 2>/dev/null
    openssl req -new -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes \
        -subj "/C=SK/O=Seed, Inc./OU=One/OU=Two/CN=Seed Leaf/serialNumber=QOR - 12345678" \
        -keyout "$d/leaf.key" -out "$d/leaf.csr" 2>/dev/null
    cat >"$d/leaf.ext" <<EXT
keyUsage=critical,digitalSignature,nonRepudiation
extendedKeyUsage=emailProtection,1.3.6.1.4.1.311.10.3.12
authorityInfoAccess=OCSP;URI:http://127.0.0.1/ocsp
crlDistributionPoints=URI:http://127.0.0.1/root.crl
certificatePolicies=1.2.3.4,2.5.29.32.0
EXT
    openssl x509 -req -in "$d/leaf.csr" -CA "$d/root.pem" -CAkey "$d/root.key" -set_serial 0x1001 \
        -days 3650 -extfile "$d/leaf.ext" -out "$d/leaf.pem" 2>/dev/null
    mkdir -p "$d/ca"
    : >"$d/ca/index.txt"
    echo 01 >"$d/ca/crlnumber"
    cat >"$d/ca.cnf" <<CNF
[ ca ]
default_ca = seed
[ seed ]
database = $d/ca/index.txt
crlnumber = $d/ca/crlnumber
default_md = sha256
default_crl_days = 30
CNF
    openssl ca -config "$d/ca.cnf" -keyfile "$d/root.key" -cert "$d/root.pem" \
        -revoke "$d/leaf.pem" -crl_reason keyCompromise 2>/dev/null
    openssl ca -config "$d/ca.cnf" -keyfile "$d/root.key" -cert "$d/root.pem" -gencrl \
        -out "$d/root.crl.pem" 2>/dev/null
    openssl crl -in "$d/root.crl.pem" -outform DER -out "$d/root.crl.der" 2>/dev/null
    openssl pkcs12 -export -inkey "$d/leaf.key" -in "$d/leaf.pem" -certfile "$d/root.pem" \
        -passout pass:fuzz -out "$d/leaf.p12" 2>/dev/null
}
