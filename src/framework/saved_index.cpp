// Entry indexes saved beside their files, so that a large file opens without a pass over it.
//
// The saved file holds, in this order (integers little-endian):
//   "KORAIDX" and a format version byte
//   u32 key length, the key (the format and the options the index was made with), zero
//     bytes up to a multiple of 8 bytes from the start
//   u64 size, i64 modification time (ns), u64 checksum of the first and last blocks: the
//     indexed file as it was examined before indexing
//   u64 n, then n i64 entry starts, n u64 ends of the identifiers in the names, the names,
//     zero bytes up to a multiple of 8
//   for a gzip file: u64 length of the text, u64 m, then m decompression checkpoints, each
//     i64 text offset, i64 compressed offset, u64 bits, u64 window length and the window,
//     zero bytes up to a multiple of 8
// Starts are offsets in the text (the inflated text of a gzip file). Loading maps the file into
// memory and uses the starts, ends and names where they lie (no copy, so a file of millions of
// entries opens in milliseconds); every count is checked against the file's length and every
// identifier and start checked before the index is used: a damaged or foreign file is ignored like
// a missing one.

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "framework/gzip.hpp"
#include "kora/framework/flat_file_database.hpp"
#include "kora/kernel/database_entry_identifier.hpp"

namespace kora {

namespace {

constexpr char magic[8] = {'K', 'O', 'R', 'A', 'I', 'D', 'X', 2};

// The longest window a checkpoint can need: what deflate may refer back to.
constexpr std::uint64_t max_window = 32768;

void put(std::string& out, std::uint64_t value) {
  for (int k = 0; k < 8; ++k)
    out += static_cast<char>((value >> (8 * k)) & 0xff);
}

// A saved index mapped into memory, unmapped with the last index that uses it.
class Mapping {
 public:
  explicit Mapping(std::string const& name) {
    int const fd = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return;
    struct stat s {};
    if (::fstat(fd, &s) == 0 && S_ISREG(s.st_mode) && s.st_size > 0) {
      void* const at =
          ::mmap(nullptr, static_cast<std::size_t>(s.st_size), PROT_READ, MAP_PRIVATE, fd, 0);
      if (at != MAP_FAILED) {
        data_ = static_cast<char const*>(at);
        size_ = static_cast<std::size_t>(s.st_size);
      }
    }
    ::close(fd);
  }
  ~Mapping() {
    if (data_ != nullptr) ::munmap(const_cast<char*>(data_), size_);
  }
  Mapping(Mapping const&) = delete;
  Mapping& operator=(Mapping const&) = delete;
  std::string_view bytes() const { return {data_, size_}; }

 private:
  char const* data_ = nullptr;
  std::size_t size_ = 0;
};

// Reads the mapped bytes in order; every read checks that the bytes are there.
class Cursor {
 public:
  explicit Cursor(std::string_view bytes) : bytes_(bytes) {}
  bool take(std::size_t count, std::string_view& out) {
    if (count > bytes_.size() - at_) return false;
    out = bytes_.substr(at_, count);
    at_ += count;
    return true;
  }
  bool number(std::uint64_t& value, int size = 8) {
    std::string_view b;
    if (!take(static_cast<std::size_t>(size), b)) return false;
    value = 0;
    for (int k = size - 1; k >= 0; --k)
      value = (value << 8) | static_cast<unsigned char>(b[static_cast<std::size_t>(k)]);
    return true;
  }
  // `count` 64-bit values where they lie (8-byte aligned in the file, as the map is).
  template <class T>
  bool array(std::uint64_t count, std::span<T const>& out) {
    static_assert(sizeof(T) == 8 && std::endian::native == std::endian::little);
    std::string_view b;
    if (count > (bytes_.size() - at_) / 8 || at_ % 8 != 0 ||
        !take(static_cast<std::size_t>(count) * 8, b))
      return false;
    out = std::span<T const>(reinterpret_cast<T const*>(b.data()), static_cast<std::size_t>(count));
    return true;
  }
  std::size_t at() const { return at_; }
  // Skips the zero bytes up to the next multiple of 8.
  bool align() {
    std::string_view padding;
    return take((8 - at_ % 8) % 8, padding);
  }

