#!/usr/bin/env bash
# The tessera tool as a user meets it: help, version, errors, and usage errors.
set -uo pipefail
cli=$1
fail=0
check() {  # description, condition result
    if [ "$2" -ne 0 ]; then echo "FAILED: $1"; fail=1; fi
}

out=$("$cli" help); rc=$?
check "help exits 0" $rc
grep -q '^  version' <<<"$out"; check "help lists version" $?
grep -q '^  errors' <<<"$out"; check "help lists errors" $?

out=$("$cli" version); rc=$?
check "version exits 0" $rc
grep -qE '^Version:v2\.22\.1\.0,Revision:.+,Build date:Apr 11 2018,Build time:09:10:36$' <<<"$out"
check "version prints the version text" $?

out=$("$cli" errors); rc=$?
check "errors exits 0" $rc
grep -qxE '102 +ErrInvalidParameter +Invalid parameter value\.' <<<"$out"
check "errors lists code 102 with name and description" $?
grep -qE '^164 +ErrCertPoeAfterRevocation .*revocatiom time\.$' <<<"$out"
check "errors keeps the description texts as they are" $?
[ "$(wc -l <<<"$out")" -eq 89 ]; check "errors lists all 89 codes" $?

err=$("$cli" no-such-command 2>&1 >/dev/null); rc=$?
[ $rc -eq 2 ]; check "unknown command exits 2 (got $rc)" $?
grep -q "unknown command 'no-such-command'" <<<"$err"; check "unknown command is named on stderr" $?
grep -q '^usage: tessera' <<<"$err"; check "unknown command prints usage on stderr" $?

"$cli" >/dev/null 2>&1; rc=$?
[ $rc -eq 2 ]; check "no command exits 2 (got $rc)" $?

exit $fail
