"""Interop checks between our engine and independent xBase readers and writers.

Run with Debian's /usr/bin/python3 (CMake passes its path), which has the python3-dbfread and
python3-dbf packages; another python3 on PATH usually has neither.

  interop_check.py dbfread DIR                 our tables in DIR (interop_write) read by dbfread
  interop_check.py pgdbf PGDBF DIR             pgdbf accepts our tables and exports every live record
  interop_check.py foreign INTEROP_READ DIR    python3-dbf writes tables into DIR; our engine
                                               (interop_read) must read back exactly what it wrote
  interop_check.py fixtures INTEROP_READ DIR   every table in DIR (written by other programs) reads
                                               the same through dbfread and through our engine;
                                               exit status 77 when DIR does not exist

Exit status 0 when everything agrees; otherwise every difference is listed and the status is 1.
"""
import datetime
import json
import os
import re
import subprocess
import sys

FAILURES = []


def fail(msg):
    FAILURES.append(msg)
    print("MISMATCH: " + msg)


def check(cond, msg):
    if not cond:
        fail(msg)


def need(module, package):
    try:
        return __import__(module)
    except ImportError as e:
        sys.exit(f"interop_check: cannot import {module} into {sys.executable} ({e}); "
                 f"install the Debian package {package} (./do setup does)")


def finish(what):
    if FAILURES:
        print(f"{what}: {len(FAILURES)} mismatches")
        sys.exit(1)
    print(f"{what}: all checks passed")
    sys.exit(0)


def latin1(s):
    return s.encode("latin-1")


def load_expected(directory):
    path = os.path.join(directory, "expected.json")
    if not os.path.exists(path):
        sys.exit(f"interop_check: {path} is missing; the interop_write test must run first")
    with open(path, encoding="ascii") as f:
        return json.load(f)["tables"]


def iso(d):
    return f"{d.year:04d}{d.month:02d}{d.day:02d}"


# ---- our tables, read by dbfread ------------------------------------------------------------

def check_header(directory, t):
    """The header bytes strict readers rely on, and the end-of-file byte."""
    with open(os.path.join(directory, t["file"]), "rb") as f:
        raw = f.read()
    n = len(t["fields"])
    name = t["file"]
    check(raw[0] == t["version"], f"{name}: version byte {raw[0]:#x}, expected {t['version']:#x}")
    count = int.from_bytes(raw[4:8], "little")
    header_len = int.from_bytes(raw[8:10], "little")
    record_len = int.from_bytes(raw[10:12], "little")
    check(count == len(t["records"]), f"{name}: record count {count}, expected {len(t['records'])}")
    check(header_len == 32 + 32 * n + 1, f"{name}: header length {header_len}, expected {32 + 32 * n + 1}")
    check(record_len == t["record_length"], f"{name}: record length {record_len}, expected {t['record_length']}")
    check(raw[header_len - 1] == 0x0D, f"{name}: no 0x0D terminator before the records")
    check(len(raw) == header_len + count * record_len + 1 and raw[-1] == 0x1A,
          f"{name}: file size {len(raw)} or last byte {raw[-1]:#x} is not header + records + 0x1A")
    for i, fd in enumerate(t["fields"]):
        d = raw[32 + 32 * i: 64 + 32 * i]
        stored_name = d[:11].split(b"\0")[0].decode("ascii")
        check(stored_name == fd["name"], f"{name}: descriptor {i + 1} name {stored_name!r}, expected {fd['name']!r}")
        check(d[11] == ord(fd["type"]), f"{name}: field {fd['name']} type {chr(d[11])!r}, expected {fd['type']}")
        check(d[16] == fd["len"] and d[17] == fd["dec"],
              f"{name}: field {fd['name']} width/decimals {d[16]}/{d[17]}, expected {fd['len']}/{fd['dec']}")
    if t["memo_file"]:
        with open(os.path.join(directory, t["memo_file"]), "rb") as f:
            fpt = f.read()
        block = int.from_bytes(fpt[6:8], "big")
        next_free = int.from_bytes(fpt[0:4], "big")
        check(block > 0 and len(fpt) % block == 0, f"{t['memo_file']}: size {len(fpt)} is not whole blocks of {block}")
        check(next_free * block == len(fpt),
              f"{t['memo_file']}: next free block {next_free} x {block} != file size {len(fpt)}")


