#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <vector>

#include "kora/framework/file_format.hpp"
#include "kora/framework/flat_file_database.hpp"
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
  std::ifstream in(file_name, std::ios::binary);
  // A directory opens as a stream that reads nothing; it must not read as an empty file.
  std::error_code ec;
  if (!in || std::filesystem::is_directory(file_name, ec)) {
    throw std::runtime_error("MoleculeFile::read: cannot open file " + file_name);
  }
  read(static_cast<std::istream&>(in));
}

detail::FileBytes::~FileBytes() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

detail::FileBytes::Result detail::FileBytes::read(std::int64_t begin, std::int64_t end,
                                                  std::string& text) const {
  if (descriptor_ < 0) {
    descriptor_ = ::open(file_name_.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor_ < 0) return failure;
  }
  text.resize(static_cast<std::size_t>(end - begin));
  std::size_t done = 0;
  while (done < text.size()) {
    ssize_t const n = ::pread(descriptor_, text.data() + done, text.size() - done,
                              static_cast<off_t>(begin + static_cast<std::int64_t>(done)));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return failure;
    if (n == 0) {
      text.resize(done);
      return short_read;
    }
    done += static_cast<std::size_t>(n);
  }
  return complete;
}

FileState FileState::of(std::string const& file_name) noexcept {
  struct stat s {};
  if (::stat(file_name.c_str(), &s) != 0) return {};
  FileState state;
  state.kind = S_ISREG(s.st_mode) ? regular : other;
  state.size = static_cast<std::uintmax_t>(s.st_size);
  state.modified = static_cast<std::int64_t>(s.st_mtim.tv_sec) * 1'000'000'000 + s.st_mtim.tv_nsec;
  state.device = static_cast<std::uintmax_t>(s.st_dev);
  state.inode = static_cast<std::uintmax_t>(s.st_ino);
  return state;
}

bool TextIdentifiedFileFormat::identify(std::string const& file_name) const {
  std::ifstream in(file_name, std::ios::binary);
  if (!in) return false;
  // Read no more than the file holds, up to the limit.
  std::size_t wanted = identify_byte_limit;
  in.seekg(0, std::ios::end);
  if (std::streamoff const end = in.tellg(); end >= 0) {
    wanted = std::min(wanted, static_cast<std::size_t>(end));
  }
  in.clear();
  in.seekg(0);
  // Not zeroed first: only the bytes read are looked at.
  auto const text = std::make_unique_for_overwrite<char[]>(std::max<std::size_t>(wanted, 1));
  in.read(text.get(), static_cast<std::streamsize>(wanted));
  std::size_t size = static_cast<std::size_t>(in.gcount());
  if (size == identify_byte_limit && in.peek() != std::char_traits<char>::eof()) {
    // The file goes on: leave out the last line, which may be cut.
    while (size > 0 && text[size - 1] != '\n' && text[size - 1] != '\r')
      --size;
  }
  MemoryBuffer buffer(text.get(), text.get() + size);
  std::istream lines(&buffer);
  std::string line;
  for (unsigned int number = 1; number <= identify_line_limit && kora::getline(lines, line);
       ++number) {
    if (examine_line(line, number)) return true;
  }
  return false;
}

DatabaseEntryIdentifier FlatFileDatabaseReader::generate_identifier_from_index(int number) const {
  return DatabaseEntryIdentifier("ENTRY" + int_to_string(number));
}

}  // namespace kora
