#!/usr/bin/env bash
# The tessera tool as a user meets it: help, version, errors, and usage errors.
set -uo pipefail
cli=$1
source "$(dirname "$0")/cli_lib.sh"

ok "help" "$cli" help
has "help lists version" '^  version'
has "help lists errors" '^  errors'
has "help puts the summary below the synopsis" -x "      print the library's version text"

ok "help sign" "$cli" help sign
has "help sign shows an example" '^  tessera sign --'
has "help sign explains --extra, one file each" -E '^  --extra FILE +.*\(repeatable\)'
ok "sign --help, whatever else is given" "$cli" sign --help --cert
usage "help for an unknown command" "$cli" help nosuch
texts=$({ "$cli" help; for name in $("$cli" help | sed -n 's/^  \([a-z][a-z0-9-]*\).*/\1/p'); do
    "$cli" help "$name" || echo "FAILED: help $name"; done; } 2>&1)
! grep -q '^FAILED: help' <<<"$texts"; check "help COMMAND works for every listed command" $?
[ -z "$(awk 'length > 100' <<<"$texts")" ]; check "no help line is wider than 100 columns" $?
! grep -qE -- '--[a-z-]+ [A-Z]+\.\.\.' <<<"$texts"; check "no option claims several files" $?

ok "version" "$cli" version
has "version prints the version text" \
    -E '^Version:v2\.22\.1\.0,Revision:.+,Build date:Apr 11 2018,Build time:09:10:36$'

ok "errors" "$cli" errors
has "errors lists code 102 with name and description" \
    -xE '102 +ErrInvalidParameter +Invalid parameter value\.'
has "errors keeps the description texts as they are" \
    -E '^164 +ErrCertPoeAfterRevocation .*revocatiom time\.$'
[ "$(wc -l <<<"$out")" -eq 89 ]; check "errors lists all 89 codes" $?

usage "unknown command" "$cli" no-such-command
grep -q "unknown command 'no-such-command'" <<<"$err"; check "unknown command is named on stderr" $?
grep -q '^usage: tessera' <<<"$err"; check "unknown command prints usage on stderr" $?
usage "no command" "$cli"

exit $fail
