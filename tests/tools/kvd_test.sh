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
"$kvd" demo "$plant" >/dev/null; check "demo DIR/ writes a plant through the library" $?
v="$plant/WATER/V1/"  # a version directory of the demo, its tables written through the families
out=$("$kvd" check "$v"); rc=$?
[ $rc -eq 0 ] && grep -q '^_DIRFIG.DBF *Dirfig *in order (4 records)' <<<"$out" \
  && grep -q '^_DIRAS.DBF *DirAs *in order (4 records)' <<<"$out"; check "check: the demo's tables are in order" $?
out=$("$kvd" dump "$v" Dirfig)
[ "$(sed -n 2p <<<"$out" | cut -f1)" = PIPE ] && [ "$(wc -l <<<"$out")" -eq 5 ]; check "dump DIR FAMILY walks the key order" $?
out=$("$kvd" dump "$v" dirAS --json)
py "$out" <<'PY'
import json, sys
rows = json.loads(sys.argv[1])
assert [r["NAME"] for r in rows] == ["ENGINEER", "OPERATOR", "REMOTE", "SCADA"], rows
assert [r["ACCESS"] for r in rows] == ["E", "E", "I", "I"], rows
assert rows[0]["DESCR"].endswith(" ") and len(rows[0]["DESCR"]) == 30  # kept with its blanks
PY
check "dump DIR FAMILY --json: names trimmed, access letters, description padded" $?
# An older _DIRAS without DESCR, written by another program: reported, and left as it was.
rm "$v/_DIRAS.DBF" "$v/_DIRAS.CDX"
py "$v/_DIRAS.DBF" <<'PY'
import dbf, sys
t = dbf.Table(sys.argv[1], "NAME C(10); ACCESS C(1); OLD C(4)", dbf_type="db3")
t.open(dbf.READ_WRITE)
t.append(("KEPT", "E", "x"))
t.close()
PY
before=$(sha256sum <"$v/_DIRAS.DBF")
out=$("$kvd" check "$v"); rc=$?
[ $rc -eq 3 ] && grep -q 'DirAs *differs' <<<"$out" && grep -q 'DESCR *missing, wanted C 30.0' <<<"$out" \
  && grep -q 'OLD *not in the definition' <<<"$out"; check "check reports a table of another structure, exit 3" $?
[ "$(sha256sum <"$v/_DIRAS.DBF")" = "$before" ]; check "check changes nothing" $?
out=$("$kvd" dump "$v" DirAs); check "dump through the family adapts the old table" $?
grep -q '^KEPT' <<<"$out" && "$kvd" check "$v" >/dev/null; check "after the adaption the table is in order" $?
"$kvd" dump "$v" Mp --json >"$dir/mp.json"  # too long for one argument
py "$dir/mp.json" <<'PY'
import json, sys
rows = json.load(open(sys.argv[1]))
assert len(rows) >= 200, len(rows)
ids = [r["POINTID"] for r in rows]
assert ids == sorted(ids), "id order"
flow = next(r for r in rows if r["POINTID"] == "PS1.P1.FLOW")
assert flow["BINANA"] == "A" and flow["UNIT"] == "M3H" and flow["STATUS4"] == "HIGH HIGH", flow
assert flow["LIMIT4"] == 760 and flow["RANGEEND"] == 800 and flow["VF"] == "F", flow
assert "SPLTID" not in flow  # a column no member has
PY
check "dump DIR Mp --json: the demo's points with states and limits" $?
out=$("$kvd" seek "$v" mp PS2.V1.FAULT); rc=$?
[ $rc -eq 0 ] && grep -q $'^PS2.V1.FAULT\tPS2.V1 fault' <<<"$out" && grep -q 'MAINT' <<<"$out"; check "seek DIR Mp ID" $?
"$kvd" seek "$v" Mp NO.SUCH.POINT >/dev/null; [ $? -eq 3 ]; check "seek DIR FAMILY: a missing key, exit 3" $?
out=$("$kvd" seek "$v" Up 2 10 --csv 2>/dev/null); rc=$?
[ $rc -eq 0 ] && [ "$(sed -n 2p <<<"$out")" = "2,10,E" ]; check "seek DIR Up PROFILE FUNCTION" $?
"$kvd" seek "$v" Up 2 >/dev/null 2>&1; [ $? -eq 2 ]; check "seek DIR Up with one number: exit 2" $?
[ "$("$kvd" dump "$v" Usr | awk -F'\t' 'NR > 1 { print $1 $5 }' | tr '\n' ' ')" = \
  "ADMINE ENGINEERE OPERATOR1I OPERATOR2I OPERATOR3I OPERATOR4I SHIFT1E " ]; check "dump DIR Usr: entered and imported users" $?
