#!/usr/bin/env bash
# kvd from a shell: demo, info and dump agree with each other, and bad input fails clearly.
set -u
kvd="$1"
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
fail=0
check() {  # check NAME CONDITION-EXIT-CODE
  if [ "$2" -ne 0 ]; then echo "FAILED: $1"; fail=1; else echo "ok: $1"; fi
}

"$kvd" demo "$dir/Plant.DBF" >/dev/null
check "demo writes a table" $?
info=$("$kvd" info "$dir/PLANT")
check "info finds the table without extension and ignoring case" $?
grep -q '^records   6 (1 deleted)$' <<<"$info"; check "info counts records and deleted ones" $?
grep -q '^version   0xF5' <<<"$info"; check "a memo table is written as 0xF5" $?
grep -Eq '^ +8  NOTE +M +10' <<<"$info"; check "info lists the memo field" $?

json=$("$kvd" dump "$dir/Plant.DBF" --json)
check "dump --json" $?
/usr/bin/python3 - "$json" <<'PY'
import json, sys
rows = json.loads(sys.argv[1])
assert len(rows) == 6, rows
assert rows[0]["POINTID"] == "BOILER1.TEMP" and rows[0]["UPPER"] == 120.0
assert rows[0]["UNIT"] == "\u00b0C", rows[0]["UNIT"]
assert rows[4]["_deleted"] is True and rows[4]["ACTIVE"] is False
assert rows[2]["NOTE"].startswith("Runs only")
PY
check "dump --json is valid JSON with the demo's values" $?

csv=$("$kvd" dump "$dir/Plant.DBF" --csv)
[ "$(wc -l <<<"$csv")" -eq 7 ]; check "dump --csv has a header and a line per record" $?
head -1 <<<"$csv" | grep -q '^_RECNO,_DELETED,POINTID,'; check "csv header names the fields" $?

printf 'not a table at all, but long enough to have a header of thirty-two bytes' >"$dir/text.dbf"
"$kvd" info "$dir/text.dbf" 2>"$dir/err"; rc=$?
[ $rc -eq 1 ] && grep -q 'is not a readable table' "$dir/err"; check "a file that is not a table: message and exit 1" $?
"$kvd" dump "$dir/missing" 2>/dev/null; [ $? -eq 1 ]; check "a missing table: exit 1" $?
"$kvd" nonsense 2>/dev/null; [ $? -eq 2 ]; check "an unknown command: exit 2" $?
exit $fail
