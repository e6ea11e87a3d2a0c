#pragma once

// Line reading for entry indexes, which need the position of every line: counting the bytes
// each line takes spares a tellg (a system call on file streams) per line.

#include <cstddef>
#include <istream>
#include <memory>
#include <string>
#include <string_view>

namespace kora::detail {

// kora::getline, also giving the number of bytes the line took in the stream, its line end
// included.
std::istream& getline_counted(std::istream& is, std::string& line, std::size_t& consumed);

// The first LF or CR in [p, end), or end.
char const* find_line_end(char const* p, char const* end) noexcept;

// The lines of a whole stream, read in large blocks and handed out in place: for the scans
// that index a file, where a stream call and a copy per line would cost more than the scan.
// Line ends are those of kora::getline (LF, CR LF, or a lone CR); a last line without one is
// still a line, and nothing after the last line end is no line.
class LineScanner {
 public:
  explicit LineScanner(std::istream& in, std::size_t block = std::size_t(1) << 20);

  // The next line without its line end (valid until the next call) and the bytes it took
  // in the stream with its line end; false when the stream is exhausted.
  bool next(std::string_view& line, std::size_t& consumed);

 private:
  // Moves what is left to the front of the buffer (growing it when a line fills it) and
  // reads more; false when the stream gives nothing more.
  bool fill_();

  std::istream& in_;
  std::unique_ptr<char[]> buffer_;  // not zeroed: only bytes read are looked at
  std::size_t capacity_;
  std::size_t begin_ = 0;  // first byte not handed out
  std::size_t end_ = 0;    // end of the bytes read
  bool exhausted_ = false;
};

}  // namespace kora::detail
