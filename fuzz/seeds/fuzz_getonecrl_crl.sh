#!/usr/bin/env bash
# fuzz_getonecrl_crl.sh OUTDIR: the same CRLs as the X509Crl target.
exec "$(dirname "$0")/fuzz_x509_crl.sh" "$@"
