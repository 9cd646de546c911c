// Writes the seed corpus of fuzz_cdx into the directory given (normally fuzz/corpus/cdx/):
//
//   make_cdx_corpus DIR
//
// The good seeds are indexes our engine writes with i4create on the fixed table of
// cdx_fuzz_table.h: several tags of every kind in one file (plain, UPPER(NAME)+ID, numeric,
// descending, unique both ways, filtered with .NOT. DELETED()), single tags, wide keys whose trees
// have three and four levels, an empty tag, and an index of a larger table of the same fields (two
// and three levels; against the fixed table most of its record numbers lie past the end, as in an
// index that outlived a shorter table). The damaged seeds are those files with
// one thing broken each: cut short; the directory's key length, entries and widths; a tag header's
// key length, expression, filter and flags; root pointers; leaf counts, widths, bit counts, key
// text and record numbers; interior counts, child pointers (aside, past the end, into a cycle, all
// to one page), sibling chains that run in circles, and free lists that loop or point at live
// pages.
//
// The program finds its way through the files with a small reader of its own (below), so a damage
// lands where it is meant to whatever page the engine chose. The files are committed; run this
// again only to change the seeds (crashes kept in the corpus directory are not touched by it).
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "engine/d4all.h"
#include "fuzz/cdx_fuzz_table.h"

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMaxSeed = 50 * 1024;
constexpr std::uint32_t kPage = 512;

[[noreturn]] void Fail(const std::string& what) {
  std::fprintf(stderr, "make_cdx_corpus: %s\n", what.c_str());
  std::exit(2);
}

// ---- A small reader and writer of the index layout (engine/cdx_format.h) ----------------------

using Bytes = std::string;

std::uint32_t Le16(const Bytes& b, std::size_t at) {
  return static_cast<unsigned char>(b.at(at)) | (static_cast<unsigned char>(b.at(at + 1)) << 8);
}
std::uint32_t Le32(const Bytes& b, std::size_t at) { return Le16(b, at) | (Le16(b, at + 2) << 16); }
std::uint32_t Be32(const Bytes& b, std::size_t at) {
  std::uint32_t v = 0;
  for (int i = 0; i < 4; ++i) v = (v << 8) | static_cast<unsigned char>(b.at(at + i));
  return v;
}
void PutLe16(Bytes& b, std::size_t at, std::uint32_t v) {
  b.at(at) = static_cast<char>(v & 0xFF);
  b.at(at + 1) = static_cast<char>((v >> 8) & 0xFF);
}
void PutLe32(Bytes& b, std::size_t at, std::uint32_t v) {
  PutLe16(b, at, v & 0xFFFF);
  PutLe16(b, at + 2, v >> 16);
}
void PutBe32(Bytes& b, std::size_t at, std::uint32_t v) {
  for (int i = 0; i < 4; ++i) b.at(at + i) = static_cast<char>((v >> (24 - 8 * i)) & 0xFF);
}

// Page header fields.
constexpr std::size_t kAttr = 0, kCount = 2, kLeft = 4, kRight = 8;
constexpr std::size_t kRecBits = 20, kDupBits = 21, kTrailBits = 22, kEntryBytes = 23, kLeafHead = 24;
constexpr std::uint32_t kNone = 0xFFFFFFFF;

bool IsLeaf(const Bytes& b, std::uint32_t page) { return Le16(b, page + kAttr) & 2; }
unsigned Count(const Bytes& b, std::uint32_t page) { return Le16(b, page + kCount); }

// Leaf entry i: record number, duplicate count, trailing count, from the page's own widths.
struct LeafEntry {
  std::uint64_t recno, dup, trail;
};
LeafEntry GetLeafEntry(const Bytes& b, std::uint32_t page, unsigned i) {
  const unsigned rn = static_cast<unsigned char>(b[page + kRecBits]);
  const unsigned dc = static_cast<unsigned char>(b[page + kDupBits]);
  const unsigned e = static_cast<unsigned char>(b[page + kEntryBytes]);
  std::uint64_t v = 0;
  for (unsigned k = 0; k < e; ++k) v |= std::uint64_t{static_cast<unsigned char>(b[page + kLeafHead + i * e + k])} << (8 * k);
  return LeafEntry{v & ((1ull << rn) - 1), (v >> rn) & ((1ull << dc) - 1), v >> (rn + dc)};
}
void SetLeafEntry(Bytes& b, std::uint32_t page, unsigned i, const LeafEntry& x) {
  const unsigned rn = static_cast<unsigned char>(b[page + kRecBits]);
  const unsigned dc = static_cast<unsigned char>(b[page + kDupBits]);
  const unsigned e = static_cast<unsigned char>(b[page + kEntryBytes]);
  const std::uint64_t v = x.recno | (x.dup << rn) | (x.trail << (rn + dc));
  for (unsigned k = 0; k < e; ++k) b[page + kLeafHead + i * e + k] = static_cast<char>((v >> (8 * k)) & 0xFF);
}

