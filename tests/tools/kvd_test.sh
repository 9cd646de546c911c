#!/usr/bin/env bash
# kvd from a shell: demo, info, dump and seek agree with each other, and bad input fails clearly.
set -u
kvd="$1"
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
fail=0
check() {  # check NAME CONDITION-EXIT-CODE
  if [ "$2" -ne 0 ]; then echo "FAILED: $1"; fail=1; else echo "ok: $1"; fi
}
group() { echo; echo "== $1"; }
recnos() { awk -F' [|] ' 'NR > 1 { print $1 }' | tr '\n' ' '; }  # record numbers of a text dump, in order
py() { /usr/bin/python3 - "$@"; }

group "tables"
"$kvd" demo "$dir/Plant.DBF" >/dev/null
check "demo writes a table" $?
info=$("$kvd" info "$dir/PLANT")
check "info finds the table without extension and ignoring case" $?
grep -q '^records   6 (1 deleted)$' <<<"$info"; check "info counts records and deleted ones" $?
grep -q '^version   0xF5' <<<"$info"; check "a memo table is written as 0xF5" $?
grep -Eq '^ +8  NOTE +M +10' <<<"$info"; check "info lists the memo field" $?

json=$("$kvd" dump "$dir/Plant.DBF" --json)
check "dump --json" $?
py "$json" <<'PY'
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

group "info lists the index"
grep -Eiq '^index     .*/plant\.cdx \(4 tags\)$' <<<"$info"; check "info names the production index and its tag count" $?
tags=$(sed -n '/^index /,$p' <<<"$info" | tail -n +3)
[ "$(awk '{ print $2 }' <<<"$tags" | tr '\n' ' ')" = "POINTID DESCR UNIT SPAN " ]
check "tags in definition order, not by name" $?
grep -Eq '^ +1  POINTID +22  default unique +POINTID$' <<<"$tags"; check "first tag: key length 22, default, unique" $?
grep -Eq '^ +2  DESCR +30  +UPPER\(DESCR\)$' <<<"$tags"; check "second tag: its expression UPPER(DESCR)" $?
grep -Eq '^ +3  UNIT +8  +UNIT FOR \.NOT\. DELETED\(\)$' <<<"$tags"; check "third tag: expression and filter" $?
grep -Eq '^ +4  SPAN +8  descending +UPPER - LOWER$' <<<"$tags"; check "fourth tag: numeric key of 8 bytes, descending" $?
[ "$(grep -c 'default' <<<"$tags")" -eq 1 ]; check "only one tag is the default" $?
cp "$dir/Plant.DBF" "$dir/BARE.DBF"; cp "$dir/Plant.FPT" "$dir/BARE.FPT"
bare=$("$kvd" info "$dir/BARE")
check "a table whose index file is gone still opens" $?
[ "$(grep -c '^index' <<<"$bare")" -eq 1 ] && grep -q '^index     none$' <<<"$bare" && ! grep -q TAG <<<"$bare"
check "a table without index says so in one line" $?
cp "$dir/Plant.DBF" "$dir/BROKEN.DBF"; cp "$dir/Plant.FPT" "$dir/BROKEN.FPT"
head -c 2048 /dev/zero | tr '\0' 'x' >"$dir/BROKEN.CDX"
broken=$("$kvd" info "$dir/BROKEN" 2>"$dir/err")
[ $? -eq 0 ] && grep -q '^records   6 (1 deleted)$' <<<"$broken" && grep -q '^index     cannot be read' <<<"$broken" &&
  grep -q 'warning' "$dir/err"
check "an index that cannot be read: info still shows the table and says so" $?

