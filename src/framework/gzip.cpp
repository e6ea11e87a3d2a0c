#include "framework/gzip.hpp"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace kora::detail {

namespace {

constexpr std::size_t input_block = std::size_t(1) << 18;
constexpr char const* truncated = "truncated gzip data: the file ends inside a compressed member";

}  // namespace

Compression compression_of(unsigned char const* bytes, std::size_t size) noexcept {
  if (size < 2 || bytes[0] != 0x1f || bytes[1] != 0x8b) return Compression::none;
  // A BGZF block: deflate, FEXTRA set, and a "BC" subfield of two bytes in the extra field.
  constexpr unsigned char fextra = 4;
  if (size < 12 || bytes[2] != 8 || (bytes[3] & fextra) == 0) return Compression::gzip;
  std::size_t const extra_end = std::min<std::size_t>(size, 12 + (bytes[10] | bytes[11] << 8));
  for (std::size_t at = 12; at + 4 <= extra_end;) {
    std::size_t const length = bytes[at + 2] | bytes[at + 3] << 8;
    if (bytes[at] == 'B' && bytes[at + 1] == 'C' && length == 2) return Compression::bgzf;
    at += 4 + length;
  }
  return Compression::gzip;
}

Compression compression_of(int descriptor) noexcept {
  unsigned char head[512];
  ssize_t n = 0;
  do {
    n = ::pread(descriptor, head, sizeof head, 0);
  } while (n < 0 && errno == EINTR);
  return n > 0 ? compression_of(head, static_cast<std::size_t>(n)) : Compression::none;
}

bool GzipIndex::wants(std::int64_t out, bool windowless) const {
  if (points_.empty()) return true;
  std::int64_t const distance = out - points_.back().out;
  if (distance <= 0) return false;
  return windowless ? bgzf_ || distance >= member_spacing : distance >= spacing_;
}

void GzipIndex::add(Checkpoint point) {
  if (!point.window.empty()) ++windows_;
  points_.push_back(std::move(point));
  if (windows_ <= max_windows) return;
  // Every other windowed checkpoint goes; those at member starts stay.
  std::size_t k = 0;
  std::erase_if(points_, [&](Checkpoint const& p) { return !p.window.empty() && k++ % 2 == 1; });
  windows_ = (windows_ + 1) / 2;
  spacing_ *= 2;
}

void GzipIndex::restore(std::vector<Checkpoint> points, std::int64_t size) {
  points_ = std::move(points);
  windows_ = static_cast<std::size_t>(std::count_if(
      points_.begin(), points_.end(), [](Checkpoint const& p) { return !p.window.empty(); }));
  complete(size);
}

Checkpoint const* GzipIndex::at_or_before(std::int64_t out) const {
  auto const after =
      std::upper_bound(points_.begin(), points_.end(), out,
                       [](std::int64_t o, Checkpoint const& p) { return o < p.out; });
  return after == points_.begin() ? nullptr : &*(after - 1);
}

Inflater::Inflater(int descriptor, std::string file_name)
    : descriptor_(descriptor),
      file_name_(std::move(file_name)),
      input_(std::make_unique_for_overwrite<unsigned char[]>(input_block)) {
  if (inflateInit2(&strm_, 31) != Z_OK) throw std::bad_alloc();
  initialised_ = true;
}

Inflater::~Inflater() {
  if (initialised_) inflateEnd(&strm_);
}

void Inflater::fail_(std::string const& what) const {
  throw std::runtime_error(file_name_ + ": " + what);
}

bool Inflater::fill_() {
  std::size_t const keep = strm_.avail_in;
  if (keep > 0 && strm_.next_in != input_.get()) std::memmove(input_.get(), strm_.next_in, keep);
  ssize_t n = 0;
  do {
    n = ::pread(descriptor_, input_.get() + keep, input_block - keep, next_read_);
  } while (n < 0 && errno == EINTR);
  if (n < 0) fail_("cannot be read");
  strm_.next_in = input_.get();
  strm_.avail_in = static_cast<uInt>(keep + static_cast<std::size_t>(n));
  next_read_ += n;
  return n > 0;
}

void Inflater::start(Checkpoint const* from) {
  fault_ = nullptr;
  strm_.avail_in = 0;
  member_end_ = false;
  finished_ = false;
  if (from == nullptr) {
    next_read_ = 0;
    out_ = 0;
    raw_ = false;
    inflateReset2(&strm_, 31);
    return;
  }
  raw_ = true;
  inflateReset2(&strm_, -15);
  out_ = from->out;
  next_read_ = from->in - (from->bits > 0 ? 1 : 0);
  if (from->bits > 0) {
    if (!fill_()) fail_(truncated);
    int const byte = *strm_.next_in;
    ++strm_.next_in;
    --strm_.avail_in;
    inflatePrime(&strm_, from->bits, byte >> (8 - from->bits));
  }
  if (!from->window.empty()) {
    inflateSetDictionary(&strm_, from->window.data(), static_cast<uInt>(from->window.size()));
  }
}