// The tags of a file: header offsets from the directory (whose root is one leaf in every file
// made here), in creation order.
std::vector<std::uint32_t> TagHeaders(const Bytes& b) {
  const std::uint32_t root = Le32(b, 0);
  if (!IsLeaf(b, root)) Fail("the directory root is no leaf");
  std::vector<std::uint32_t> out;
  for (unsigned i = 0; i < Count(b, root); ++i) out.push_back(static_cast<std::uint32_t>(GetLeafEntry(b, root, i).recno));
  std::sort(out.begin(), out.end());
  return out;
}
unsigned KeyLen(const Bytes& b, std::uint32_t header) { return Le16(b, header + 12); }
std::uint32_t Root(const Bytes& b, std::uint32_t header) { return Le32(b, header); }

// Child i of an interior page: where its offset is stored, and the offset.
std::size_t ChildAt(const Bytes& b, std::uint32_t header, std::uint32_t page, unsigned i) {
  return page + 12 + i * (KeyLen(b, header) + 8) + KeyLen(b, header) + 4;
}

struct PageRef {
  std::uint32_t offset;
  int level;  // 0: the root
  bool leaf;
};
// The pages of one tag's tree, breadth first.
std::vector<PageRef> TreePages(const Bytes& b, std::uint32_t header) {
  std::vector<PageRef> out{{Root(b, header), 0, IsLeaf(b, Root(b, header))}};
  for (std::size_t k = 0; k < out.size(); ++k) {
    if (out[k].leaf) continue;
    for (unsigned i = 0; i < Count(b, out[k].offset); ++i) {
      const std::uint32_t c = Be32(b, ChildAt(b, header, out[k].offset, i));
      out.push_back({c, out[k].level + 1, IsLeaf(b, c)});
    }
  }
  return out;
}
std::vector<PageRef> Leaves(const Bytes& b, std::uint32_t header) {
  std::vector<PageRef> out;
  for (const PageRef& p : TreePages(b, header))
    if (p.leaf) out.push_back(p);
  return out;
}
std::vector<PageRef> Interiors(const Bytes& b, std::uint32_t header) {
  std::vector<PageRef> out;
  for (const PageRef& p : TreePages(b, header))
    if (!p.leaf) out.push_back(p);
  return out;
}
int Depth(const Bytes& b, std::uint32_t header) {
  int d = 0;
  for (const PageRef& p : TreePages(b, header)) d = std::max(d, p.level + 1);
  return d;
}

// Replaces the expression pool of a tag header: key expression, then filter.
void SetPool(Bytes& b, std::uint32_t header, const std::string& expr, const std::string& filter) {
  std::fill(b.begin() + header + 512, b.begin() + header + 1024, '\0');
  std::copy(expr.begin(), expr.end(), b.begin() + header + 512);
  std::copy(filter.begin(), filter.end(), b.begin() + header + 512 + expr.size() + 1);
  PutLe16(b, header + 508, 0);
  PutLe16(b, header + 510, static_cast<std::uint32_t>(expr.size() + 1));
  PutLe16(b, header + 504, static_cast<std::uint32_t>(expr.size() + 1));
  PutLe16(b, header + 506, static_cast<std::uint32_t>(filter.size() + 1));
}

// One more page at the end of the file (zeros), returning its offset.
std::uint32_t AddPage(Bytes& b) {
  const std::uint32_t at = static_cast<std::uint32_t>((b.size() + kPage - 1) / kPage * kPage);
  b.resize(at + kPage, '\0');
  return at;
}

// ---- Making the good indexes ---------------------------------------------------------------------

class Scratch {
 public:
  Scratch() {
    std::random_device rd;
    for (int tries = 0; tries < 100 && path_.empty(); ++tries) {
      fs::path p = fs::temp_directory_path() / ("kvd-cdx-corpus-" + std::to_string(rd()));
      std::error_code ec;
      if (fs::create_directory(p, ec)) path_ = p;
    }
    if (path_.empty()) Fail("cannot make a temporary directory");
  }
  ~Scratch() {
    std::error_code ec;
    fs::remove_all(path_, ec);
  }
  std::string operator/(const char* name) const { return (path_ / name).string(); }

 private:
  fs::path path_;
};

