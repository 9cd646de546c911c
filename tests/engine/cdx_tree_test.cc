// The tag tree against a sorted model, over an in-memory store that encodes every page.
#include <cstring>
#include <map>
#include <random>
#include <set>

#include <gtest/gtest.h>

#include "engine/cdx_tree.h"

namespace kvd::engine {
namespace {

class MemoryStore : public CdxPageStore {
 public:
  explicit MemoryStore(unsigned key_len, unsigned char fill = ' ') { fmt_ = {key_len, fill}; }
  Status ReadPage(std::uint32_t off, CdxPage* p) override {
    auto it = pages_.find(off);
    if (it == pages_.end()) return Status::Corruption("no such page");
    return DecodeCdxPage(it->second.data(), off, fmt_, 1u << 30, "memory", p);
  }
  Status WritePage(const CdxPage& p) override {
    std::vector<unsigned char> bytes(cdx::kPageSize);
    if (!EncodeCdxPage(p, fmt_, bytes.data())) return Status::Corruption("page does not fit");
    pages_[p.offset] = std::move(bytes);
    return Status::Ok();
  }
  Status AllocPage(std::uint32_t* off) override {
    if (!free_.empty()) {
      *off = free_.back();
      free_.pop_back();
    } else {
      *off = next_;
      next_ += cdx::kPageSize;
    }
    return Status::Ok();
  }
  std::uint64_t page_count() const override { return next_ / cdx::kPageSize; }
  Status FreePage(std::uint32_t off) override {
    pages_.erase(off);
    free_.push_back(off);
    return Status::Ok();
  }
  Status Root(std::uint32_t* off) override {
    *off = root_;
    return Status::Ok();
  }
  Status SetRoot(std::uint32_t off) override {
    root_ = off;
    return Status::Ok();
  }
  const CdxKeyFormat& format() const override { return fmt_; }
  std::size_t pages() const { return pages_.size(); }

  void Init() {
    CdxPage r;
    r.attr = cdx::kAttrRoot | cdx::kAttrLeaf;
    AllocPage(&r.offset);
    WritePage(r);
    root_ = r.offset;
  }

