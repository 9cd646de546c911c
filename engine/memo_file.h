// One open memo file (.FPT read and written, .DBT read only); layout in fpt_format.h.
//
// A memo is addressed by its first block. Reads check that the block and the stored length lie
// inside the file. Writes put a memo back into its old blocks when it still fits there, else at the
// end of the file; the allocation of new blocks happens under an exclusive lock on byte 0 of the
// memo file, so that two writers never get the same blocks.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "engine/dbf_file.h"
#include "platform/file.h"
#include "platform/status.h"

namespace kvd::engine {

class MemoFile {
 public:
  static Status Open(std::string_view path, MemoKind kind, bool read_only, bool exclusive,
                     std::unique_ptr<MemoFile>* out);
  // Writes an empty .FPT with the default block size, replacing a file that no one holds open.
  static Status Create(std::string_view path);

  MemoKind kind() const { return kind_; }
  std::uint32_t block_size() const { return block_size_; }
  const std::string& path() const { return file_->path(); }
  platform::File& file() { return *file_; }

  // Reads the memo that starts at `block` into *out (exact length).
  Status Read(std::uint32_t block, std::string* out);
  // Stores `len` bytes; `old_block` (0 = none) is the memo being replaced. *block receives where
  // the memo now lies (0 for an empty memo, which takes no blocks).
  Status Write(std::uint32_t old_block, const void* data, std::size_t len, std::uint32_t* block);

  Status BecomeExclusive();
  Status ReturnToShared();

  // The block size used by the file and the number of blocks a memo of `len` bytes takes.
  std::uint32_t BlocksFor(std::size_t len) const;

  // Copies the memos named by `blocks` to a fresh compact memo file at `tmp_path`; blocks[i] is
  // replaced by the block in the new file. Used by memo compression. *made is the new file, locked
  // exclusively from its creation on, for the caller to move into place and hand to TakeReplacement.
  Status CopyCompact(std::string_view tmp_path, std::uint32_t* blocks, std::size_t n,
                     std::unique_ptr<platform::File>* made);
  // Continues with `f`, the file that took this one's place under its name, locked exclusively.
  Status TakeReplacement(std::unique_ptr<platform::File> f);
  const std::string& open_path() const { return open_path_; }

 private:
  MemoFile() = default;
  Status ReadHeader();
  Status StoredLength(std::uint32_t block, std::uint32_t* len);

  std::unique_ptr<platform::File> file_;
  std::string open_path_;
  MemoKind kind_ = MemoKind::kFpt;
  std::uint32_t block_size_ = 64;
  bool read_only_ = false;
};

}  // namespace kvd::engine