 private:
  std::string_view bytes_;
  std::size_t at_ = 0;
};

// The text length and checkpoints of a gzip file's saved index, checked: offsets in order and
// within the text and the compressed file, bit counts and windows as deflate has them.
bool load_checkpoints(Cursor& in, std::uint64_t compressed_size, std::uint64_t& text_size,
                      std::vector<detail::Checkpoint>& points) {
  std::uint64_t count = 0;
  if (!in.number(text_size) || !in.number(count) ||
      text_size > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
    return false;
  std::int64_t last_out = -1;
  for (std::uint64_t k = 0; k < count; ++k) {
    std::uint64_t out = 0;
    std::uint64_t at = 0;
    std::uint64_t bits = 0;
    std::uint64_t length = 0;
    std::string_view window;
    if (!in.number(out) || !in.number(at) || !in.number(bits) || !in.number(length) ||
        out > text_size || at > compressed_size || bits > 7 || length > max_window ||
        static_cast<std::int64_t>(out) <= last_out ||
        !in.take(static_cast<std::size_t>(length), window) || !in.align())
      return false;
    last_out = static_cast<std::int64_t>(out);
    detail::Checkpoint& point = points.emplace_back();
    point.out = static_cast<std::int64_t>(out);
    point.in = static_cast<std::int64_t>(at);
    point.bits = static_cast<int>(bits);
    point.window.assign(window.begin(), window.end());
  }
  return true;
}

}  // namespace

std::string saved_index_name(std::string const& file_name) {
  return file_name + ".kora-index";
}

std::optional<detail::EntryIndex> detail::load_saved_index(IndexedFile const& file,
                                                           std::string const& key) {
  std::optional<std::uint64_t> const checksum = file.checksum();
  FileState const& state = file.state();
  if (!checksum || state.kind != FileState::regular) return std::nullopt;
  auto mapping = std::make_shared<Mapping const>(saved_index_name(file.file_name()));
  Cursor in(mapping->bytes());
  std::string_view head;
  std::string_view saved_key;
  std::string_view padding;
  std::uint64_t key_size = 0;
  std::uint64_t size = 0;
  std::uint64_t modified = 0;
  std::uint64_t sum = 0;
  std::uint64_t count = 0;
  if (!in.take(sizeof magic, head) || head != std::string_view(magic, sizeof magic) ||
      !in.number(key_size, 4) || key_size != key.size() ||
      !in.take(static_cast<std::size_t>(key_size), saved_key) || saved_key != key ||
      !in.take((8 - in.at() % 8) % 8, padding) || !in.number(size) || !in.number(modified) ||
      !in.number(sum) || size != state.size ||
      static_cast<std::int64_t>(modified) != state.modified || sum != *checksum ||
      !in.number(count))
    return std::nullopt;
  std::span<std::int64_t const> starts;
  std::span<std::uint64_t const> name_ends;
  if (!in.array(count, starts) || !in.array(count, name_ends)) return std::nullopt;
  std::string_view names;
  if (!in.take(name_ends.empty() ? 0
                                 : static_cast<std::size_t>(std::min<std::uint64_t>(
                                       name_ends.back(), mapping->bytes().size())),
               names) ||
      !in.align())
    return std::nullopt;
  // The identifiers must be identifiers, and the starts within the text.
  std::uint64_t previous = 0;
  for (std::uint64_t const end : name_ends) {
    if (end < previous || end > names.size() ||
        end - previous > static_cast<std::uint64_t>(DatabaseEntryIdentifier::maximum_length_))
      return std::nullopt;
    previous = end;
  }
  if (previous != names.size()) return std::nullopt;
  std::uint64_t text_size = size;
  std::vector<detail::Checkpoint> points;
  if (file.compressed() && !load_checkpoints(in, size, text_size, points)) return std::nullopt;
  if (in.at() != mapping->bytes().size()) return std::nullopt;
  for (char const c : {'\r', '\n', '\0'}) {
    if (std::memchr(names.data(), c, names.size()) != nullptr) return std::nullopt;
  }
  for (std::int64_t const start : starts) {
    if (start < 0 || static_cast<std::uint64_t>(start) > text_size) return std::nullopt;
  }
  if (file.compressed())
    file.gzip_index()->restore(std::move(points), static_cast<std::int64_t>(text_size));
  return EntryIndex(std::move(mapping), starts, name_ends, names);
}

void detail::save_index(IndexedFile const& file, std::string const& key, EntryIndex const& index) {
  std::string const target = saved_index_name(file.file_name());
  std::optional<std::uint64_t> const checksum = file.checksum();
  if (!checksum) throw database_error(file.file_name() + ": cannot be read");
  std::string out(magic, sizeof magic);
  std::uint32_t const key_size = static_cast<std::uint32_t>(key.size());
  for (int k = 0; k < 4; ++k)
    out += static_cast<char>((key_size >> (8 * k)) & 0xff);
  out += key;
  out.append((8 - out.size() % 8) % 8, '\0');
  put(out, file.state().size);
  put(out, static_cast<std::uint64_t>(file.state().modified));
  put(out, *checksum);
  put(out, index.size());
  out.reserve(out.size() + 16 * index.size() + index.names().size());
  for (std::int64_t const start : index.starts())
    put(out, static_cast<std::uint64_t>(start));
  for (std::uint64_t const end : index.name_ends())
    put(out, end);
  out += index.names();
  out.append((8 - out.size() % 8) % 8, '\0');
  if (detail::GzipIndex const* gzip = file.gzip_index()) {
    put(out, static_cast<std::uint64_t>(gzip->size()));
    put(out, gzip->points().size());
    for (detail::Checkpoint const& point : gzip->points()) {
      put(out, static_cast<std::uint64_t>(point.out));
      put(out, static_cast<std::uint64_t>(point.in));
      put(out, static_cast<std::uint64_t>(point.bits));
      put(out, point.window.size());
      out.append(point.window.begin(), point.window.end());
      out.append((8 - out.size() % 8) % 8, '\0');
    }
  }

  // Through a temporary file beside the target, so that a reader never finds half of it.
  std::random_device random;
  char suffix[24];
  std::snprintf(suffix, sizeof suffix, ".%08x.tmp", static_cast<unsigned>(random()));
  std::string const temporary = target + suffix;
  int const fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (fd < 0) throw database_error(target + ": cannot write: " + std::strerror(errno));
  std::size_t done = 0;
  while (done < out.size()) {
    ssize_t const n = ::write(fd, out.data() + done, out.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += static_cast<std::size_t>(n);
  }
  int const error = done < out.size() ? errno : 0;
  if (::close(fd) != 0 || done < out.size() ||
      std::rename(temporary.c_str(), target.c_str()) != 0) {
    int const cause = error != 0 ? error : errno;
    std::remove(temporary.c_str());
    throw database_error(target + ": cannot write: " + std::strerror(cause));
  }
}

}  // namespace kora