def compare_value(where, ftype, want, got):
    if ftype == "C":
        check(got == want, f"{where}: {got!r} != {want!r}")
    elif ftype == "N":
        if want is None:
            check(got is None, f"{where}: {got!r}, expected blank (None)")
        else:
            ok = got is not None and (int(want) == got if "." not in want else float(want) == got)
            check(ok, f"{where}: {got!r} != {want}")
    elif ftype == "D":
        if want is None:
            check(got is None, f"{where}: {got!r}, expected blank (None)")
        else:
            check(isinstance(got, datetime.date) and iso(got) == want, f"{where}: {got!r} != {want}")
    elif ftype == "L":
        check(got is want, f"{where}: {got!r} != {want!r}")
    elif ftype == "M":
        want_bytes = bytes.fromhex(want)
        if not want_bytes:
            check(got in (None, ""), f"{where}: empty memo read as {got!r}")
        else:
            got_bytes = latin1(got) if isinstance(got, str) else got
            check(got_bytes == want_bytes,
                  f"{where}: memo of {len(got_bytes) if got_bytes is not None else None} bytes differs "
                  f"from the {len(want_bytes)} written")


def run_dbfread(directory):
    dbfread = need("dbfread", "python3-dbfread")
    for t in load_expected(directory):
        path = os.path.join(directory, t["file"])
        check_header(directory, t)
        # latin-1 maps every byte to one character and back, so text and memo bytes compare exactly.
        parsed = dbfread.DBF(path, encoding="latin-1", char_decode_errors="strict", load=True)
        raw = dbfread.DBF(path, raw=True, load=True)
        names = [f.name for f in parsed.fields]
        check(names == [f["name"] for f in t["fields"]], f"{t['file']}: field names {names}")
        for f, want in zip(parsed.fields, t["fields"]):
            check((f.type, f.length, f.decimal_count) == (want["type"], want["len"], want["dec"]),
                  f"{t['file']}: field {f.name} is {f.type}({f.length},{f.decimal_count}), expected "
                  f"{want['type']}({want['len']},{want['dec']})")
        live = [(i, r) for i, r in enumerate(t["records"]) if not r["deleted"]]
        dead = [(i, r) for i, r in enumerate(t["records"]) if r["deleted"]]
        for kind, want_list, got_parsed, got_raw in (("live", live, parsed.records, raw.records),
                                                     ("deleted", dead, parsed.deleted, raw.deleted)):
            check(len(got_parsed) == len(want_list),
                  f"{t['file']}: {len(got_parsed)} {kind} records, expected {len(want_list)}")
            for (index, want), rec, rawrec in zip(want_list, got_parsed, got_raw):
                for k, fdef in enumerate(t["fields"]):
                    where = f"{t['file']} record {index + 1} field {fdef['name']}"
                    value = rec[fdef["name"]]
                    stored = rawrec[fdef["name"]]
                    if fdef["type"] == "M":
                        # The pointer: 10 ASCII digits right-aligned, blanks when there is no memo.
                        empty = want["values"][k] == ""
                        pattern = rb" {10}" if empty else rb" *[1-9][0-9]*"
                        check(re.fullmatch(pattern, stored) is not None, f"{where}: memo pointer {stored!r}")
                    else:
                        check(stored == latin1(want["stored"][k]),
                              f"{where}: stored {stored!r}, expected {latin1(want['stored'][k])!r}")
                    compare_value(where, fdef["type"], want["values"][k], value)
    finish("dbfread")


# ---- our tables, exported by pgdbf ------------------------------------------------------------

def copy_unescape(cell):
    """A PostgreSQL COPY text cell as bytes: backslash escapes undone (\\N stays as it is)."""
    if cell == b"\\N":
        return cell
    out = bytearray()
    i = 0
    while i < len(cell):
        c = cell[i]
        if c == 0x5C and i + 1 < len(cell):
            e = chr(cell[i + 1])
            out += {"n": b"\n", "r": b"\r", "t": b"\t", "b": b"\b", "f": b"\f", "v": b"\v"}.get(e, e.encode("latin-1"))
            i += 2
        else:
            out.append(c)
            i += 1
    return bytes(out)


def run_pgdbf(pgdbf, directory):
    for t in load_expected(directory):
        cmd = [pgdbf]
        if t["memo_file"]:
            cmd += ["-m", os.path.join(directory, t["memo_file"])]
        cmd.append(os.path.join(directory, t["file"]))
        proc = subprocess.run(cmd, capture_output=True)
        if proc.returncode != 0:
            fail(f"{' '.join(cmd)} exited {proc.returncode}: {proc.stderr.decode('latin-1').strip()}")
            continue
        lines = proc.stdout.split(b"\n")
        try:
            start = next(i for i, l in enumerate(lines) if l.startswith(b"\\COPY "))
            end = lines.index(b"\\.", start)
        except (StopIteration, ValueError):
            fail(f"{t['file']}: pgdbf printed no COPY block")
            continue
        rows = lines[start + 1:end]
        live = [r for r in t["records"] if not r["deleted"]]
        check(len(rows) == len(live), f"{t['file']}: pgdbf exported {len(rows)} rows, expected {len(live)} live records")
        # The first field of every table is plain text or a number: compare it row by row.
        first = t["fields"][0]
        for row, want in zip(rows, live):
            cell = copy_unescape(row.split(b"\t")[0])
            value = want["values"][0]
            if first["type"] == "N":
                check(cell != b"\\N" and float(cell) == float(value), f"{t['file']}: pgdbf first column {cell!r} != {value}")
            else:
                check(cell == latin1(value), f"{t['file']}: pgdbf first column {cell!r} != {value!r}")
    finish("pgdbf")