bool Inflater::next_member_() {
  member_end_ = false;
  // Inflating raw data leaves the member's CRC and length to step over.
  for (std::size_t trailer = raw_ ? 8 : 0; trailer > 0;) {
    if (strm_.avail_in == 0 && !fill_()) fail_(truncated);
    std::size_t const n = std::min<std::size_t>(trailer, strm_.avail_in);
    strm_.next_in += n;
    strm_.avail_in -= static_cast<uInt>(n);
    trailer -= n;
  }
  if (strm_.avail_in < 2) fill_();
  if (strm_.avail_in == 0) return false;
  if (strm_.next_in[0] == 0) {
    // Zero bytes after the last member (padding, as gzip accepts) end the data.
    do {
      if (std::any_of(strm_.next_in, strm_.next_in + strm_.avail_in,
                      [](unsigned char b) { return b != 0; })) {
        break;
      }
      strm_.avail_in = 0;
      if (!fill_()) return false;
    } while (true);
  }
  if (strm_.avail_in == 1 && strm_.next_in[0] == 0x1f) fail_(truncated);
  if (strm_.avail_in < 2 || strm_.next_in[0] != 0x1f || strm_.next_in[1] != 0x8b)
    fail_("corrupt gzip data (bytes after a member that begin no other member)");
  raw_ = false;
  inflateReset2(&strm_, 31);
  return true;
}

void Inflater::take_checkpoint_() {
  uInt have = 0;
  inflateGetDictionary(&strm_, nullptr, &have);
  if (!index_->wants(out_, have == 0)) return;
  Checkpoint point;
  point.out = out_;
  point.in = in_offset_();
  point.bits = strm_.data_type & 7;
  point.window.resize(have);
  inflateGetDictionary(&strm_, point.window.data(), &have);
  index_->add(std::move(point));
}

std::size_t Inflater::read(char* out, std::size_t capacity) {
  if (fault_) std::rethrow_exception(std::exchange(fault_, nullptr));
  std::size_t produced = 0;
  try {
    inflate_(out, capacity, produced);
  } catch (std::runtime_error const&) {
    if (produced == 0) throw;
    fault_ = std::current_exception();
  }
  return produced;
}

void Inflater::inflate_(char* out, std::size_t capacity, std::size_t& produced) {
  while (produced < capacity && !finished_) {
    if (member_end_ && !next_member_()) {
      finished_ = true;
      break;
    }
    if (strm_.avail_in == 0 && !fill_()) fail_(truncated);
    std::size_t const room = std::min<std::size_t>(capacity - produced, UINT_MAX);
    strm_.next_out = reinterpret_cast<unsigned char*>(out + produced);
    strm_.avail_out = static_cast<uInt>(room);
    uInt const before = strm_.avail_in;
    int const result = inflate(&strm_, index_ ? Z_BLOCK : Z_NO_FLUSH);
    std::size_t const made = room - strm_.avail_out;
    produced += made;
    out_ += static_cast<std::int64_t>(made);
    inflated_ += static_cast<std::int64_t>(made);
    if (result == Z_STREAM_END) {
      member_end_ = true;
      continue;
    }
    bool const stuck = result == Z_BUF_ERROR && made == 0 && strm_.avail_in == before &&
                       strm_.avail_in > 0 && strm_.avail_out > 0;
    if ((result != Z_OK && result != Z_BUF_ERROR) || stuck) {
      fail_(std::string("corrupt gzip data (") +
            (strm_.msg != nullptr ? strm_.msg : "inflate error " + std::to_string(result)) + ")");
    }
    // The start of a deflate block that is not the member's last one's end.
    if (index_ && (strm_.data_type & 128) != 0 && (strm_.data_type & 64) == 0) take_checkpoint_();
  }
}

bool Inflater::skip(std::int64_t count) {
  char scratch[1 << 14];
  while (count > 0) {
    std::size_t const n =
        read(scratch, static_cast<std::size_t>(std::min<std::int64_t>(count, sizeof scratch)));
    if (n == 0) return false;
    count -= static_cast<std::int64_t>(n);
  }
  return true;
}

IndexingTarget& indexing_target() noexcept {
  thread_local IndexingTarget target;
  return target;
}

}  // namespace kora::detail
