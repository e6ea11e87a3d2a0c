#pragma once

// gzip input: files recognised by their first bytes, inflated as one text across all their
// members (as `cat a.gz b.gz` and bgzip write them), and made seekable by checkpoints taken
// while they are read from the start.
//
// A checkpoint is a place where inflating can start again without the data before it: the
// start of a deflate block, given by its byte and bit offset in the compressed file, its
// offset in the text and the 32 KiB of text before it (the window the block may refer to).
// At the start of a gzip member the window is empty. BGZF files (bgzip's output: members of at
// most 64 KiB of text, each naming its own compressed size in a "BC" extra subfield) get a
// checkpoint at every member, none of which needs a window.

#include <zlib.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <vector>

namespace kora::detail {

// What the first bytes of a file hold: no gzip data, gzip members, or BGZF blocks (a first
// member with the "BC" subfield).
enum class Compression { none, gzip, bgzf };
Compression compression_of(unsigned char const* bytes, std::size_t size) noexcept;
// The compression of an open file, from its first bytes (read with pread).
Compression compression_of(int descriptor) noexcept;

struct Checkpoint {
  std::int64_t out = 0;  // offset in the text
  std::int64_t in = 0;   // offset in the compressed file of the first whole byte to inflate
  int bits = 0;          // bits of the byte before `in` that belong to the block (0 to 7)
  std::vector<unsigned char> window;  // the text before `out` that the block may refer to
};

// The checkpoints of one file, in the order of the text. Windowed checkpoints are taken every
// `spacing` bytes of text, starting at 1 MiB; when there would be more than max_windows of
// them, every other one is dropped and the spacing doubles, so that the windows never take
// more than max_windows * 32 KiB (64 MiB) whatever the size of the file: a 1 GiB text keeps
// 1 MiB spacing, a 10 GiB text gets 8 MiB. Checkpoints at member starts need no window and
// are kept every member_spacing bytes (every block in a BGZF file).
class GzipIndex {
 public:
  static constexpr std::int64_t first_spacing = std::int64_t(1) << 20;
  static constexpr std::size_t max_windows = 2048;
  static constexpr std::int64_t member_spacing = std::int64_t(1) << 16;

  explicit GzipIndex(Compression compression) : bgzf_(compression == Compression::bgzf) {}

  // Whether a checkpoint at text offset `out` (windowless or not) is wanted.
  bool wants(std::int64_t out, bool windowless) const;
  void add(Checkpoint point);
  // The last checkpoint at or before text offset `out`; null when there is none.
  Checkpoint const* at_or_before(std::int64_t out) const;
  Checkpoint const* last() const { return points_.empty() ? nullptr : &points_.back(); }
  std::vector<Checkpoint> const& points() const { return points_; }
  // The checkpoints and text length of a complete index made before (a saved index), in
  // place of those reading would take.
  void restore(std::vector<Checkpoint> points, std::int64_t size);

  // The whole text has been inflated once: its length is known.
  void complete(std::int64_t size) {
    complete_ = true;
    size_ = size;
  }
  bool complete() const { return complete_; }
  std::int64_t size() const { return size_; }
  std::int64_t spacing() const { return spacing_; }
  std::size_t checkpoints() const { return points_.size(); }

 private:
  bool bgzf_;
  std::vector<Checkpoint> points_;
  std::size_t windows_ = 0;
  std::int64_t spacing_ = first_spacing;
  bool complete_ = false;
  std::int64_t size_ = 0;
};

// Inflates the gzip members of an open file as one text, from its start or from a checkpoint.
// Truncated or corrupt data throws std::runtime_error naming the file. Input is read with
// pread in large blocks, so several inflaters may share a descriptor.
class Inflater {
 public:
  Inflater(int descriptor, std::string file_name);
  ~Inflater();
  Inflater(Inflater const&) = delete;
  Inflater& operator=(Inflater const&) = delete;

  // Starts again at a checkpoint, or at the start of the file when null.
  void start(Checkpoint const* from);
  // Up to `capacity` bytes of text into `out`; fewer only at the end of the text, or before a
  // fault in the data, which the next call throws (so that the text before it is seen).
  std::size_t read(char* out, std::size_t capacity);
  // Reads and drops `count` bytes of text; false when the text ends first.
  bool skip(std::int64_t count);
  // The offset in the text of the next byte read.
  std::int64_t position() const { return out_; }
  // Bytes of text inflated since construction (what random access costs).
  std::int64_t inflated() const { return inflated_; }
  // Checkpoints are added to `index` as the text goes by (null: none are).
  void record_into(std::shared_ptr<GzipIndex> index) { index_ = std::move(index); }

 private:
  bool fill_();  // more input; false at the end of the file
  std::int64_t in_offset_() const { return next_read_ - static_cast<std::int64_t>(strm_.avail_in); }
  // After a member's end: starts the next member; false at the end of the data.
  bool next_member_();
  void take_checkpoint_();
  // read() up to a fault, which it throws; `produced` counts the text given out before it.
  void inflate_(char* out, std::size_t capacity, std::size_t& produced);
  [[noreturn]] void fail_(std::string const& what) const;

  int descriptor_;
  std::string file_name_;
  z_stream strm_{};
  bool initialised_ = false;
  std::unique_ptr<unsigned char[]> input_;
  std::int64_t next_read_ = 0;  // where the next pread starts
  std::int64_t out_ = 0;
  std::int64_t inflated_ = 0;
  bool raw_ = false;         // inflating raw deflate data (started from a checkpoint)
  bool member_end_ = false;  // a member ended; the next one is not started yet
  bool finished_ = false;    // no more members
  std::shared_ptr<GzipIndex> index_;
  std::exception_ptr fault_;  // met after some text was given out: thrown by the next read
};

// The gzip file a thread is indexing (see IndexedFile::Indexing): streams opened by that name
// in that thread record their checkpoints into its index.
struct IndexingTarget {
  std::string const* file_name = nullptr;
  std::shared_ptr<GzipIndex> index;
};
IndexingTarget& indexing_target() noexcept;

}  // namespace kora::detail