out=$("$kvd" dump "$plant/BOILER" Job); rc=$?
[ $rc -eq 0 ] && [ "$(wc -l <<<"$out")" -eq 9 ] && grep -q '^SHOWDESCR' <<<"$out"; check "dump PROJECTDIR Job: the jobs at project level" $?
"$kvd" seek "$plant/BOILER" DoAttr description >/dev/null; check "seek DIR DoAttr finds a name in any case" $?
for fam in Po So Ref Sec SecPointId Dirsec Up DoAttr; do
  d="$v"; case $fam in DoAttr) d="$plant/WATER";; esac
  [ "$("$kvd" dump "$d" $fam | wc -l)" -gt 1 ] || { echo "no rows: $fam"; false; }
done; check "dump DIR FAMILY: every family of the demo has rows" $?
"$kvd" dump "$v" NoSuchFamily 2>/dev/null; [ $? -eq 1 ]; check "an unknown family: exit 1" $?
"$kvd" dump "$dir/nowhere/" Dirfig 2>/dev/null; [ $? -eq 1 ]; check "a directory without the table: exit 1, nothing made" $?
[ ! -e "$dir/nowhere" ]; check "nothing made for a missing directory" $?

group "the demo plant"
a=(--admin "$plant")
[ -f "$plant/TELMOR.INI" ] && grep -q "^AdminPath=.*/plant/$" "$plant/TELMOR.INI"; check "demo DIR/ writes its own TELMOR.INI" $?
out=$("$kvd" "${a[@]}" projects); rc=$?
[ $rc -eq 0 ] && [ "$(awk 'NR > 1 { print $1 }' <<<"$out" | tr '\n' ' ')" = "BOILER WATER " ] \
  && grep -q '^WATER *Waterworks Nordhafen *.*/plant/WATER$' <<<"$out"; check "projects: by name, with description and directory" $?
[ "$(KVD_TELMOR_INI="$plant/TELMOR.INI" "$kvd" projects)" = "$out" ]; check "KVD_TELMOR_INI names the plant as --admin does" $?
[ "$("$kvd" projects --admin="$plant")" = "$out" ]; check "--admin=DIR, after the command too" $?
out=$("$kvd" "${a[@]}" versions WATER)
[ "$(awk 'NR > 1 { print $1 }' <<<"$out" | tr '\n' ' ')" = "V1 V2 WORK " ] && grep -q '^WORK *Current engineering *S. Lang' <<<"$out"
check "versions: name, description, editor" $?
out=$("$kvd" "${a[@]}" project show WATER)
grep -q '^versions     3$' <<<"$out" && grep -q '^data version 1 (current)$' <<<"$out" \
  && grep -q '^             Operator: city utilities.$' <<<"$out"; check "project show: versions, data version, comment lines" $?
out=$("$kvd" "${a[@]}" version show BOILER V1)
grep -q '^editor       K. Ahrens$' <<<"$out" && grep -q '^comment      Drawings of 2016.$' <<<"$out" \
  && grep -q '^directory    .*/plant/BOILER/V1$' <<<"$out"; check "version show: editor, comment, directory" $?
