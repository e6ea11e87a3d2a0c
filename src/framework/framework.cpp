#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <limits>
#include <memory>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <vector>

#include "framework/gzip.hpp"
#include "kora/framework/file_format.hpp"
#include "kora/framework/flat_file_database.hpp"
#include "kora/framework/input_file.hpp"
#include "kora/framework/molecule_file.hpp"
#include "kora/kernel/string_functions.hpp"

namespace kora {

namespace {

// A read-only stream buffer over text already in memory.
class MemoryBuffer : public std::streambuf {
 public:
  MemoryBuffer(char* begin, char* end) { setg(begin, begin, end); }
};

}  // namespace

void MoleculeFile::read(std::string const& file_name) {
  InputFile in(file_name);
  // A directory opens as a stream that reads nothing; it must not read as an empty file.
  std::error_code ec;
  if (!in || std::filesystem::is_directory(file_name, ec)) {
    throw std::runtime_error("MoleculeFile::read: cannot open file " + file_name);
  }
  read(static_cast<std::istream&>(in));
}

namespace {

// Reads bytes [begin, begin + size) of an open file into `text`; false when the file ends
// before them or cannot be read.
bool read_at(int descriptor, std::int64_t begin, std::size_t size, std::string& text) {
  text.resize(size);
  std::size_t done = 0;
  while (done < size) {
    ssize_t const n = ::pread(descriptor, text.data() + done, size - done,
                              static_cast<off_t>(begin + static_cast<std::int64_t>(done)));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += static_cast<std::size_t>(n);
  }
  return true;
}

FileState state_of(struct stat const& s) noexcept {
  FileState state;
  state.kind = S_ISREG(s.st_mode) ? FileState::regular : FileState::other;
  state.size = static_cast<std::uintmax_t>(s.st_size);
  state.modified = static_cast<std::int64_t>(s.st_mtim.tv_sec) * 1'000'000'000 + s.st_mtim.tv_nsec;
  state.device = static_cast<std::uintmax_t>(s.st_dev);
  state.inode = static_cast<std::uintmax_t>(s.st_ino);
  return state;
}

// FNV-1a over the first and the last block of the first `size` bytes of a file (the whole
// of them when they are shorter than two blocks); false when they cannot be read.
bool checksum_of_ends(int descriptor, std::int64_t size, std::uint64_t& sum) {
  constexpr auto block = static_cast<std::int64_t>(detail::IndexedFile::checked_block);
  std::string bytes;
  std::uint64_t hash = 14695981039346656037ull;
  auto const add = [&](std::int64_t begin, std::int64_t end) {
    if (!read_at(descriptor, begin, static_cast<std::size_t>(end - begin), bytes)) return false;
    for (char const c : bytes) {
      hash ^= static_cast<unsigned char>(c);
      hash *= 1099511628211ull;
    }
    return true;
  };
  bool const read = size <= 2 * block ? add(0, size) : add(0, block) && add(size - block, size);
  sum = hash;
  return read;
}

}  // namespace

detail::IndexedFile::IndexedFile(std::string file_name)
    : file_name_(std::move(file_name)), state_(FileState::of(file_name_)), accepted_(state_) {
  if (state_.kind != FileState::regular) return;
  // A descriptor of its own: reading opens the file afresh, so that a file that cannot be
  // opened by then is reported as such.
  int const descriptor = ::open(file_name_.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) return;
  summed_ = checksum_of_ends(descriptor, static_cast<std::int64_t>(state_.size), checksum_);
  if (Compression const c = compression_of(descriptor); c != Compression::none)
    index_ = std::make_shared<GzipIndex>(c);
  ::close(descriptor);
}

detail::IndexedFile::~IndexedFile() {
  inflater_.reset();
  if (descriptor_ >= 0) ::close(descriptor_);
}

detail::IndexedFile::Indexing::Indexing(IndexedFile const& file)
    : previous_name_(indexing_target().file_name), previous_index_(indexing_target().index) {
  indexing_target() = {&file.file_name_, file.index_};
}

detail::IndexedFile::Indexing::~Indexing() {
  indexing_target() = {previous_name_, std::move(previous_index_)};
}

std::int64_t detail::IndexedFile::finish_indexing() {
  if (!index_) return static_cast<std::int64_t>(state_.size);
  if (!index_->complete()) {
    // The reader stopped early or read the file otherwise: one pass from the start checks
    // the whole of the compressed data and takes the checkpoints it did not.
    if (!open_()) throw std::runtime_error(file_name_ + ": cannot be opened");
    Inflater inflater(descriptor_, file_name_);
    inflater.record_into(index_);
    inflater.start(nullptr);
    inflater.skip(std::numeric_limits<std::int64_t>::max());
    index_->complete(inflater.position());
  }
  return index_->size();
}

std::int64_t detail::IndexedFile::inflated() const {
  return inflater_ ? inflater_->inflated() : 0;
}

detail::IndexedFile::Result detail::IndexedFile::read_text_(std::int64_t begin, std::int64_t end,
                                                            std::string& text) const {
  try {
    if (!inflater_) inflater_ = std::make_unique<Inflater>(descriptor_, file_name_);
    Checkpoint const* const point = index_->at_or_before(begin);
    std::int64_t const from = point != nullptr ? point->out : 0;
    // Entries read in order carry on from where the last one ended.
    std::int64_t const at = inflater_->position();
    if (!inflating_ || at > begin || at < from) {
      inflating_ = false;
      inflater_->start(point);
      inflating_ = true;
    }
    auto const size = static_cast<std::size_t>(end - begin);
    text.resize(size);
    if (inflater_->skip(begin - inflater_->position()) &&
        inflater_->read(text.data(), size) == size)
      return complete;
  } catch (std::runtime_error const&) {
    // The data inflated whole when it was indexed: it has changed since.
  }
  inflating_ = false;
  return changed;
}

bool detail::IndexedFile::open_() const {
  if (descriptor_ < 0) descriptor_ = ::open(file_name_.c_str(), O_RDONLY | O_CLOEXEC);
  return descriptor_ >= 0;
}

FileState detail::IndexedFile::current_state_() const {
  // Once the file is open, its descriptor is asked: no path to look up on every read. A
  // file that still has a name is the one the name leads to, or one that was moved, whose
  // bytes are still those indexed; once it has none (deleted, or replaced by another file
  // under its name) the name is asked, which tells a missing file from another one.
  if (descriptor_ >= 0) {
    struct stat s {};
    if (::fstat(descriptor_, &s) == 0 && s.st_nlink > 0) return state_of(s);
  }
  return FileState::of(file_name_);
}

bool detail::IndexedFile::holds_indexed_bytes_(FileState const& now) const {
  if (now == accepted_) return true;
  if (now.kind != FileState::regular || now.device != state_.device || now.inode != state_.inode ||
      now.size < state_.size || !summed_) {
    return false;
  }
  std::uint64_t sum = 0;
  if (!checksum_of_ends(descriptor_, static_cast<std::int64_t>(state_.size), sum) ||
      sum != checksum_) {
    return false;
  }
  accepted_ = now;
  return true;
}

detail::IndexedFile::Result detail::IndexedFile::read(std::int64_t begin, std::int64_t end,
                                                      std::string& text) const {
  FileState const now = current_state_();
  if (now != accepted_) ahead_.clear();
  if (now.kind == FileState::missing || !open_()) return missing;
  if (!holds_indexed_bytes_(now)) return changed;
  if (end <= begin) {
    text.clear();
    return complete;
  }
  if (index_) return read_text_(begin, end, text);
  if (read_plain_(begin, end, text)) return complete;
  // Shorter than indexed (truncated since it was examined) or unreadable.
  return FileState::of(file_name_).kind == FileState::missing ? missing : changed;
}

bool detail::IndexedFile::read_plain_(std::int64_t begin, std::int64_t end,
                                      std::string& text) const {
  // Blocks of 256 KiB, for entries well under that size and read in order.
  constexpr std::int64_t block = std::int64_t(1) << 18;
  bool const in_order = begin == last_end_;
  last_end_ = end;
  auto const held = static_cast<std::int64_t>(ahead_.size());
  if (begin < ahead_begin_ || end > ahead_begin_ + held) {
    ahead_.clear();
    auto const indexed = static_cast<std::int64_t>(state_.size);
    if (!in_order || end - begin > block / 4 || end > indexed) {
      return read_at(descriptor_, begin, static_cast<std::size_t>(end - begin), text);
    }
    if (!read_at(descriptor_, begin,
                 static_cast<std::size_t>(std::min(begin + block, indexed) - begin), ahead_)) {
      ahead_.clear();
      return read_at(descriptor_, begin, static_cast<std::size_t>(end - begin), text);
    }
    ahead_begin_ = begin;
  }
  text.assign(ahead_, static_cast<std::size_t>(begin - ahead_begin_),
              static_cast<std::size_t>(end - begin));
  return true;
}

std::vector<std::int64_t> detail::entry_ends(std::span<std::int64_t const> starts,
                                             std::int64_t size) {
  std::vector<std::int64_t> ends(starts.size());
  if (std::is_sorted(starts.begin(), starts.end())) {
    // Entries in file order, as indexes almost always give them: one pass from the end.
    std::int64_t next = size;
    for (std::size_t k = starts.size(); k-- > 0;) {
      ends[k] = std::max(next, starts[k]);
      if (k > 0 && starts[k - 1] < starts[k]) next = starts[k];
    }
    return ends;
  }
  std::vector<std::int64_t> sorted(starts.begin(), starts.end());
  std::sort(sorted.begin(), sorted.end());
  for (std::size_t k = 0; k < starts.size(); ++k) {
    auto const next = std::upper_bound(sorted.begin(), sorted.end(), starts[k]);
    ends[k] = next == sorted.end() ? std::max(starts[k], size) : *next;
  }
  return ends;
}

FileState FileState::of(std::string const& file_name) noexcept {
  struct stat s {};
  if (::stat(file_name.c_str(), &s) != 0) return {};
  return state_of(s);
}

bool TextIdentifiedFileFormat::identify(std::string const& file_name) const {
  InputFile in(file_name);
  if (!in) return false;
  // Read no more than the file holds, up to the limit: a plain file's size is asked, a gzip
  // file's text is read in blocks until it ends or reaches the limit.
  std::size_t wanted = identify_byte_limit;
  if (!in.compressed()) {
    in.seekg(0, std::ios::end);
    if (std::streamoff const end = in.tellg(); end >= 0) {
      wanted = std::min(wanted, static_cast<std::size_t>(end));
    }
    in.clear();
    in.seekg(0);
  }
  // Lines are examined as blocks arrive, so that a file is usually known from its first
  // block: the complete lines of what was read (up to the last line feed), then, once reading
  // ends, what remains.
  std::string text;
  std::size_t examined = 0;  // where the lines not yet examined begin
  unsigned int number = 0;   // lines examined
  std::string line;
  auto const examine = [&](std::size_t end) {
    MemoryBuffer buffer(text.data() + examined, text.data() + end);
    std::istream lines(&buffer);
    while (number < identify_line_limit && kora::getline(lines, line)) {
      if (examine_line(line, ++number)) return true;
    }
    examined = end;
    return false;
  };
  bool goes_on = false;
  try {
    constexpr std::size_t block = std::size_t(1) << 16;
    while (text.size() < wanted && number < identify_line_limit) {
      std::size_t const had = text.size();
      text.resize(std::min(wanted, had + block));
      in.read(text.data() + had, static_cast<std::streamsize>(text.size() - had));
      text.resize(had + static_cast<std::size_t>(in.gcount()));
      if (!in) break;
      if (std::size_t const last = text.rfind('\n');
          last != std::string::npos && last >= examined) {
        if (examine(last + 1)) return true;
      }
    }
    goes_on =
        text.size() == identify_byte_limit && in && in.peek() != std::char_traits<char>::eof();
  } catch (std::runtime_error const&) {
    // Corrupt or truncated compressed data: the text before it is still looked at, and
    // reading the file reports the fault.
  }
  std::size_t size = text.size();
  if (goes_on) {
    // The file goes on: leave out the last line, which may be cut.
    while (size > examined && text[size - 1] != '\n' && text[size - 1] != '\r')
      --size;
  }
  if (size > examined && examine(size)) return true;
  return false;
}

DatabaseEntryIdentifier FlatFileDatabaseReader::generate_identifier_from_index(int number) const {
  return DatabaseEntryIdentifier("ENTRY" + int_to_string(number));
}

}  // namespace kora