group "dump in a tag's order"
plain=$("$kvd" dump "$dir/Plant.DBF")
byid=$("$kvd" dump "$dir/Plant.DBF" --tag POINTID)
check "dump --tag POINTID" $?
[ "$(recnos <<<"$plain")" = "1 2 3 4 5* 6 " ]; check "plain dump is in record order" $?
[ "$(recnos <<<"$byid")" != "$(recnos <<<"$plain")" ]; check "tag order differs from record order" $?
[ "$(awk -F' [|] ' 'NR > 1 { print $2 }' <<<"$byid")" = "$(awk -F' [|] ' 'NR > 1 { print $2 }' <<<"$plain" | LC_ALL=C sort)" ]
check "tag order is the order of the point ids" $?
[ "$("$kvd" dump "$dir/Plant.DBF" --tag=pointid)" = "$byid" ]; check "--tag=NAME, and the name ignores case" $?
py "$json" "$("$kvd" dump "$dir/Plant.DBF" --tag DESCR --json)" "$("$kvd" dump "$dir/Plant.DBF" --tag SPAN --json)" <<'PY'
import json, sys
rows, descr, span = (json.loads(a) for a in sys.argv[1:])
want = sorted(rows, key=lambda r: (r["DESCR"].upper().encode("cp1252"), r["_recno"]))
assert [r["_recno"] for r in descr] == [r["_recno"] for r in want], descr
want = sorted(rows, key=lambda r: r["UPPER"] - r["LOWER"], reverse=True)
assert [r["_recno"] for r in span] == [r["_recno"] for r in want], span
assert span[0]["POINTID"] == "PUMP3.SPEED" and span[-1]["POINTID"] == "OLD.SENSOR"
PY
check "--json --tag: key order of UPPER(DESCR), and of UPPER - LOWER descending" $?
units=$("$kvd" dump "$dir/Plant.DBF" --csv --tag UNIT)
check "dump --csv --tag UNIT" $?
py "$json" "$units" <<'PY'
import csv, io, json, sys
rows = json.loads(sys.argv[1])
got = list(csv.DictReader(io.StringIO(sys.argv[2])))
live = [r for r in rows if not r["_deleted"]]
want = sorted(live, key=lambda r: (r["UNIT"].encode("cp1252"), r["_recno"]))
assert [int(r["_RECNO"]) for r in got] == [r["_recno"] for r in want], got
assert all(r["_DELETED"] == "0" for r in got) and len(got) == 5
PY
check "filtered tag leaves out the deleted record, the rest in key order" $?
"$kvd" dump "$dir/Plant.DBF" --tag NOSUCH >"$dir/out" 2>"$dir/err"; rc=$?
[ $rc -eq 1 ] && [ ! -s "$dir/out" ] && grep -q "no tag 'NOSUCH'" "$dir/err" && grep -q 'POINTID, DESCR, UNIT, SPAN' "$dir/err"
check "unknown tag: message naming the tags, nothing on stdout, exit 1" $?
"$kvd" dump "$dir/BARE" --tag POINTID 2>"$dir/err"; rc=$?
[ $rc -eq 1 ] && grep -q 'has no index' "$dir/err"; check "dump --tag of a table without index: exit 1" $?
"$kvd" dump "$dir/BROKEN" --tag POINTID >/dev/null 2>&1; [ $? -eq 1 ]; check "dump --tag with an unreadable index: exit 1" $?
"$kvd" dump "$dir/Plant.DBF" --tag 2>/dev/null; [ $? -eq 2 ]; check "--tag without a name: exit 2" $?

group "seek"
seek() {  # seek TAG KEY [OPTIONS]: output in $out, exit code in $rc
  out=$("$kvd" seek "$dir/Plant.DBF" "$@" 2>"$dir/err"); rc=$?
}
row() { awk -F' [|] ' 'NR == 2 { print $1 " " $2 }' <<<"$out"; }  # record number and point id shown
seek POINTID TANK2.LEVEL
[ $rc -eq 0 ] && [ "$(row)" = "4 TANK2.LEVEL" ] && grep -q '^found' <<<"$out"; check "seek: exact key found, exit 0" $?
seek pointid BOILER1
[ $rc -eq 0 ] && [ "$(row)" = "2 BOILER1.PRESS" ]; check "seek: a shorter key is a prefix; the first match in key order" $?
seek DESCR FEED
[ $rc -eq 0 ] && [ "$(row)" = "3 PUMP3.SPEED" ]; check "seek: prefix in an UPPER tag" $?
seek UNIT 'm³'
[ $rc -eq 0 ] && [ "$(row)" = "6 FLOW.MAIN" ]; check "seek: a UTF-8 key meets the table's Windows-1252 text" $?
seek POINTID C
[ $rc -eq 3 ] && [ "$(row)" = "6 FLOW.MAIN" ] && grep -q '^not found.*record 6' <<<"$out"
check "seek: a miss shows the next higher key's record, exit 3" $?
seek POINTID ZZZ
[ $rc -eq 4 ] && [ "$(wc -l <<<"$out")" -eq 2 ] && grep -q '^not found.*no key follows' <<<"$out"
check "seek: past the end, no record, exit 4" $?
seek SPAN 110
[ $rc -eq 0 ] && [ "$(row)" = "1 BOILER1.TEMP" ]; check "seek: a number in a numeric tag (120 - 10)" $?
seek SPAN 100
[ $rc -eq 3 ] && [ "$(row)" = "2 BOILER1.PRESS" ]; check "seek: a miss in a descending tag stands on the next key in its order" $?
seek POINTID OLD
[ $rc -eq 0 ] && [ "$(row)" = "5* OLD.SENSOR" ]; check "seek: a deleted record is found in a tag without filter" $?
seek UNIT ''
[ $rc -eq 0 ] && [ "$(row)" = "2 BOILER1.PRESS" ]; check "seek: the filtered tag never holds the deleted record's blank unit" $?
seek NOSUCH X
[ $rc -eq 1 ] && [ -z "$out" ] && grep -q "no tag 'NOSUCH'" "$dir/err"; check "seek: unknown tag, exit 1" $?
seek POINTID
[ $rc -eq 2 ]; check "seek: a missing key is a wrong command line, exit 2" $?
seek UNIT '中'
[ $rc -eq 2 ] && grep -q 'Windows-1252' "$dir/err"; check "seek: a key the code page cannot hold, exit 2" $?
"$kvd" seek "$dir/missing" POINTID A 2>/dev/null; [ $? -eq 1 ]; check "seek: a missing table, exit 1" $?