out=$("$kvd" dump "$plant/WATER/_TABLES.DBF" --csv)
[ "$(wc -l <<<"$out")" -eq 6 ] && grep -q ',Figures *,_DIRFIG.DBF *,F$' <<<"$out"; check "the dictionary: _TABLES.DBF of a project" $?
out=$("$kvd" dump "$plant/BOILER/V2/X_Unit" --json)
py "$out" <<'PY'
import json, sys
rows = json.loads(sys.argv[1])
assert [r["TEXT"].strip() for r in rows][:3] == ["\u00b0C", "bar", "m\u00b3/h"], rows
PY
check "the text lists of a version: X_Unit.DBF" $?
"$kvd" demo "$plant" >/dev/null 2>"$dir/err"; rc=$?
[ $rc -eq 1 ] && grep -q 'holds a catalogue already' "$dir/err"; check "demo into a plant that is there: exit 1" $?

group "projects and versions"
err() { grep -q "$1" "$dir/err"; }
"$kvd" "${a[@]}" project copy WATER W2 W2DIR >"$dir/out" 2>"$dir/err"; rc=$?
[ $rc -eq 0 ] && [ ! -s "$dir/err" ] && grep -q '^project WATER copied to W2 in .*/plant/W2DIR$' "$dir/out"
check "project copy: one line, nothing on stderr when it is no terminal" $?
diff -r "$plant/WATER" "$plant/W2DIR" >/dev/null; check "the copy's tree is the source's" $?
"$kvd" "${a[@]}" project show W2 | grep -q '^description  $'; check "the copy's description is blank" $?
"$kvd" "${a[@]}" project copy WATER W2 W3DIR 2>"$dir/err"; rc=$?
[ $rc -eq 1 ] && err 'project copy WATER to W2: status 11 (Record already exists)' && [ ! -e "$plant/W3DIR" ]
check "copy to a name in use: status 11, exit 1, nothing made" $?
"$kvd" "${a[@]}" project rename W2 W3 >/dev/null && "$kvd" "${a[@]}" project show W3 | grep -q '^directory    .*/W2DIR$'
check "project rename: the name changes, the directory stays" $?
"$kvd" "${a[@]}" project move W3 "$dir/moved" >/dev/null; rc=$?
[ $rc -eq 0 ] && [ ! -e "$plant/W2DIR" ] && diff -r "$plant/WATER" "$dir/moved" >/dev/null \
  && "$kvd" "${a[@]}" project show W3 | grep -q "^directory    $dir/moved$"; check "project move: tree moved, record follows" $?
"$kvd" "${a[@]}" project move W3 "$plant/BOILER" 2>"$dir/err"; rc=$?
[ $rc -eq 1 ] && err 'status 10 (Invalid directory)'; check "move onto another project: status 10" $?
"$kvd" "${a[@]}" project delete W3 >"$dir/out"; rc=$?
[ $rc -eq 0 ] && grep -q 'empty of files' "$dir/out" && [ -z "$(find "$dir/moved" -type f)" ] \
  && [ "$("$kvd" "${a[@]}" projects | awk 'NR > 1 { print $1 }' | tr '\n' ' ')" = "BOILER WATER " ]
check "project delete: record, versions and files go; the directory stays" $?
"$kvd" "${a[@]}" project new ../UP UP 2>"$dir/err"; rc=$?
[ $rc -eq 1 ] && err 'status 12 (Invalid project)'; check "a name that would leave its directory: status 12" $?
"$kvd" "${a[@]}" project new ROOT / 2>"$dir/err"; rc=$?
[ $rc -eq 1 ] && err 'status 10 (Invalid directory)'; check "a root as a project's directory: status 10" $?
"$kvd" "${a[@]}" project new NEW NEW --descr 'Neu: Kläranlage' --comment $'two\nlines' >/dev/null \
  && "$kvd" "${a[@]}" project show NEW | grep -q '^description  Neu: Kläranlage$' \
  && [ "$(cat "$plant/NEW/komment.txt" | wc -l)" -eq 1 ]; check "project new with description (UTF-8) and comment" $?