Bytes ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  Bytes b((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (b.empty()) Fail("cannot read " + path);
  return b;
}

// Builds an index with `tags` on the open table and returns its bytes.
Bytes BuildIndex(DATA4St* d, const std::string& path, const std::vector<TAG4INFO>& tags) {
  std::vector<TAG4INFO> rows = tags;
  rows.push_back(TAG4INFO{nullptr, nullptr, nullptr, 0, 0});
  INDEX4St* ix = i4create(d, path.c_str(), rows.data());
  if (ix == nullptr) Fail("i4create " + path + ": " + error4lastDetail(d4code(d)));
  i4close(ix);
  return ReadFile(path);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: make_cdx_corpus DIR\n");
    return 2;
  }
  const std::string out_dir = argv[1];
  std::error_code ec;
  fs::create_directories(out_dir, ec);
  Scratch scratch;
  CODE4 code;
  code4initLow(&code, nullptr, 0, sizeof(CODE4), 0);
  code.safety = 0;
  code.autoOpen = 0;

  DATA4St* t = kvd::fuzz::MakeCdxTable(&code, scratch / "T.DBF", kvd::fuzz::kCdxTableRecords);
  if (t == nullptr) Fail(std::string("the fixed table: ") + error4lastDetail(&code));
  DATA4St* big = kvd::fuzz::MakeCdxTable(&code, scratch / "BIG.DBF", 200);
  if (big == nullptr) Fail(std::string("the larger table: ") + error4lastDetail(&code));

  // Tag definitions: name, expression, filter, unique, descending.
  const std::vector<TAG4INFO> all_kinds = {
      {"ID", "ID", nullptr, 0, 0},
      {"NAMEID", "UPPER(NAME)+ID", nullptr, 0, 0},
      {"VAL", "VALUE", nullptr, 0, 0},
      {"DAYDESC", "DAY", nullptr, 0, 1},
      {"IDUNIQ", "ID", nullptr, e4unique, 0},
      {"NAMEONCE", "NAME", nullptr, r4uniqueContinue, 0},
      {"LIVE", "ID", ".NOT. DELETED()", 0, 0},
      {"DAYSTR", "DTOS(DAY)+STR(VALUE,9,3)", ".NOT.DELETED() .AND. VALUE > -40", 0, 1},
  };
  std::map<std::string, Bytes> seeds;
  seeds["valid_all_kinds"] = BuildIndex(t, scratch / "ALL.CDX", all_kinds);
  // The base of most damaged seeds: fewer tags keep each file near 8 KB.
  const Bytes kinds = BuildIndex(t, scratch / "KINDS.CDX",
                                 {{"ID", "ID", nullptr, 0, 0},
                                  {"NAMEID", "UPPER(NAME)+ID", nullptr, 0, 0},
                                  {"VAL", "VALUE", nullptr, 0, 0},
                                  {"LIVE", "ID", ".NOT. DELETED()", e4unique, 0}});
  seeds["valid_four_kinds"] = kinds;
  seeds["valid_one_char_tag"] = BuildIndex(t, scratch / "A.CDX", {{"ID", "ID", nullptr, 0, 0}});
  seeds["valid_one_numeric_tag"] = BuildIndex(t, scratch / "B.CDX", {{"VAL", "VALUE", nullptr, 0, 0}});
  seeds["valid_one_date_descending"] = BuildIndex(t, scratch / "C.CDX", {{"DAYDESC", "DAY", nullptr, 0, 1}});
  seeds["valid_filter_unique"] = BuildIndex(
      t, scratch / "D.CDX",
      {{"LIVE", "UPPER(NAME)", ".NOT. DELETED()", r4uniqueContinue, 0}, {"LIVEDESC", "ID", ".NOT. DELETED()", 0, 1}});
  seeds["valid_empty_tag"] = BuildIndex(t, scratch / "E.CDX", {{"NONE", "ID", ".F.", 0, 0}, {"ID", "ID", nullptr, 0, 0}});
  // 120-byte keys: interior pages hold 3 entries and leaves about 4, so 30 records make three
  // levels; 240-byte keys hold 2 per interior page, and the tree grows four levels.
  const Bytes wide =
      BuildIndex(t, scratch / "W.CDX", {{"WIDE", "NAME+ID+NAME+ID+NAME+ID+NAME+ID", nullptr, 0, 0}});
  seeds["valid_wide_keys_three_levels"] = wide;
  std::string widest_expr = "NAME";
  for (int i = 1; i < 12; ++i) widest_expr += "+NAME";
  seeds["valid_widest_keys"] =
      BuildIndex(t, scratch / "X.CDX", {{"WIDEST", widest_expr.c_str(), nullptr, 0, 1}});
  // The larger table's index, as it stands when its table was cut back to 30 records.
  // Its third tag's 70-byte keys make three levels of 200 records.
  const Bytes larger = BuildIndex(big, scratch / "L.CDX",
                                  {{"ID", "ID", nullptr, 0, 0},
                                   {"NAMEID", "UPPER(NAME)+ID", nullptr, 0, 1},
                                   {"DEEP", "ID+NAME+NAME+NAME", nullptr, 0, 0}});
  seeds["valid_larger_table_outlived"] = larger;
  d4close(big);
  d4close(t);
  code4initUndo(&code);

  {
    const std::vector<std::uint32_t> h = TagHeaders(larger);
    if (Depth(larger, h[1]) < 2) Fail("the larger index should have two levels in its second tag");
    if (Depth(larger, h[2]) < 3) Fail("the larger index should have three levels in its third tag");
    if (Depth(wide, TagHeaders(wide)[0]) < 3) Fail("the wide-key index should have three levels");
  }

  // ---- damage ---------------------------------------------------------------------------------
  auto damage = [&](const std::string& name, const Bytes& base, auto&& change) {
    Bytes b = base;
    change(b);
    seeds[name] = std::move(b);
  };
  const std::vector<std::uint32_t> kh = TagHeaders(kinds);  // creation order: ID, NAMEID, VAL, LIVE
  const std::uint32_t dir_root = Le32(kinds, 0);
  const std::vector<std::uint32_t> wh = TagHeaders(wide);
  const std::vector<std::uint32_t> lh = TagHeaders(larger);

  // Whole files.
  seeds["empty_file"] = "";
  seeds["one_byte"] = std::string(1, '\0');
  seeds["zeros_header_and_page"] = std::string(1536, '\0');
  seeds["zeros_4k"] = std::string(4096, '\0');
  seeds["header_only"] = kinds.substr(0, 1024);
  for (std::size_t cut : {std::size_t{1023}, std::size_t{1535}, std::size_t{2000}, std::size_t{3100}})
    seeds["cut_at_" + std::to_string(cut)] = kinds.substr(0, cut);
  seeds["cut_half"] = kinds.substr(0, kinds.size() / 2);
  seeds["cut_last_page_short"] = kinds.substr(0, kinds.size() - 300);
  seeds["cut_one_byte_short"] = kinds.substr(0, kinds.size() - 1);
  seeds["cut_wide_half"] = wide.substr(0, wide.size() / 2);
  seeds["cut_all_kinds_half"] = seeds["valid_all_kinds"].substr(0, seeds["valid_all_kinds"].size() / 2);
  seeds["cut_larger_two_thirds"] = larger.substr(0, larger.size() * 2 / 3);
  damage("counter_at_max", kinds, [&](Bytes& b) { PutBe32(b, 8, 0xFFFFFFFF); });

  // The directory.
  damage("dir_key_length_9", kinds, [&](Bytes& b) { PutLe16(b, 12, 9); });
  damage("dir_root_zero", kinds, [&](Bytes& b) { PutLe32(b, 0, 0); });
  damage("dir_root_past_end", kinds, [&](Bytes& b) { PutLe32(b, 0, static_cast<std::uint32_t>(b.size() + 4096)); });
  damage("dir_entry_unaligned", kinds, [&](Bytes& b) {
    LeafEntry e = GetLeafEntry(b, dir_root, 0);
    e.recno += 3;
    SetLeafEntry(b, dir_root, 0, e);
  });
  damage("dir_entry_past_end", kinds, [&](Bytes& b) {
    LeafEntry e = GetLeafEntry(b, dir_root, 1);
    e.recno = (b.size() / kPage + 8) * kPage;
    SetLeafEntry(b, dir_root, 1, e);
  });
  damage("dir_entry_at_dir_root", kinds, [&](Bytes& b) {
    LeafEntry e = GetLeafEntry(b, dir_root, 2);
    e.recno = dir_root;
    SetLeafEntry(b, dir_root, 2, e);
  });
  damage("dir_two_tags_one_header", kinds, [&](Bytes& b) { SetLeafEntry(b, dir_root, 1, GetLeafEntry(b, dir_root, 0)); });
  damage("dir_count_max", kinds, [&](Bytes& b) { PutLe16(b, dir_root + kCount, 0xFFFF); });
  damage("dir_count_plus_one", kinds, [&](Bytes& b) { PutLe16(b, dir_root + kCount, Count(b, dir_root) + 1); });
  damage("dir_count_zero", kinds, [&](Bytes& b) { PutLe16(b, dir_root + kCount, 0); });
  damage("dir_entry_bytes_zero", kinds, [&](Bytes& b) { b[dir_root + kEntryBytes] = 0; });
  damage("dir_root_marked_interior", kinds, [&](Bytes& b) { PutLe16(b, dir_root + kAttr, 1); });
  damage("dir_names_garbled", kinds, [&](Bytes& b) {
    for (std::size_t i = dir_root + 400; i < dir_root + kPage; ++i) b[i] = static_cast<char>(i * 7);
  });

  // Tag headers (the second tag of all_kinds is UPPER(NAME)+ID, 30 bytes).
  damage("hdr_key_length_0", kinds, [&](Bytes& b) { PutLe16(b, kh[1] + 12, 0); });
  damage("hdr_key_length_241", kinds, [&](Bytes& b) { PutLe16(b, kh[1] + 12, 241); });
  damage("hdr_key_length_plus_one", kinds, [&](Bytes& b) { PutLe16(b, kh[1] + 12, KeyLen(b, kh[1]) + 1); });
  damage("hdr_expr_length_past_pool", kinds, [&](Bytes& b) { PutLe16(b, kh[1] + 510, 600); });
  damage("hdr_expr_length_1", kinds, [&](Bytes& b) { PutLe16(b, kh[1] + 510, 1); });
  damage("hdr_expr_position_end", kinds, [&](Bytes& b) { PutLe16(b, kh[1] + 508, 510); });
  damage("hdr_expr_unterminated", kinds, [&](Bytes& b) {
    std::fill(b.begin() + kh[1] + 512, b.begin() + kh[1] + 1024, 'N');
  });
  damage("hdr_expr_syntax_error", kinds, [&](Bytes& b) { SetPool(b, kh[1], "UPPER(NAME+ID", ""); });
  damage("hdr_expr_unknown_field", kinds, [&](Bytes& b) { SetPool(b, kh[0], "NOSUCH", ""); });
  damage("hdr_expr_other_type", kinds, [&](Bytes& b) { SetPool(b, kh[0], "VALUE", ""); });
  // Same key length as the tag's, other values: opens, and its keys disagree with the records.
  damage("hdr_expr_same_length_other_keys", kinds, [&](Bytes& b) { SetPool(b, kh[0], "LEFT(NAME,10)", ""); });
  damage("hdr_expr_recno_key", kinds, [&](Bytes& b) { SetPool(b, kh[2], "RECNO()", ""); });
  damage("hdr_filter_flag_without_filter", kinds, [&](Bytes& b) { b[kh[0] + 14] = static_cast<char>(b[kh[0] + 14] | 0x08); });
  damage("hdr_filter_not_a_condition", kinds, [&](Bytes& b) {
    SetPool(b, kh[3], "ID", "NAME");
    b[kh[3] + 14] = static_cast<char>(b[kh[3] + 14] | 0x08);
  });
  damage("hdr_filter_syntax_error", kinds, [&](Bytes& b) { SetPool(b, kh[3], "ID", ".NOT. (DELETED()"); });
  damage("hdr_filter_past_pool", kinds, [&](Bytes& b) { PutLe16(b, kh[3] + 506, 700); });
  damage("hdr_filter_changed", kinds, [&](Bytes& b) { SetPool(b, kh[3], "ID", "DELETED()"); });
  damage("hdr_unique_flag_on_duplicates", kinds, [&](Bytes& b) { b[kh[2] + 14] = static_cast<char>(b[kh[2] + 14] | 0x01); });
  damage("hdr_unique_flag_off", kinds, [&](Bytes& b) { b[kh[3] + 14] = static_cast<char>(b[kh[3] + 14] & ~0x01); });
  damage("hdr_descending_flipped", kinds, [&](Bytes& b) {
    for (std::uint32_t h : kh) PutLe16(b, h + 502, Le16(b, h + 502) ? 0 : 1);
  });

  // Root pointers.
  damage("root_zero", kinds, [&](Bytes& b) { PutLe32(b, kh[0], 0); });
  damage("root_unaligned", kinds, [&](Bytes& b) { PutLe32(b, kh[0], Root(b, kh[0]) + 17); });
  damage("root_past_end", kinds, [&](Bytes& b) { PutLe32(b, kh[0], static_cast<std::uint32_t>(b.size() + kPage)); });
  damage("root_max", kinds, [&](Bytes& b) { PutLe32(b, kh[0], 0xFFFFFE00); });
  damage("root_at_own_header", kinds, [&](Bytes& b) { PutLe32(b, kh[0], kh[0]); });
  damage("root_at_dir_root", kinds, [&](Bytes& b) { PutLe32(b, kh[0], dir_root); });
  damage("root_at_other_tag_root", kinds, [&](Bytes& b) { PutLe32(b, kh[0], Root(b, kh[2])); });
  damage("root_shared_by_two_tags_of_one_length", kinds, [&](Bytes& b) { PutLe32(b, kh[3], Root(b, kh[0])); });

  // Leaves: the first tag's root leaf, and a leaf at the bottom of the wide-key tree.
  const std::uint32_t kleaf = Root(kinds, kh[0]);
  if (!IsLeaf(kinds, kleaf)) Fail("the first tag should be one leaf");
  const std::vector<PageRef> wleaves = Leaves(wide, wh[0]);
  const std::uint32_t wleaf = wleaves[wleaves.size() / 2].offset;
  struct LeafCase {
    const char* name;
    const Bytes* base;
    std::uint32_t page;
  };
  for (const LeafCase& c : {LeafCase{"leaf", &kinds, kleaf}, LeafCase{"deep_leaf", &wide, wleaf}}) {
    const std::string n = c.name;
    const std::uint32_t p = c.page;
    damage(n + "_count_max", *c.base, [&](Bytes& b) { PutLe16(b, p + kCount, 0xFFFF); });
    damage(n + "_count_plus_one", *c.base, [&](Bytes& b) { PutLe16(b, p + kCount, Count(b, p) + 1); });
    damage(n + "_count_plus_ten", *c.base, [&](Bytes& b) { PutLe16(b, p + kCount, Count(b, p) + 10); });
    damage(n + "_count_zero", *c.base, [&](Bytes& b) { PutLe16(b, p + kCount, 0); });
    damage(n + "_count_one", *c.base, [&](Bytes& b) { PutLe16(b, p + kCount, 1); });
    damage(n + "_record_bits_0", *c.base, [&](Bytes& b) { b[p + kRecBits] = 0; });
    damage(n + "_record_bits_33", *c.base, [&](Bytes& b) { b[p + kRecBits] = 33; });
    damage(n + "_record_bits_plus_one", *c.base, [&](Bytes& b) { b[p + kRecBits] = static_cast<char>(b[p + kRecBits] + 1); });
    damage(n + "_entry_bytes_0", *c.base, [&](Bytes& b) { b[p + kEntryBytes] = 0; });
    damage(n + "_entry_bytes_9", *c.base, [&](Bytes& b) { b[p + kEntryBytes] = 9; });
    damage(n + "_entry_bytes_plus_one", *c.base, [&](Bytes& b) { b[p + kEntryBytes] = static_cast<char>(b[p + kEntryBytes] + 1); });
    damage(n + "_dup_bits_17", *c.base, [&](Bytes& b) { b[p + kDupBits] = 17; });
    damage(n + "_trail_bits_0", *c.base, [&](Bytes& b) { b[p + kTrailBits] = 0; });
    damage(n + "_widths_exceed_entry", *c.base, [&](Bytes& b) {
      b[p + kRecBits] = 32;
      b[p + kDupBits] = 16;
      b[p + kTrailBits] = 16;
      b[p + kEntryBytes] = 7;
    });
    damage(n + "_widths_all_max", *c.base, [&](Bytes& b) {
      b[p + kRecBits] = 32;
      b[p + kDupBits] = 16;
      b[p + kTrailBits] = 16;
      b[p + kEntryBytes] = 8;
    });
    damage(n + "_counts_exceed_key", *c.base, [&](Bytes& b) {
      LeafEntry e = GetLeafEntry(b, p, 1);
      e.dup = (1ull << static_cast<unsigned char>(b[p + kDupBits])) - 1;
      e.trail = (1ull << static_cast<unsigned char>(b[p + kTrailBits])) - 1;
      SetLeafEntry(b, p, 1, e);
    });
    damage(n + "_no_compression", *c.base, [&](Bytes& b) {
      for (unsigned i = 0; i < Count(b, p); ++i) {
        LeafEntry e = GetLeafEntry(b, p, i);
        e.dup = e.trail = 0;
        SetLeafEntry(b, p, i, e);
      }
    });
    damage(n + "_record_zero", *c.base, [&](Bytes& b) {
      LeafEntry e = GetLeafEntry(b, p, 2);
      e.recno = 0;
      SetLeafEntry(b, p, 2, e);
    });
    damage(n + "_record_huge", *c.base, [&](Bytes& b) {
      LeafEntry e = GetLeafEntry(b, p, 3);
      e.recno = (1ull << static_cast<unsigned char>(b[p + kRecBits])) - 1;
      SetLeafEntry(b, p, 3, e);
    });
    damage(n + "_records_all_one", *c.base, [&](Bytes& b) {
      for (unsigned i = 0; i < Count(b, p); ++i) {
        LeafEntry e = GetLeafEntry(b, p, i);
        e.recno = 1;
        SetLeafEntry(b, p, i, e);
      }
    });
    damage(n + "_entries_swapped", *c.base, [&](Bytes& b) {
      const LeafEntry a = GetLeafEntry(b, p, 0), z = GetLeafEntry(b, p, Count(b, p) - 1);
      SetLeafEntry(b, p, 0, LeafEntry{z.recno, a.dup, a.trail});
      SetLeafEntry(b, p, Count(b, p) - 1, LeafEntry{a.recno, z.dup, z.trail});
    });
    damage(n + "_key_text_reversed", *c.base, [&](Bytes& b) {
      std::reverse(b.begin() + p + kPage - 64, b.begin() + p + kPage);
    });
    damage(n + "_attr_4", *c.base, [&](Bytes& b) { PutLe16(b, p + kAttr, 4); });
    damage(n + "_attr_interior", *c.base, [&](Bytes& b) { PutLe16(b, p + kAttr, Le16(b, p + kAttr) & ~2u); });
  }

  // Sibling chains of the wide-key tree's leaves.
  {
    const std::uint32_t first = wleaves.front().offset, mid = wleaf, last = wleaves.back().offset;
    damage("chain_right_to_self", wide, [&](Bytes& b) { PutLe32(b, mid + kRight, mid); });
    damage("chain_left_to_self", wide, [&](Bytes& b) { PutLe32(b, mid + kLeft, mid); });
    damage("chain_last_to_first", wide, [&](Bytes& b) {
      PutLe32(b, last + kRight, first);
      PutLe32(b, first + kLeft, last);
    });
    damage("chain_right_past_end", wide, [&](Bytes& b) { PutLe32(b, mid + kRight, static_cast<std::uint32_t>(b.size() + kPage)); });
    damage("chain_right_unaligned", wide, [&](Bytes& b) { PutLe32(b, mid + kRight, Le32(b, mid + kRight) + 1); });
    damage("chain_right_to_root", wide, [&](Bytes& b) { PutLe32(b, mid + kRight, Root(b, wh[0])); });
    damage("chain_right_to_header", wide, [&](Bytes& b) { PutLe32(b, mid + kRight, wh[0]); });
    damage("chain_cut", wide, [&](Bytes& b) {
      PutLe32(b, mid + kRight, kNone);
      PutLe32(b, mid + kLeft, kNone);
    });
    // Empty leaves that point at each other: a walk that skips empty leaves must still stop.
    damage("chain_empty_leaves_in_a_circle", wide, [&](Bytes& b) {
      const std::uint32_t next = Le32(b, mid + kRight);
      PutLe16(b, mid + kCount, 0);
      PutLe16(b, next + kCount, 0);
      PutLe32(b, next + kRight, mid);
      PutLe32(b, mid + kLeft, next);
    });
    damage("chain_empty_leaf_to_self", wide, [&](Bytes& b) {
      PutLe16(b, mid + kCount, 0);
      PutLe32(b, mid + kRight, mid);
      PutLe32(b, mid + kLeft, mid);
    });
  }

  // Interior pages: the wide-key index (three levels, 3 entries per interior page) and the larger.
  {
    const std::vector<PageRef> wi = Interiors(wide, wh[0]);
    const std::uint32_t wroot = wi.front().offset;
    const std::uint32_t wmid = wi.back().offset;  // one level below the root
    damage("int_count_zero", wide, [&](Bytes& b) { PutLe16(b, wmid + kCount, 0); });
    damage("int_count_max", wide, [&](Bytes& b) { PutLe16(b, wmid + kCount, 0xFFFF); });
    damage("int_count_plus_one", wide, [&](Bytes& b) { PutLe16(b, wmid + kCount, Count(b, wmid) + 1); });
    damage("int_count_just_fits", wide, [&](Bytes& b) { PutLe16(b, wroot + kCount, (kPage - 12) / (KeyLen(b, wh[0]) + 8)); });
    damage("int_child_unaligned", wide, [&](Bytes& b) { PutBe32(b, ChildAt(b, wh[0], wmid, 0), Be32(b, ChildAt(b, wh[0], wmid, 0)) + 2); });
    damage("int_child_past_end", wide, [&](Bytes& b) { PutBe32(b, ChildAt(b, wh[0], wmid, 1), static_cast<std::uint32_t>(b.size())); });
    damage("int_child_zero", wide, [&](Bytes& b) { PutBe32(b, ChildAt(b, wh[0], wroot, 0), 0); });
    damage("int_child_to_self", wide, [&](Bytes& b) { PutBe32(b, ChildAt(b, wh[0], wroot, 0), wroot); });
    damage("int_child_to_root", wide, [&](Bytes& b) { PutBe32(b, ChildAt(b, wh[0], wmid, Count(b, wmid) - 1), wroot); });
    damage("int_child_to_header", wide, [&](Bytes& b) { PutBe32(b, ChildAt(b, wh[0], wmid, 0), wh[0]); });
    damage("int_child_to_dir_root", wide, [&](Bytes& b) { PutBe32(b, ChildAt(b, wh[0], wmid, 0), Le32(b, 0)); });
    damage("int_children_all_one_page", wide, [&](Bytes& b) {
      const std::uint32_t c = Be32(b, ChildAt(b, wh[0], wroot, 0));
      for (unsigned i = 1; i < Count(b, wroot); ++i) PutBe32(b, ChildAt(b, wh[0], wroot, i), c);
    });
    damage("int_every_child_the_root", wide, [&](Bytes& b) {
      for (unsigned i = 0; i < Count(b, wroot); ++i) PutBe32(b, ChildAt(b, wh[0], wroot, i), wroot);
    });
    damage("int_attr_leaf", wide, [&](Bytes& b) { PutLe16(b, wmid + kAttr, 2); });
    damage("int_attr_7", wide, [&](Bytes& b) { PutLe16(b, wroot + kAttr, 7); });
    damage("int_keys_swapped", wide, [&](Bytes& b) {
      const unsigned kl = KeyLen(b, wh[0]);
      const std::size_t a = wroot + 12, z = wroot + 12 + (kl + 8);
      for (unsigned i = 0; i < kl + 8; ++i) std::swap(b[a + i], b[z + i]);
    });
    damage("int_key_lowered", wide, [&](Bytes& b) { std::fill(b.begin() + wroot + 12, b.begin() + wroot + 12 + 20, ' '); });
    damage("int_key_raised", wide, [&](Bytes& b) { std::fill(b.begin() + wmid + 12, b.begin() + wmid + 12 + 20, '\xff'); });

    const std::vector<PageRef> li = Interiors(larger, lh[2]);
    const std::uint32_t lroot = li.front().offset;
    damage("larger_int_child_to_self", larger, [&](Bytes& b) { PutBe32(b, ChildAt(b, lh[2], lroot, 1), lroot); });
    damage("larger_int_every_child_the_root", larger, [&](Bytes& b) {
      for (unsigned i = 0; i < Count(b, lroot); ++i) PutBe32(b, ChildAt(b, lh[2], lroot, i), lroot);
    });
    damage("larger_int_child_to_other_tag", larger, [&](Bytes& b) { PutBe32(b, ChildAt(b, lh[2], lroot, 0), Root(b, lh[0])); });
    damage("larger_root_is_a_leaf_below", larger, [&](Bytes& b) { PutLe32(b, lh[2], Leaves(b, lh[2])[5].offset); });
  }

  // Free lists. The engine takes a free page before it grows the file; appends that split pages
  // then land on what the list says.
  damage("free_head_unaligned", kinds, [&](Bytes& b) { PutLe32(b, 4, 1000); });
  damage("free_head_past_end", kinds, [&](Bytes& b) { PutLe32(b, 4, static_cast<std::uint32_t>(b.size() + 8 * kPage)); });
  damage("free_head_in_header", kinds, [&](Bytes& b) { PutLe32(b, 4, 512); });
  damage("free_head_at_tag_header", kinds, [&](Bytes& b) { PutLe32(b, 4, kh[1]); });
  damage("free_head_at_live_root", kinds, [&](Bytes& b) { PutLe32(b, 4, Root(b, kh[1])); });
  damage("free_page_to_self", kinds, [&](Bytes& b) {
    const std::uint32_t f = AddPage(b);
    PutLe32(b, f, f);
    PutLe32(b, 4, f);
  });
  damage("free_two_pages_in_a_circle", kinds, [&](Bytes& b) {
    const std::uint32_t f = AddPage(b), g = AddPage(b);
    PutLe32(b, f, g);
    PutLe32(b, g, f);
    PutLe32(b, 4, f);
  });
  damage("free_page_to_live_leaf", kinds, [&](Bytes& b) {
    const std::uint32_t f = AddPage(b);
    PutLe32(b, f, Leaves(b, kh[1]).front().offset);
    PutLe32(b, 4, f);
  });
  damage("free_page_to_past_end", wide, [&](Bytes& b) {
    const std::uint32_t f = AddPage(b);
    PutLe32(b, f, f + 64 * kPage);
    PutLe32(b, 4, f);
  });
  damage("free_head_at_wide_root", wide, [&](Bytes& b) { PutLe32(b, 4, Root(b, wh[0])); });

  std::size_t written = 0;
  for (const auto& [name, bytes] : seeds) {
    if (bytes.size() > kMaxSeed) Fail(name + " is larger than a seed should be");
    std::ofstream out(fs::path(out_dir) / name, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!out) Fail("cannot write " + name);
    ++written;
  }
  std::printf("%zu seeds in %s\n", written, out_dir.c_str());
  return 0;
}