group "seek as data"
seek POINTID BOILER1.T --json
py "$out" <<'PY'
import json, sys
rows = json.loads(sys.argv[1])
assert len(rows) == 1 and rows[0]["_recno"] == 1 and rows[0]["POINTID"] == "BOILER1.TEMP", rows
PY
[ $? -eq 0 ] && [ $rc -eq 0 ] && grep -q '^found' "$dir/err"; check "seek --json: the record as JSON, the outcome on stderr" $?
seek POINTID ZZZ --json
[ $rc -eq 4 ] && [ "$out" = "[]" ]; check "seek --json past the end: an empty list" $?
seek POINTID Q --csv
py "$out" <<'PY'
import csv, io, sys
rows = list(csv.DictReader(io.StringIO(sys.argv[1])))
assert len(rows) == 1 and rows[0]["_RECNO"] == "4" and rows[0]["POINTID"] == "TANK2.LEVEL", rows
PY
[ $? -eq 0 ] && [ $rc -eq 3 ] && grep -q '^not found' "$dir/err"; check "seek --csv: a miss gives the next record as CSV, exit 3" $?

group "families of a plant directory"
plant="$dir/plant/"
"$kvd" demo "$plant" >/dev/null; check "demo DIR/ writes a plant through the families" $?
out=$("$kvd" check "$plant"); rc=$?
[ $rc -eq 0 ] && grep -q '^_DIRFIG.DBF *Dirfig *in order (4 records)' <<<"$out" \
  && grep -q '^_DIRAS.DBF *DirAs *in order (4 records)' <<<"$out"; check "check: the demo's tables are in order" $?
out=$("$kvd" dump "$plant" Dirfig)
[ "$(sed -n 2p <<<"$out" | cut -f1)" = PIPE ] && [ "$(wc -l <<<"$out")" -eq 5 ]; check "dump DIR FAMILY walks the key order" $?
out=$("$kvd" dump "$plant" dirAS --json)
py "$out" <<'PY'
import json, sys
rows = json.loads(sys.argv[1])
assert [r["NAME"] for r in rows] == ["ENGINEER", "OPERATOR", "REMOTE", "SCADA"], rows
assert [r["ACCESS"] for r in rows] == ["E", "E", "I", "I"], rows
assert rows[0]["DESCR"].endswith(" ") and len(rows[0]["DESCR"]) == 30  # kept with its blanks
PY
check "dump DIR FAMILY --json: names trimmed, access letters, description padded" $?
# An older _DIRAS without DESCR, written by another program: reported, and left as it was.
rm "$plant/_DIRAS.DBF" "$plant/_DIRAS.CDX"
py "$plant/_DIRAS.DBF" <<'PY'
import dbf, sys
t = dbf.Table(sys.argv[1], "NAME C(10); ACCESS C(1); OLD C(4)", dbf_type="db3")
t.open(dbf.READ_WRITE)
t.append(("KEPT", "E", "x"))
t.close()
PY
before=$(sha256sum <"$plant/_DIRAS.DBF")
out=$("$kvd" check "$plant"); rc=$?
[ $rc -eq 3 ] && grep -q 'DirAs *differs' <<<"$out" && grep -q 'DESCR *missing, wanted C 30.0' <<<"$out" \
  && grep -q 'OLD *not in the definition' <<<"$out"; check "check reports a table of another structure, exit 3" $?
[ "$(sha256sum <"$plant/_DIRAS.DBF")" = "$before" ]; check "check changes nothing" $?
out=$("$kvd" dump "$plant" DirAs); check "dump through the family adapts the old table" $?
grep -q '^KEPT' <<<"$out" && "$kvd" check "$plant" >/dev/null; check "after the adaption the table is in order" $?
"$kvd" dump "$plant" NoSuchFamily 2>/dev/null; [ $? -eq 1 ]; check "an unknown family: exit 1" $?
"$kvd" dump "$dir/nowhere/" Dirfig 2>/dev/null; [ $? -eq 1 ]; check "a directory without the table: exit 1, nothing made" $?
[ ! -e "$dir/nowhere" ]; check "nothing made for a missing directory" $?

group "bad input"
printf 'not a table at all, but long enough to have a header of thirty-two bytes' >"$dir/text.dbf"
"$kvd" info "$dir/text.dbf" 2>"$dir/err"; rc=$?
[ $rc -eq 1 ] && grep -q 'is not a readable table' "$dir/err"; check "a file that is not a table: message and exit 1" $?
"$kvd" dump "$dir/missing" 2>/dev/null; [ $? -eq 1 ]; check "a missing table: exit 1" $?
"$kvd" nonsense 2>/dev/null; [ $? -eq 2 ]; check "an unknown command: exit 2" $?
exit $fail