 private:
  CdxKeyFormat fmt_;
  std::map<std::uint32_t, std::vector<unsigned char>> pages_;
  std::vector<std::uint32_t> free_;
  std::uint32_t next_ = 1024;
  std::uint32_t root_ = 0;
};

using Model = std::set<std::pair<std::string, std::uint32_t>>;

void ExpectSameAsModel(CdxTree& tree, const Model& model) {
  std::size_t n = 0;
  ASSERT_TRUE(tree.Check(&n).ok());
  ASSERT_EQ(n, model.size());
  CdxPosition pos;
  ASSERT_TRUE(tree.First(&pos).ok());
  for (const auto& [key, rec] : model) {
    ASSERT_TRUE(pos.valid);
    ASSERT_EQ(pos.entry().key, key);
    ASSERT_EQ(pos.entry().recno, rec);
    ASSERT_TRUE(tree.Next(&pos).ok());
  }
  EXPECT_FALSE(pos.valid);
}

std::string RandomKey(std::mt19937& rng, unsigned len) {
  // Few distinct prefixes and trailing blanks, so both compressions are exercised.
  std::string k(len, ' ');
  const unsigned used = 1 + rng() % len;
  for (unsigned i = 0; i < used; ++i) k[i] = static_cast<char>('A' + rng() % (i < 3 ? 3 : 26));
  return k;
}

TEST(CdxTree, RandomInsertsAndRemovesMatchASortedModel) {
  for (unsigned key_len : {4u, 10u, 40u, 240u}) {
    MemoryStore store(key_len);
    store.Init();
    CdxTree tree(store);
    Model model;
    std::mt19937 rng(key_len);
    for (int step = 0; step < 3000; ++step) {
      if (model.empty() || rng() % 3) {
        std::string k = RandomKey(rng, key_len);
        const std::uint32_t rec = 1 + rng() % 200000;
        if (!model.insert({k, rec}).second) continue;
        ASSERT_TRUE(tree.Insert(k, rec).ok()) << "step " << step;
      } else {
        auto it = model.begin();
        std::advance(it, rng() % model.size());
        bool found = false;
        ASSERT_TRUE(tree.Remove(it->first, it->second, &found).ok());
        ASSERT_TRUE(found);
        model.erase(it);
      }
      if (step % 97 == 0) ExpectSameAsModel(tree, model);
    }
    ExpectSameAsModel(tree, model);
    // Empty it completely: every page but the root goes back.
    for (const auto& [k, rec] : model) {
      bool found = false;
      ASSERT_TRUE(tree.Remove(k, rec, &found).ok());
      ASSERT_TRUE(found);
    }
    ExpectSameAsModel(tree, {});
    EXPECT_EQ(store.pages(), 1u) << "key length " << key_len;
  }
}

TEST(CdxTree, BuildGivesTheSameTreeAsInserts) {
  MemoryStore store(8, 0);
  store.Init();
  CdxTree tree(store);
  std::vector<CdxEntry> sorted;
  Model model;
  for (std::uint32_t r = 1; r <= 20000; ++r) {
    std::string k(8, '\0');
    k[6] = static_cast<char>(r / 97 % 256);
    k[7] = static_cast<char>(r % 97);
    model.insert({k, r});
  }
  for (const auto& [k, r] : model) sorted.push_back({k, r, 0});
  ASSERT_TRUE(tree.Build(sorted).ok());
  ExpectSameAsModel(tree, model);
  ASSERT_TRUE(tree.Insert(std::string(8, '\x01'), 5).ok());
  model.insert({std::string(8, '\x01'), 5});
  ExpectSameAsModel(tree, model);
}

TEST(CdxTree, SeeksFindPrefixesAndNeighbours) {
  MemoryStore store(6);
  store.Init();
  CdxTree tree(store);
  for (const char* k : {"APPLE ", "APRIL ", "BANANA", "BAND  ", "CHERRY"})
    for (std::uint32_t r = 1; r <= 3; ++r) ASSERT_TRUE(tree.Insert(k, r).ok());
  CdxPosition pos;
  ASSERT_TRUE(tree.LowerBound("BAN", 0, &pos).ok());
  ASSERT_TRUE(pos.valid);
  EXPECT_EQ(pos.entry().key, "BANANA");
  EXPECT_EQ(pos.entry().recno, 1u);
  ASSERT_TRUE(tree.LowerBound("BANANB", 0, &pos).ok());
  EXPECT_EQ(pos.entry().key, "BAND  ");
  ASSERT_TRUE(tree.LowerBound("D", 0, &pos).ok());
  EXPECT_FALSE(pos.valid);
  ASSERT_TRUE(tree.UpperBoundPrev("BAN", 0xFFFFFFFF, &pos).ok());
  EXPECT_EQ(pos.entry().key, "BAND  ");
  EXPECT_EQ(pos.entry().recno, 3u);
  ASSERT_TRUE(tree.UpperBoundPrev("A", 0xFFFFFFFF, &pos).ok());
  EXPECT_EQ(pos.entry().key, "APRIL ");
  ASSERT_TRUE(tree.UpperBoundPrev("0", 0xFFFFFFFF, &pos).ok());
  EXPECT_FALSE(pos.valid);
  ASSERT_TRUE(tree.Last(&pos).ok());
  EXPECT_EQ(pos.entry().key, "CHERRY");
}

TEST(CdxPage, DamagedPagesAreRefused) {
  const CdxKeyFormat fmt{10, ' '};
  CdxPage leaf;
  leaf.offset = 1024;
  for (std::uint32_t r = 1; r <= 20; ++r) leaf.entries.push_back({"KEY" + std::to_string(r) + std::string(10 - 3 - std::to_string(r).size(), ' '), r, 0});
  unsigned char good[512];
  ASSERT_TRUE(EncodeCdxPage(leaf, fmt, good));
  CdxPage back;
  ASSERT_TRUE(DecodeCdxPage(good, 1024, fmt, 4096, "t", &back).ok());
  ASSERT_EQ(back.entries.size(), 20u);
  EXPECT_EQ(back.entries[13].key, leaf.entries[13].key);
  auto damaged = [&](unsigned at, unsigned char v) {
    unsigned char b[512];
    std::memcpy(b, good, 512);
    b[at] = v;
    return DecodeCdxPage(b, 1024, fmt, 4096, "t", &back);
  };
  EXPECT_TRUE(damaged(cdx::kOffCount, 200).IsCorruption()) << "more entries than fit";
  EXPECT_TRUE(damaged(cdx::kOffEntryBytes, 0).IsCorruption());
  EXPECT_TRUE(damaged(cdx::kOffRecBits, 60).IsCorruption());
  EXPECT_TRUE(damaged(cdx::kOffAttr, 9).IsCorruption());
  EXPECT_TRUE(damaged(cdx::kOffAttr, 7).ok()) << "0x04 is a writer's mark, not damage";
  // An entry whose trailing count claims the whole key and more.
  unsigned char b[512];
  std::memcpy(b, good, 512);
  const unsigned e = b[cdx::kOffEntryBytes];
  b[cdx::kLeafHead + 2 * e - 1] = 0xFF;  // top byte of the second entry: the counts
  EXPECT_TRUE(DecodeCdxPage(b, 1024, fmt, 4096, "t", &back).IsCorruption());

  CdxPage inner;
  inner.attr = cdx::kAttrRoot;
  inner.offset = 512;
  inner.entries = {{std::string(10, 'A'), 1, 1024}, {std::string(10, 'B'), 2, 1536}};
  ASSERT_TRUE(EncodeCdxPage(inner, fmt, b));
  EXPECT_TRUE(DecodeCdxPage(b, 512, fmt, 2048, "t", &back).ok());
  EXPECT_TRUE(DecodeCdxPage(b, 512, fmt, 1600, "t", &back).IsCorruption()) << "child past the end";
}

}  // namespace
}  // namespace kvd::engine