# ---- tables written by python3-dbf, read by our engine ------------------------------------------

ALL_BYTES = bytes(range(256)) + b"\0\0" + bytes(range(255, -1, -1))

# (name, amount, qty, born, ok, notes, deleted); notes None = no memo
FOREIGN_ROWS = [
    ("Anna", 12.5, 3, datetime.date(1999, 12, 31), True, "memo text\r\nline 2", False),
    ("Negative", -0.125, -42, None, False, "", False),
    ("J\u00e9r\u00f4me", None, None, datetime.date(1, 1, 1), None, "x" * 300, False),
    ("Max", 999999.999, 99999, datetime.date(9999, 12, 31), True, "m" * 63, False),
    ("to delete", 1.0, 1, datetime.date(2024, 2, 29), False, "gone", True),
    ("", 0.0, 0, datetime.date(2000, 1, 1), False, None, False),
]


# python3-dbf's names for the table flavours it writes, and the version byte each gets:
# 0x83 with a .DBT memo, 0xF5 with an .FPT memo, 0x30 with an .FPT memo and 4-byte memo pointers.
FLAVOUR_VERSION = {"db3": "83", "fp": "F5", "vfp": "30"}


def write_foreign(dbf, directory, kind):
    """One table by python3-dbf; returns (path, rows with the memo bytes expected)."""
    path = os.path.join(directory, f"PY_{FLAVOUR_VERSION[kind]}.dbf")
    for ext in (".dbf", ".dbt", ".fpt"):
        p = path[:-4] + ext
        if os.path.exists(p):
            os.remove(p)
    # cp437 gives every byte a character, so a memo can carry all 256 values through a str;
    # a .DBT memo ends at its first 0x1A, so binary memos only go into the .FPT flavours.
    table = dbf.Table(path, "NAME C(20); AMOUNT N(10,3); QTY N(5,0); BORN D; OK L; NOTES M",
                      dbf_type=kind, codepage="cp437")
    table.open(dbf.READ_WRITE)
    rows = list(FOREIGN_ROWS)
    if kind != "db3":
        rows.append(("binary", 7.0, 7, None, True, ALL_BYTES.decode("cp437"), False))
    for name, amount, qty, born, ok, notes, deleted in rows:
        table.append((name, amount, qty, born, ok, notes if notes is not None else ""))
        if deleted:
            dbf.delete(table[-1])
    table.close()
    return path, rows


def run_foreign(interop_read, directory):
    dbf = need("dbf", "python3-dbf")
    os.makedirs(directory, exist_ok=True)
    written = [write_foreign(dbf, directory, kind) for kind in ("db3", "fp", "vfp")]
    proc = subprocess.run([interop_read] + [p for p, _ in written], capture_output=True)
    sys.stdout.write(proc.stderr.decode("latin-1"))
    check(proc.returncode == 0, f"interop_read exited {proc.returncode}")
    try:
        tables = json.loads(proc.stdout.decode("ascii"))["tables"]
    except ValueError as e:
        fail(f"interop_read printed no JSON: {e}")
        finish("python3-dbf -> our engine")
    for (path, rows), got in zip(written, tables):
        name = os.path.basename(path)
        if got is None:
            fail(f"{name}: our engine did not open it")
            continue
        want_fields = [("NAME", "C", 20, 0), ("AMOUNT", "N", 10, 3), ("QTY", "N", 5, 0), ("BORN", "D", 8, 0),
                       ("OK", "L", 1, 0), ("NOTES", "M", 4 if name == "PY_30.dbf" else 10, 0)]
        got_fields = [(f["name"], f["type"], f["len"], f["dec"]) for f in got["fields"]]
        check(got_fields == want_fields, f"{name}: fields {got_fields}")
        check(got["record_count"] == len(rows), f"{name}: {got['record_count']} records, expected {len(rows)}")
        check(len(got["records"]) == len(rows), f"{name}: walked {len(got['records'])} records, expected {len(rows)}")
        for recno, (row, rec) in enumerate(zip(rows, got["records"]), start=1):
            where = f"{name} record {recno}"
            nm, amount, qty, born, ok, notes, deleted = row
            v = rec["values"]
            check(rec["recno"] == recno, f"{where}: record number {rec['recno']}")
            check(rec["deleted"] == deleted, f"{where}: deleted {rec['deleted']}, expected {deleted}")
            check(latin1(v[0]["raw"]) == nm.encode("cp437").ljust(20, b" "), f"{where} NAME: {v[0]['raw']!r}")
            for k, want in ((1, amount), (2, qty)):
                raw = v[k]["raw"]
                if want is None:
                    check(raw.strip() == "", f"{where} field {k + 1}: {raw!r}, expected blank")
                else:
                    check(raw.strip() != "" and float(raw) == want and v[k]["number"] == want,
                          f"{where} field {k + 1}: stored {raw!r}, read {v[k]['number']}, expected {want}")
            check(v[3]["raw"] == (iso(born) if born else " " * 8), f"{where} BORN: {v[3]['raw']!r}, expected {born}")
            if ok is None:
                check(v[4]["raw"] in ("?", " ") and not v[4]["true"], f"{where} OK: {v[4]}, expected unset")
            else:
                check(v[4]["true"] == ok and v[4]["raw"] == ("T" if ok else "F"), f"{where} OK: {v[4]}, expected {ok}")
            memo = bytes.fromhex(v[5]["memo"])
            want_memo = (notes or "").encode("cp437")
            check(memo == want_memo, f"{where} NOTES: {len(memo)} bytes {memo[:40]!r}..., expected {len(want_memo)} "
                                     f"bytes {want_memo[:40]!r}...")
    finish("python3-dbf -> our engine")


