#!/usr/bin/env python3
"""Writes the seed corpus of fuzz_dbf into fuzz/corpus/dbf/ (or the directory given).

Each input is: 4 bytes little-endian = length of the table part, the table (.DBF) bytes, then the
memo (.FPT or .DBT) bytes. Tables are built here byte by byte from the format notes, not with our
engine, so the seeds do not inherit its habits: two good tables (no memo; memo with a memo that
spans blocks), one of each other flavour the engine reads, and damaged variants (cut short,
descriptors running past the header, a record length that disagrees with the fields, memo blocks
and lengths past the end, nonsense widths and types).

Only the standard library is used; any python3 runs it. The files are committed; run this again
only to change the seeds (a crash kept in the corpus directory is not touched by it).
"""
import os
import struct
import sys


def descriptor(name, ftype, length, dec=0, offset=0, flags=0):
    raw = name.encode("ascii")[:11].ljust(11, b"\0")
    return raw + ftype.encode("ascii") + struct.pack("<I", offset) + bytes([length & 0xFF, dec, flags]) + bytes(13)


def table(version, fields, records, *, count=None, header_len=None, record_len=None,
          backlink=False, eof=True, terminator=b"\x0d"):
    """fields: (name, type, len, dec); records: bytes of each record without the deletion byte,
    prefixed with b' ' or b'*' by the caller."""
    descs = b""
    off = 1
    for name, ftype, length, dec in fields:
        descs += descriptor(name, ftype, length, dec, off)
        off += length
    body = descs + terminator + (bytes(263) if backlink else b"")
    hlen = 32 + len(body) if header_len is None else header_len
    rlen = off if record_len is None else record_len
    n = len(records) if count is None else count
    head = bytes([version, 124, 6, 11]) + struct.pack("<IHH", n, hlen, rlen) + bytes(16) + bytes([0, 3, 0, 0])
    out = head + body + b"".join(records)
    return out + (b"\x1a" if eof else b"")


def fpt(memos, block_size=64, next_free=None, header_size=512):
    """memos: list of (block, type, data, stored_len or None). Returns the file bytes."""
    unit = block_size or 1  # a stored 0 is taken as blocks of one byte
    size = header_size
    for block, _t, data, _l in memos:
        size = max(size, block * unit + 8 + len(data))
    size = (size + unit - 1) // unit * unit
    buf = bytearray(size)
    nf = next_free if next_free is not None else size // unit
    buf[0:4] = struct.pack(">I", nf)
    buf[6:8] = struct.pack(">H", block_size)
    for block, mtype, data, stored in memos:
        at = block * unit
        buf[at:at + 8] = struct.pack(">II", mtype, len(data) if stored is None else stored)
        buf[at + 8:at + 8 + len(data)] = data
    return bytes(buf)


def fuzz_input(dbf, memo=b""):
    return struct.pack("<I", len(dbf)) + dbf + memo


def text(value, width):
    return value.encode("latin-1")[:width].ljust(width, b" ")


def num(value, width):
    return value.encode("ascii").rjust(width, b" ")