"$kvd" "${a[@]}" version new NEW V1 --descr first --editor me >/dev/null && [ -d "$plant/NEW/V1" ]
check "version new makes its directory" $?
"$kvd" "${a[@]}" version copy BOILER V1 V3 >/dev/null && diff -r "$plant/BOILER/V1" "$plant/BOILER/V3" >/dev/null
check "version copy" $?
"$kvd" "${a[@]}" version rename BOILER V3 V4 >/dev/null && [ -d "$plant/BOILER/V4" ] && [ ! -e "$plant/BOILER/V3" ]
check "version rename renames its directory" $?
out=$("$kvd" "${a[@]}" version lock BOILER V4); rc=$?
[ $rc -eq 0 ] && grep -q 'keeps no working lock' <<<"$out"; check "version lock says what it does: nothing" $?
"$kvd" "${a[@]}" version rename BOILER V4 V1 2>"$dir/err"; [ $? -eq 1 ] && err 'status 11'
check "version rename to a name in use: status 11" $?
"$kvd" "${a[@]}" version delete BOILER V4 >/dev/null && [ ! -e "$plant/BOILER/V4" ] \
  && [ "$("$kvd" "${a[@]}" versions BOILER | awk 'NR > 1 { print $1 }' | tr '\n' ' ')" = "V1 V2 " ]
check "version delete: record and directory go" $?
"$kvd" "${a[@]}" version delete BOILER V9 2>"$dir/err"; [ $? -eq 1 ] && err 'status 13 (Invalid version)'
check "an unknown version: status 13" $?
"$kvd" "${a[@]}" versions NOSUCH 2>"$dir/err"; [ $? -eq 1 ] && err "no project 'NOSUCH' in the catalogue of"
check "an unknown project: exit 1, naming the catalogue" $?
"$kvd" "${a[@]}" project copy WATER 2>/dev/null; [ $? -eq 2 ]; check "project with too few words: exit 2" $?
"$kvd" "${a[@]}" version new BOILER V5 --colour red 2>/dev/null; [ $? -eq 2 ] && [ ! -e "$plant/BOILER/V5" ]
check "an unknown option: exit 2, nothing done" $?
"$kvd" projects --admin 2>/dev/null; [ $? -eq 2 ]; check "--admin without a directory: exit 2" $?

group "progress of long copies"
dd if=/dev/urandom of="$plant/BOILER/V2/BULK.DBF" bs=1M count=50 status=none
"$kvd" "${a[@]}" version copy BOILER V2 V6 >/dev/null 2>"$dir/err"
[ $? -eq 0 ] && [ ! -s "$dir/err" ]; check "no progress when stderr is no terminal" $?
if command -v script >/dev/null; then
  KVD_PROGRESS_AFTER_MS=0 script -qec "'$kvd' --admin '$plant' version copy BOILER V2 V7" "$dir/typescript" >/dev/null
  tr '\r' '\n' <"$dir/typescript" | grep -Eq '^copying +[0-9.]+ of 5[0-9]\.[0-9] MB \([0-9]+%\)'
  check "on a terminal a long copy shows its progress" $?
fi
"$kvd" "${a[@]}" version delete BOILER V6 >/dev/null && "$kvd" "${a[@]}" version delete BOILER V7 >/dev/null
check "and the copies go again" $?

group "bad input"
printf 'not a table at all, but long enough to have a header of thirty-two bytes' >"$dir/text.dbf"
"$kvd" info "$dir/text.dbf" 2>"$dir/err"; rc=$?
[ $rc -eq 1 ] && grep -q 'is not a readable table' "$dir/err"; check "a file that is not a table: message and exit 1" $?
"$kvd" dump "$dir/missing" 2>/dev/null; [ $? -eq 1 ]; check "a missing table: exit 1" $?
"$kvd" nonsense 2>/dev/null; [ $? -eq 2 ]; check "an unknown command: exit 2" $?
exit $fail
