#include <gtest/gtest.h>

#include <sstream>
#include <streambuf>
#include <string>
#include <vector>

#include "kora/kernel/string_functions.hpp"

namespace {

using Lines = std::vector<std::string>;

struct Read {
  Lines lines;
  bool eof_after_last = false;  // end-of-file already reported with the last line
};

// Reads the whole stream the way the readers do.
Read read_all(std::istream& in) {
  Read r;
  std::string line;
  while (kora::getline(in, line)) {
    r.lines.push_back(line);
    r.eof_after_last = in.eof();
  }
  EXPECT_TRUE(in.eof() && in.fail() && line.empty());
  return r;
}

Read read_all(std::string const& text) {
  std::istringstream in(text);
  return read_all(in);
}

TEST(Getline, LineEndConventions) {
  struct Case {
    std::string text;
    Lines lines;
    bool eof_after_last;
  };
  Lines const four{"abc", "", "de f", "g"};
  Case const cases[] = {
      {"abc\n\nde f\ng\n", four, false},
      {"abc\r\n\r\nde f\r\ng\r\n", four, false},
      {"abc\r\rde f\rg\r", four, false},
      {"abc\r\n\rde f\ng\r", four, false},
      {"one\ntwo", {"one", "two"}, true},  // the last line without a line end
      {"a\n\n\n", {"a", "", ""}, false},   // empty lines at the end are kept
      {"", {}, false},
      {std::string("a\tb\0c\fd\n", 8), {std::string("a\tb\0c\fd", 7)}, false},
  };
  for (Case const& c : cases) {
    Read const r = read_all(c.text);
    EXPECT_EQ(r.lines, c.lines) << ::testing::PrintToString(c.text);
    EXPECT_EQ(r.eof_after_last, c.eof_after_last) << ::testing::PrintToString(c.text);
  }
  // Line ends at every offset around the 16-byte blocks the scanner inspects at once.
  for (std::size_t len = 0; len <= 40; ++len)
    for (char const* end : {"\n", "\r", "\r\n"})
      ASSERT_EQ(read_all(std::string(len, 'x') + end + "y").lines,
                (Lines{std::string(len, 'x'), "y"}))
          << len;
}

TEST(Getline, StreamStateAndPositions) {
  std::istringstream in("ab\r\ncd\ref\ngh");
  std::string line;
  for (int after : {4, 7, 10}) {
    kora::getline(in, line);
    EXPECT_EQ(in.tellg(), after);  // the start of the next line
  }
  std::istringstream failed("abc\n");
  failed.setstate(std::ios::failbit);
  EXPECT_FALSE(kora::getline(failed, line));  // a failed stream is not read
  std::istringstream throwing("");
  throwing.exceptions(std::ios::failbit);
  EXPECT_THROW(kora::getline(throwing, line), std::ios_base::failure);
}

// A stream buffer with a tiny get area (chunk > 0), so that lines and CR LF pairs straddle
// refills, or with none at all (chunk 0): every character comes through uflow.
class TinyBuffer : public std::streambuf {
 public:
  TinyBuffer(std::string text, std::size_t chunk) : text_(std::move(text)), chunk_(chunk) {}

 protected:
  int_type underflow() override {
    if (pos_ >= text_.size()) return traits_type::eof();
    if (chunk_ == 0) return traits_type::to_int_type(text_[pos_]);
    std::size_t const n = std::min(chunk_, text_.size() - pos_);
    setg(text_.data() + pos_, text_.data() + pos_, text_.data() + pos_ + n);
    pos_ += n;
    return traits_type::to_int_type(*gptr());
  }
  int_type uflow() override {
    if (chunk_ != 0) return std::streambuf::uflow();
    return pos_ < text_.size() ? traits_type::to_int_type(text_[pos_++]) : traits_type::eof();
  }

 private:
  std::string text_;
  std::size_t chunk_;
  std::size_t pos_ = 0;
};

TEST(Getline, LinesStraddlingBufferRefills) {
  std::string const text = "first line\r\nsecond\rthird line is longer than sixteen\n\nlast";
  Lines const expected{"first line", "second", "third line is longer than sixteen", "", "last"};
  for (std::size_t chunk = 0; chunk <= 20; ++chunk) {
    TinyBuffer buffer(text, chunk);
    std::istream in(&buffer);
    EXPECT_EQ(read_all(in).lines, expected) << "chunk " << chunk;
  }
}

}  // namespace