def main():
    out_dir = sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(os.path.abspath(__file__)), "corpus", "dbf")
    os.makedirs(out_dir, exist_ok=True)
    seeds = {}

    # ---- a good table without memo: C, N with decimals, D, L; a deleted record; blanks
    plain_fields = [("NAME", "C", 12, 0), ("AMOUNT", "N", 9, 2), ("BORN", "D", 8, 0), ("OK", "L", 1, 0)]
    plain_recs = [
        b" " + text("Anna", 12) + num("1234.50", 9) + b"19700101" + b"T",
        b"*" + text("Deleted", 12) + num("-0.01", 9) + b"20001231" + b"F",
        b" " + text("", 12) + b" " * 9 + b" " * 8 + b" ",
        b" " + text("J\xe9r\xf4me", 12) + num("-99999.99", 9) + b"99991231" + b"?",
    ]
    plain = table(0x03, plain_fields, plain_recs)
    seeds["valid_plain"] = fuzz_input(plain)

    # ---- a good table with memo (0xF5 + FPT, 64-byte blocks): short, spanning, empty, binary
    memo_fields = [("ID", "N", 4, 0), ("NOTE", "M", 10, 0), ("TAG", "C", 3, 0)]
    long_memo = bytes(range(256)) * 2 + b"end"
    memos = [(8, 1, b"hello memo", None), (9, 1, long_memo, None), (19, 1, b"\0\x1a\0", None)]
    memo_recs = [
        b" " + num("1", 4) + num("8", 10) + text("abc", 3),
        b" " + num("2", 4) + num("9", 10) + text("", 3),
        b" " + num("3", 4) + b" " * 10 + text("xyz", 3),
        b"*" + num("4", 4) + num("19", 10) + text("del", 3),
    ]
    good_fpt = fpt(memos)
    memo_tbl = table(0xF5, memo_fields, memo_recs)
    seeds["valid_memo"] = fuzz_input(memo_tbl, good_fpt)

    # ---- other flavours the engine reads
    v30_fields = [("I", "I", 4, 0), ("B", "B", 8, 2), ("Y", "Y", 8, 4), ("T", "T", 8, 0), ("M", "M", 4, 0),
                  ("C", "C", 5, 0)]
    v30_rec = (b" " + struct.pack("<i", -7) + struct.pack("<d", 3.25) + struct.pack("<q", 125000) +
               struct.pack("<ii", 2458851, 11105000) + struct.pack("<I", 8) + text("v30", 5))
    v30_rec2 = b" " + struct.pack("<i", 2**31 - 1) + struct.pack("<d", float("nan")) + bytes(8) + bytes(8) + \
        struct.pack("<I", 0) + text("", 5)
    seeds["valid_v30_binary_fields"] = fuzz_input(table(0x30, v30_fields, [v30_rec, v30_rec2], backlink=True),
                                    fpt([(8, 1, b"v30 memo", None)]))
    dbt = bytearray(1536)
    dbt[0:4] = struct.pack("<I", 3)
    dbt[512:512 + 12] = b"dbt text\x1a\x1a.."
    dbt[1024:1024 + 5] = b"no end mark"[:5]
    dbt_fields = [("TXT", "M", 10, 0), ("N", "N", 3, 0)]
    seeds["valid_dbt"] = fuzz_input(table(0x83, dbt_fields, [b" " + num("1", 10) + num("5", 3),
                                                            b" " + num("2", 10) + num("-1", 3)]), bytes(dbt))
    # A character field of 300 bytes: the decimals byte is the high byte of the width.
    wide_descs = descriptor("WIDE", "C", 300 & 0xFF, 300 >> 8, 1) + descriptor("X", "C", 1, 0, 301) + b"\x0d"
    wide_head = bytes([0x03, 124, 1, 1]) + struct.pack("<IHH", 1, 32 + len(wide_descs), 302) + bytes(20)
    seeds["wide_char_field"] = fuzz_input(wide_head + wide_descs + b" " + b"w" * 300 + b"x" + b"\x1a")
    seeds["no_eof_mark"] = fuzz_input(table(0x03, plain_fields, plain_recs, eof=False))
    seeds["empty_table"] = fuzz_input(table(0x03, plain_fields, []))
    seeds["two_byte_terminator"] = fuzz_input(table(0x03, plain_fields, plain_recs, terminator=b"\x0d\x00"))
    odd_numbers = [b" " + text("n", 12) + num(v, 9)[:9] + b"20240230" + b"x" for v in
                   ("1e999", "-", "..", "+-1", "9" * 9, "1,5", "  -0", "1e-400")]
    seeds["odd_values"] = fuzz_input(table(0x03, plain_fields, odd_numbers))

    # ---- damaged tables
    seeds["cut_in_header"] = fuzz_input(plain[:20])
    seeds["cut_in_descriptors"] = fuzz_input(plain[:32 + 40])
    seeds["cut_in_records"] = fuzz_input(plain[:len(plain) - 40])
    seeds["empty_input"] = b""
    seeds["only_length"] = struct.pack("<I", 0)
    seeds["count_past_end"] = fuzz_input(table(0x03, plain_fields, plain_recs, count=1000))
    seeds["count_huge"] = fuzz_input(table(0x03, plain_fields, plain_recs, count=0xFFFFFFFF))
    # Header length covers one descriptor and a half; the second runs past it.
    seeds["descriptor_overruns_header"] = fuzz_input(table(0x03, plain_fields, plain_recs, header_len=32 + 48))
    seeds["no_terminator"] = fuzz_input(table(0x03, plain_fields, plain_recs, terminator=b""))
    seeds["header_len_past_end"] = fuzz_input(table(0x03, plain_fields, plain_recs, header_len=60000))
    seeds["header_len_tiny"] = fuzz_input(table(0x03, plain_fields, plain_recs, header_len=33))
    seeds["record_len_longer"] = fuzz_input(table(0x03, plain_fields, plain_recs, record_len=40))
    seeds["record_len_shorter"] = fuzz_input(table(0x03, plain_fields, plain_recs, record_len=20))
    seeds["record_len_zero"] = fuzz_input(table(0x03, plain_fields, plain_recs, record_len=0))
    seeds["width_zero"] = fuzz_input(table(0x03, [("A", "C", 0, 0), ("B", "N", 5, 0)], [b" " + b"    1"]))
    seeds["unknown_type"] = fuzz_input(table(0x03, [("A", "Z", 4, 0)], [b" abcd"]))
    seeds["unknown_version"] = fuzz_input(b"\x99" + plain[1:])
    seeds["date_width_wrong"] = fuzz_input(table(0x03, [("D", "D", 3, 0)], [b" 202"]))
    seeds["name_without_nul"] = fuzz_input(table(0x03, [("ABCDEFGHIJK", "C", 2, 0)], [b" ok"]))
    seeds["number_too_wide"] = fuzz_input(table(0x03, [("N", "N", 255, 200)], [b" " + b"1" * 255]))

    # ---- damaged memo files
    def memo_case(pointers, memo_file, version=0xF5):
        recs = [b" " + num(str(i + 1), 4) + p + text("t", 3) for i, p in enumerate(pointers)]
        return fuzz_input(table(version, memo_fields, recs), memo_file)

    seeds["memo_block_past_end"] = memo_case([num("9999", 10)], good_fpt)
    seeds["memo_block_max"] = memo_case([num("4294967295", 10)], good_fpt)
    seeds["memo_negative_pointer"] = memo_case([num("-8", 10)], good_fpt)
    seeds["memo_pointer_garbage"] = memo_case([b"12ab  34xx"], good_fpt)
    seeds["memo_in_header"] = memo_case([num("1", 10)], good_fpt)
    seeds["memo_length_past_end"] = memo_case([num("8", 10)], fpt([(8, 1, b"short", 0x7FFFFFF0)]))
    seeds["memo_length_max"] = memo_case([num("8", 10)], fpt([(8, 1, b"short", 0xFFFFFFFF)]))
    seeds["memo_head_cut"] = memo_case([num("8", 10)], good_fpt[:8 * 64 + 5])
    seeds["memo_file_tiny"] = memo_case([num("8", 10)], b"\0\0\0\x08")
    seeds["memo_block_size_zero"] = memo_case([num("600", 10)], fpt([(600, 1, b"one-byte blocks", None)], block_size=0))
    seeds["memo_block_size_one"] = memo_case([num("520", 10)], fpt([(520, 1, b"x" * 20, None)], block_size=1))
    seeds["memo_block_size_big"] = memo_case([num("1", 10)], fpt([(1, 1, b"big", None)], block_size=4096)[:4096 + 64])
    seeds["memo_table_without_memo"] = fuzz_input(memo_tbl)
    seeds["memo_file_for_plain_table"] = fuzz_input(plain, good_fpt)
    seeds["memo_dbt_no_end"] = fuzz_input(table(0x83, dbt_fields, [b" " + num("2", 10) + num("1", 3)]), bytes(dbt[:1030]))
    seeds["memo_dbt_past_end"] = fuzz_input(table(0x83, dbt_fields, [b" " + num("99", 10) + num("1", 3)]), bytes(dbt))
    seeds["memo_binary_pointer_past_end"] = fuzz_input(
        table(0x30, [("M", "M", 4, 0)], [b" " + struct.pack("<I", 0x10000000)], backlink=True), good_fpt)

    # ---- inputs that found engine faults while fuzzing (kept as regressions)
    # f4long of a double field holding NaN converted NaN to an integer (undefined behaviour).
    seeds["found_double_nan_to_long"] = fuzz_input(
        table(0x30, [("B", "B", 8, 2)], [b" " + struct.pack("<d", float("nan"))], backlink=True))

    for name, data in sorted(seeds.items()):
        assert len(data) < 40000, name
        with open(os.path.join(out_dir, name), "wb") as f:
            f.write(data)
    print(f"{len(seeds)} seeds in {out_dir}")


if __name__ == "__main__":
    main()
