#include "engine/cdx_tree.h"

#include <algorithm>
#include <cstring>
#include <unordered_set>

namespace kvd::engine {

namespace {
constexpr int kMaxDepth = 32;          // far beyond any real tree; a deeper one is a cycle

bool Fits(const CdxPage& p, const CdxKeyFormat& fmt) {
  if (!p.leaf()) return p.entries.size() <= InteriorCapacity(fmt);
  return LeafBytes(p.entries, 0, p.entries.size(), fmt) <= cdx::kPageSize;
}

bool SameEntry(const CdxEntry& a, const CdxEntry& b) { return a.recno == b.recno && a.key == b.key; }

Status Corrupt(const char* what) { return Status::Corruption(what); }
}  // namespace

int CompareEntry(const CdxEntry& a, const std::string& key, std::uint32_t recno, unsigned char pad) {
  const std::size_t n = std::min(a.key.size(), key.size());
  int c = std::memcmp(a.key.data(), key.data(), n);
  if (c != 0) return c;
  for (std::size_t i = n; i < a.key.size(); ++i) {
    const unsigned char x = static_cast<unsigned char>(a.key[i]);
    if (x != pad) return x < pad ? -1 : 1;
  }
  if (a.recno != recno) return a.recno < recno ? -1 : 1;
  return 0;
}

Status CdxTree::Descend(const std::string& key, std::uint32_t recno, bool high_fill, std::vector<Step>* path) {
  path->clear();
  const unsigned char pad = high_fill ? 0xFF : 0x00;
  std::uint32_t off = 0;
  KVD_RETURN_IF_ERROR(store_.Root(&off));
  for (int depth = 0;; ++depth) {
    if (depth == kMaxDepth) return Corrupt("index tree deeper than any real one: a page cycle");
    Step step;
    KVD_RETURN_IF_ERROR(store_.ReadPage(off, &step.page));
    const auto& e = step.page.entries;
    auto it = std::lower_bound(e.begin(), e.end(), 0, [&](const CdxEntry& x, int) {
      return CompareEntry(x, key, recno, pad) < 0;
    });
    step.index = static_cast<std::size_t>(it - e.begin());
    const bool leaf = step.page.leaf();
    if (!leaf && step.index == e.size()) step.index = e.size() - 1;  // beyond every key: the last child
    path->push_back(std::move(step));
    if (leaf) return Status::Ok();
    off = path->back().page.entries[path->back().index].child;
  }
}

Status CdxTree::Store(std::vector<Step>& path, std::size_t level) {
  CdxPage& page = path[level].page;
  if (!Fits(page, fmt_)) return Split(path, level);
  KVD_RETURN_IF_ERROR(store_.WritePage(page));
  if (level == 0 || page.entries.empty()) return Status::Ok();
  // The parent's entry for this page is its highest entry.
  CdxEntry& up = path[level - 1].page.entries[path[level - 1].index];
  const CdxEntry& last = page.entries.back();
  if (up.key == last.key && up.recno == last.recno) return Status::Ok();
  up.key = last.key;
  up.recno = last.recno;
  return Store(path, level - 1);
}

Status CdxTree::Split(std::vector<Step>& path, std::size_t level) {
  CdxPage& page = path[level].page;
  const std::size_t n = page.entries.size();
  std::size_t s = n / 2;
  // An insert at the very end of the rightmost page (appends in key order) leaves the left page
  // full rather than half empty.
  if (path[level].index + 1 >= n && page.right == cdx::kNoPage) s = n - 1;
  if (page.leaf()) {
    while (s > 1 && LeafBytes(page.entries, 0, s, fmt_) > cdx::kPageSize) --s;
    while (s + 1 < n && LeafBytes(page.entries, s, n - s, fmt_) > cdx::kPageSize) ++s;
  }
  if (s == 0 || s >= n) return Corrupt("index page cannot be split");
  CdxPage right;
  KVD_RETURN_IF_ERROR(store_.AllocPage(&right.offset));
  right.attr = static_cast<std::uint16_t>(page.attr & ~cdx::kAttrRoot);
  right.entries.assign(page.entries.begin() + static_cast<std::ptrdiff_t>(s), page.entries.end());
  right.left = page.offset;
  right.right = page.right;
  page.entries.resize(s);
  page.attr = static_cast<std::uint16_t>(page.attr & ~cdx::kAttrRoot);
  page.right = right.offset;
  if (right.right != cdx::kNoPage) {
    CdxPage next;
    KVD_RETURN_IF_ERROR(store_.ReadPage(right.right, &next));
    next.left = right.offset;
    KVD_RETURN_IF_ERROR(store_.WritePage(next));
  }
  KVD_RETURN_IF_ERROR(store_.WritePage(page));
  KVD_RETURN_IF_ERROR(store_.WritePage(right));
  const CdxEntry left_last{page.entries.back().key, page.entries.back().recno, page.offset};
  const CdxEntry right_last{right.entries.back().key, right.entries.back().recno, right.offset};
  if (level == 0) {
    CdxPage root;
    KVD_RETURN_IF_ERROR(store_.AllocPage(&root.offset));
    root.attr = cdx::kAttrRoot;
    root.entries = {left_last, right_last};
    KVD_RETURN_IF_ERROR(store_.WritePage(root));
    return store_.SetRoot(root.offset);
  }
  Step& parent = path[level - 1];
  parent.page.entries[parent.index] = left_last;
  parent.page.entries.insert(parent.page.entries.begin() + static_cast<std::ptrdiff_t>(parent.index) + 1, right_last);
  ++parent.index;  // the parent's entry for the right half, should the parent split in turn
  return Store(path, level - 1);
}

Status CdxTree::Insert(const std::string& key, std::uint32_t recno) {
  std::vector<Step> path;
  KVD_RETURN_IF_ERROR(Descend(key, recno, false, &path));
  Step& leaf = path.back();
  leaf.page.entries.insert(leaf.page.entries.begin() + static_cast<std::ptrdiff_t>(leaf.index),
                           CdxEntry{key, recno, 0});
  return Store(path, path.size() - 1);
}

Status CdxTree::RemoveFromParent(std::vector<Step>& path, std::size_t level) {
  CdxPage& page = path[level].page;
  if (page.left != cdx::kNoPage) {
    CdxPage l;
    KVD_RETURN_IF_ERROR(store_.ReadPage(page.left, &l));
    l.right = page.right;
    KVD_RETURN_IF_ERROR(store_.WritePage(l));
  }
  if (page.right != cdx::kNoPage) {
    CdxPage r;
    KVD_RETURN_IF_ERROR(store_.ReadPage(page.right, &r));
    r.left = page.left;
    KVD_RETURN_IF_ERROR(store_.WritePage(r));
  }
  KVD_RETURN_IF_ERROR(store_.FreePage(page.offset));
  Step& parent = path[level - 1];
  parent.page.entries.erase(parent.page.entries.begin() + static_cast<std::ptrdiff_t>(parent.index));
  if (!parent.page.entries.empty()) {
    if (parent.index > 0 && parent.index == parent.page.entries.size()) --parent.index;
    return Store(path, level - 1);
  }
  if (level - 1 == 0) {  // the root lost its last child: it becomes an empty leaf
    parent.page.attr = cdx::kAttrRoot | cdx::kAttrLeaf;
    parent.page.left = parent.page.right = cdx::kNoPage;
    return store_.WritePage(parent.page);
  }
  return RemoveFromParent(path, level - 1);
}

Status CdxTree::Remove(const std::string& key, std::uint32_t recno, bool* found) {
  *found = false;
  std::vector<Step> path;
  KVD_RETURN_IF_ERROR(Descend(key, recno, false, &path));
  Step& leaf = path.back();
  auto& e = leaf.page.entries;
  if (leaf.index >= e.size() || CompareEntry(e[leaf.index], key, recno, 0) != 0) return Status::Ok();
  *found = true;
  e.erase(e.begin() + static_cast<std::ptrdiff_t>(leaf.index));
  if (e.empty() && path.size() > 1) return RemoveFromParent(path, path.size() - 1);
  return Store(path, path.size() - 1);
}

Status CdxTree::Build(const std::vector<CdxEntry>& sorted) {
  // Leaves, filled as far as they go, left to right.
  std::vector<CdxPage> level;
  CdxPage cur;
  cur.attr = cdx::kAttrLeaf;
  std::size_t text = 0;
  std::uint32_t max_rec = 0;
  auto flush = [&]() -> Status {
    KVD_RETURN_IF_ERROR(store_.AllocPage(&cur.offset));
    level.push_back(std::move(cur));
    cur = CdxPage();
    cur.attr = cdx::kAttrLeaf;
    text = 0;
    max_rec = 0;
    return Status::Ok();
  };
  for (const CdxEntry& x : sorted) {
    const std::string* prev = cur.entries.empty() ? nullptr : &cur.entries.back().key;
    const std::size_t own = LeafOwnBytes(prev, x.key, fmt_);
    const std::uint32_t mr = std::max(max_rec, x.recno);
    if (!cur.entries.empty() &&
        cdx::kLeafHead + (cur.entries.size() + 1) * LeafEntryWidth(mr, fmt_.key_len) + text + own > cdx::kPageSize) {
      KVD_RETURN_IF_ERROR(flush());
      text = LeafOwnBytes(nullptr, x.key, fmt_);
      max_rec = x.recno;
    } else {
      text += own;
      max_rec = mr;
    }
    cur.entries.push_back(CdxEntry{x.key, x.recno, 0});
  }
  if (!cur.entries.empty() || level.empty()) KVD_RETURN_IF_ERROR(flush());

  // Levels above, until one page is left: the root.
  const std::size_t cap = InteriorCapacity(fmt_);
  for (;;) {
    for (std::size_t i = 0; i < level.size(); ++i) {
      level[i].left = i ? level[i - 1].offset : cdx::kNoPage;
      level[i].right = i + 1 < level.size() ? level[i + 1].offset : cdx::kNoPage;
    }
    if (level.size() == 1) {
      level[0].attr |= cdx::kAttrRoot;
      KVD_RETURN_IF_ERROR(store_.WritePage(level[0]));
      return store_.SetRoot(level[0].offset);
    }
    std::vector<CdxPage> up;
    for (std::size_t i = 0; i < level.size(); i += cap) {
      CdxPage p;
      p.attr = 0;
      for (std::size_t j = i; j < std::min(level.size(), i + cap); ++j) {
        KVD_RETURN_IF_ERROR(store_.WritePage(level[j]));
        const CdxEntry& last = level[j].entries.back();
        p.entries.push_back(CdxEntry{last.key, last.recno, level[j].offset});
      }
      KVD_RETURN_IF_ERROR(store_.AllocPage(&p.offset));
      up.push_back(std::move(p));
    }
    level = std::move(up);
  }
}

Status CdxTree::CollectPages(std::vector<std::uint32_t>* pages) {
  // Every page once: a page reached twice would be freed twice and tie the free list in a loop.
  std::unordered_set<std::uint32_t> seen;
  std::uint32_t root = 0;
  KVD_RETURN_IF_ERROR(store_.Root(&root));
  std::vector<std::uint32_t> todo{root};
  while (!todo.empty()) {
    const std::uint32_t off = todo.back();
    todo.pop_back();
    if (!seen.insert(off).second) return Corrupt("index page reached twice from the root: a page cycle");
    pages->push_back(off);
    CdxPage p;
    KVD_RETURN_IF_ERROR(store_.ReadPage(off, &p));
    if (!p.leaf())
      for (const CdxEntry& e : p.entries) todo.push_back(e.child);
  }
  return Status::Ok();
}

Status CdxTree::First(CdxPosition* pos) {
  std::uint32_t off = 0;
  KVD_RETURN_IF_ERROR(store_.Root(&off));
  for (int depth = 0; depth < kMaxDepth; ++depth) {
    KVD_RETURN_IF_ERROR(store_.ReadPage(off, &pos->leaf));
    if (pos->leaf.leaf()) {
      pos->index = 0;
      pos->valid = true;
      if (pos->leaf.entries.empty()) {
        pos->index = static_cast<std::size_t>(-1);
        return Next(pos);
      }
      return Status::Ok();
    }
    off = pos->leaf.entries.front().child;
  }
  return Corrupt("index tree deeper than any real one: a page cycle");
}

Status CdxTree::Last(CdxPosition* pos) {
  std::uint32_t off = 0;
  KVD_RETURN_IF_ERROR(store_.Root(&off));
  for (int depth = 0; depth < kMaxDepth; ++depth) {
    KVD_RETURN_IF_ERROR(store_.ReadPage(off, &pos->leaf));
    if (pos->leaf.leaf()) {
      pos->valid = true;
      pos->index = pos->leaf.entries.size();
      return Prev(pos);
    }
    off = pos->leaf.entries.back().child;
  }
  return Corrupt("index tree deeper than any real one: a page cycle");
}

Status CdxTree::Next(CdxPosition* pos) {
  if (!pos->valid) return Status::Ok();
  ++pos->index;  // from -1 (before the first entry) this gives 0
  for (std::size_t hops = 0; pos->index >= pos->leaf.entries.size(); ++hops) {
    if (pos->leaf.right == cdx::kNoPage) {
      pos->valid = false;
      return Status::Ok();
    }
    if (hops > store_.page_count()) return Corrupt("index leaf chain without end");
    KVD_RETURN_IF_ERROR(store_.ReadPage(pos->leaf.right, &pos->leaf));
    pos->index = 0;
  }
  return Status::Ok();
}

Status CdxTree::Prev(CdxPosition* pos) {
  if (!pos->valid) return Status::Ok();
  for (std::size_t hops = 0; pos->index == 0; ++hops) {
    if (pos->leaf.left == cdx::kNoPage) {
      pos->valid = false;
      return Status::Ok();
    }
    if (hops > store_.page_count()) return Corrupt("index leaf chain without end");
    KVD_RETURN_IF_ERROR(store_.ReadPage(pos->leaf.left, &pos->leaf));
    pos->index = pos->leaf.entries.size();
  }
  --pos->index;
  return Status::Ok();
}

Status CdxTree::LowerBound(const std::string& key, std::uint32_t recno, CdxPosition* pos) {
  std::vector<Step> path;
  KVD_RETURN_IF_ERROR(Descend(key, recno, false, &path));
  pos->leaf = std::move(path.back().page);
  pos->valid = true;
  pos->index = path.back().index;
  if (pos->index < pos->leaf.entries.size()) return Status::Ok();
  // Past this leaf's last entry: the answer is the first entry of the next leaf, if any.
  pos->index = pos->leaf.entries.size() - 1;
  if (pos->leaf.entries.empty()) pos->index = static_cast<std::size_t>(-1);
  return Next(pos);
}

Status CdxTree::UpperBoundPrev(const std::string& key, std::uint32_t recno, CdxPosition* pos) {
  std::vector<Step> path;
  KVD_RETURN_IF_ERROR(Descend(key, recno, true, &path));
  pos->leaf = std::move(path.back().page);
  pos->valid = true;
  pos->index = path.back().index;
  if (pos->index < pos->leaf.entries.size() && CompareEntry(pos->entry(), key, recno, 0xFF) == 0)
    return Status::Ok();
  return Prev(pos);
}

Status CdxTree::CheckPage(std::uint32_t offset, const CdxEntry* bound, std::size_t* entries, int depth) {
  if (depth > kMaxDepth) return Corrupt("index tree deeper than any real one");
  CdxPage p;
  KVD_RETURN_IF_ERROR(store_.ReadPage(offset, &p));
  if (p.entries.empty() && !(p.root() && p.leaf())) return Corrupt("empty index page below the root");
  for (std::size_t i = 1; i < p.entries.size(); ++i)
    if (CompareEntry(p.entries[i - 1], p.entries[i].key, p.entries[i].recno, 0) >= 0)
      return Corrupt("index page entries out of order");
  if (bound && !p.entries.empty() && !SameEntry(p.entries.back(), *bound))
    return Corrupt("parent entry is not the highest entry of its child");
  if (p.leaf()) {
    *entries += p.entries.size();
    return Status::Ok();
  }
  for (const CdxEntry& e : p.entries) KVD_RETURN_IF_ERROR(CheckPage(e.child, &e, entries, depth + 1));
  return Status::Ok();
}

Status CdxTree::Check(std::size_t* entries) {
  *entries = 0;
  std::uint32_t root = 0;
  KVD_RETURN_IF_ERROR(store_.Root(&root));
  KVD_RETURN_IF_ERROR(CheckPage(root, nullptr, entries, 0));
  // The leaf chain must hold the same entries in the same order.
  CdxPosition pos;
  KVD_RETURN_IF_ERROR(First(&pos));
  std::size_t walked = 0;
  CdxEntry prev;
  while (pos.valid) {
    if (walked && CompareEntry(prev, pos.entry().key, pos.entry().recno, 0) >= 0)
      return Corrupt("index leaf chain out of order");
    prev = pos.entry();
    if (++walked > *entries) break;
    KVD_RETURN_IF_ERROR(Next(&pos));
  }
  if (walked != *entries) return Corrupt("index leaf chain and tree disagree");
  return Status::Ok();
}

}  // namespace kvd::engine
