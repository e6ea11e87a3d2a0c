#include "kora/framework/input_file.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>

#include "framework/gzip.hpp"

namespace kora {

namespace {

// An open file descriptor, closed with its owner.
class Descriptor {
 public:
  explicit Descriptor(std::string const& file_name)
      : fd_(::open(file_name.c_str(), O_RDONLY | O_CLOEXEC)) {}
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  Descriptor(Descriptor const&) = delete;
  Descriptor& operator=(Descriptor const&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

// The text of a gzip file, inflated into a large get area: readers take it a buffer at a
// time (kora::getline and read work on the get area), never a virtual call per character.
// Positions are offsets in the text. Seeking within the get area moves in it; elsewhere
// inflating starts again from the nearest checkpoint before the target, when the file's index
// has one, else from the start, and reads up to it. Output is only ever the buffer's size
// ahead of what the reader has taken.
class InflateBuffer : public std::streambuf {
 public:
  InflateBuffer(std::unique_ptr<Descriptor> file, std::string const& file_name)
      : file_(std::move(file)),
        inflater_(file_->get(), file_name),
        buffer_(std::make_unique_for_overwrite<char[]>(size)) {
    detail::IndexingTarget const& target = detail::indexing_target();
    if (target.file_name != nullptr && *target.file_name == file_name && target.index) {
      index_ = target.index;
      inflater_.record_into(index_);
    }
    setg(buffer_.get(), buffer_.get(), buffer_.get());
  }

  static constexpr std::size_t size = std::size_t(1) << 18;

 protected:
  int_type underflow() override {
    if (gptr() < egptr()) return traits_type::to_int_type(*gptr());
    std::size_t const n = inflater_.read(buffer_.get(), size);
    setg(buffer_.get(), buffer_.get(), buffer_.get() + n);
    if (n == 0) {
      if (index_ && !index_->complete()) index_->complete(inflater_.position());
      return traits_type::eof();
    }
    return traits_type::to_int_type(*gptr());
  }

  pos_type seekoff(off_type offset, std::ios_base::seekdir direction,
                   std::ios_base::openmode which) override {
    if ((which & std::ios_base::in) == 0) return pos_type(off_type(-1));
    if (direction == std::ios_base::cur) return seekpos(pos_type(here_() + offset), which);
    if (direction == std::ios_base::beg) return seekpos(pos_type(offset), which);
    return pos_type(off_type(-1));
  }

  pos_type seekpos(pos_type position, std::ios_base::openmode which) override {
    std::int64_t const target = off_type(position);
    if ((which & std::ios_base::in) == 0 || target < 0) return pos_type(off_type(-1));
    std::int64_t const area_start = inflater_.position() - (egptr() - eback());
    if (target >= area_start && target <= inflater_.position()) {
      setg(eback(), eback() + (target - area_start), egptr());
      return position;
    }
    if (target < area_start) {
      inflater_.start(index_ && index_->complete() ? index_->at_or_before(target) : nullptr);
    }
    setg(buffer_.get(), buffer_.get(), buffer_.get());
    if (!inflater_.skip(target - inflater_.position())) return pos_type(off_type(-1));
    return position;
  }

 private:
  std::int64_t here_() const { return inflater_.position() - (egptr() - gptr()); }

  std::unique_ptr<Descriptor> file_;
  detail::Inflater inflater_;
  std::unique_ptr<char[]> buffer_;
  std::shared_ptr<detail::GzipIndex> index_;  // the index this pass records, if any
};

}  // namespace

InputFile::InputFile(std::string const& file_name) : std::istream(nullptr) {
  auto file = std::make_unique<Descriptor>(file_name);
  if (file->get() >= 0 && detail::compression_of(file->get()) != detail::Compression::none) {
    buffer_ = std::make_unique<InflateBuffer>(std::move(file), file_name);
    open_ = compressed_ = true;
    rdbuf(buffer_.get());
    exceptions(std::ios_base::badbit);
    return;
  }
  file.reset();
  auto plain = std::make_unique<std::filebuf>();
  open_ = plain->open(file_name, std::ios_base::in | std::ios_base::binary) != nullptr;
  buffer_ = std::move(plain);
  rdbuf(buffer_.get());
  if (!open_) setstate(std::ios_base::failbit);
}

InputFile::~InputFile() = default;

bool is_gzip_file(std::string const& file_name) {
  Descriptor const file(file_name);
  return file.get() >= 0 && detail::compression_of(file.get()) != detail::Compression::none;
}

std::string format_extension(std::string const& file_name) {
  std::filesystem::path path(file_name);
  std::string extension = path.extension().string();
  std::string lower = extension;
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (lower == ".gz") extension = path.stem().extension().string();
  return extension.empty() ? extension : extension.substr(1);
}

}  // namespace kora