# ---- tables written by other programs: dbfread and our engine must agree ------------------------

def run_fixtures(interop_read, directory):
    dbfread = need("dbfread", "python3-dbfread")
    if not os.path.isdir(directory):
        print(f"interop_check: no fixtures at {directory}; skipped")
        sys.exit(77)
    tables = sorted(f for f in os.listdir(directory) if f.lower().endswith(".dbf"))
    check(tables, f"{directory} holds no tables")
    for name in tables:
        path = os.path.join(directory, name)
        proc = subprocess.run([interop_read, path], capture_output=True)
        if proc.returncode != 0:
            fail(f"{name}: interop_read exited {proc.returncode}: {proc.stderr.decode('latin-1').strip()}")
            continue
        ours = json.loads(proc.stdout.decode("ascii"))["tables"][0]
        # Records as lists, by position: a table may hold two fields of one name (dbase_03 does).
        as_list = lambda items: [v for _, v in items]
        raw = dbfread.DBF(path, raw=True, load=True, recfactory=as_list)
        # latin-1 turns memo text back into its exact bytes; binary memo types come as bytes.
        parsed = dbfread.DBF(path, encoding="latin-1", load=True, recfactory=as_list)
        their_fields = [(f.name.upper(), f.type, f.length) for f in raw.fields]
        our_fields = [(f["name"], f["type"], f["len"]) for f in ours["fields"]]
        check(our_fields == their_fields, f"{name}: fields {our_fields} != dbfread {their_fields}")
        total = len(raw.records) + len(raw.deleted)
        check(ours["record_count"] == total, f"{name}: {ours['record_count']} records, dbfread {total}")
        our_live = [r for r in ours["records"] if not r["deleted"]]
        our_dead = [r for r in ours["records"] if r["deleted"]]
        for kind, mine, theirs_raw, theirs in (("live", our_live, raw.records, parsed.records),
                                              ("deleted", our_dead, raw.deleted, parsed.deleted)):
            check(len(mine) == len(theirs_raw), f"{name}: {len(mine)} {kind} records, dbfread {len(theirs_raw)}")
            for rec, rr, pr in zip(mine, theirs_raw, theirs):
                for k, f in enumerate(raw.fields):
                    where = f"{name} record {rec['recno']} field {f.name}"
                    got = rec["values"][k]
                    if "memo" in got:
                        value = pr[k]
                        want = b"" if value is None else (latin1(value) if isinstance(value, str) else bytes(value))
                        mine_bytes = bytes.fromhex(got["memo"])
                        check(mine_bytes == want, f"{where}: memo of {len(mine_bytes)} bytes {mine_bytes[:30]!r}, "
                                                  f"dbfread {len(want)} bytes {want[:30]!r}")
                    else:
                        check(latin1(got["raw"]) == rr[k], f"{where}: stored {latin1(got['raw'])!r}, dbfread {rr[k]!r}")
    finish("foreign fixtures: our engine and dbfread")


def main():
    if len(sys.argv) == 3 and sys.argv[1] == "dbfread":
        run_dbfread(sys.argv[2])
    elif len(sys.argv) == 4 and sys.argv[1] == "pgdbf":
        run_pgdbf(sys.argv[2], sys.argv[3])
    elif len(sys.argv) == 4 and sys.argv[1] == "foreign":
        run_foreign(sys.argv[2], sys.argv[3])
    elif len(sys.argv) == 4 and sys.argv[1] == "fixtures":
        run_fixtures(sys.argv[2], sys.argv[3])
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    main()
