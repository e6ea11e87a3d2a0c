#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <streambuf>
#include <string>
#include <vector>

#include "kora/kernel/string_functions.hpp"

namespace {

struct Read {
  std::vector<std::string> lines;
  bool eof_after_last = false;  // end-of-file already reported with the last line
};

// Reads the whole stream the way the readers do, remembering whether end-of-file was
// reported together with the last line.
Read read_all(std::istream& in) {
  Read r;
  std::string line;
  while (kora::getline(in, line)) {
    r.lines.push_back(line);
    r.eof_after_last = in.eof();
  }
  EXPECT_TRUE(in.eof());
  EXPECT_TRUE(in.fail());
  EXPECT_TRUE(line.empty());
  return r;
}

Read read_all(std::string const& text) {
  std::istringstream in(text);
  return read_all(in);
}

using Lines = std::vector<std::string>;

TEST(Getline, EveryLineEndConventionGivesTheSameLines) {
  Lines const expected{"abc", "", "de f", "g"};
  EXPECT_EQ(read_all("abc\n\nde f\ng\n").lines, expected);
  EXPECT_EQ(read_all("abc\r\n\r\nde f\r\ng\r\n").lines, expected);
  EXPECT_EQ(read_all("abc\r\rde f\rg\r").lines, expected);
  EXPECT_EQ(read_all("abc\r\n\rde f\ng\r").lines, expected);
}

TEST(Getline, LastLineWithoutLineEndIsReturnedWithEndOfFile) {
  Read const r = read_all("one\ntwo");
  EXPECT_EQ(r.lines, (Lines{"one", "two"}));
  EXPECT_TRUE(r.eof_after_last);

  Read const terminated = read_all("one\ntwo\n");
  EXPECT_EQ(terminated.lines, (Lines{"one", "two"}));
  EXPECT_FALSE(terminated.eof_after_last);
}

TEST(Getline, EmptyLinesAtTheEndAreKept) {
  EXPECT_EQ(read_all("a\n\n\n").lines, (Lines{"a", "", ""}));
  EXPECT_EQ(read_all("a\r\n\r\n").lines, (Lines{"a", ""}));
  EXPECT_EQ(read_all("a\r\r").lines, (Lines{"a", ""}));
  EXPECT_EQ(read_all("\n").lines, (Lines{""}));
}

TEST(Getline, EmptyStreamFailsAtOnceWithAnEmptyLine) {
  std::istringstream in("");
  std::string line = "left over";
  EXPECT_FALSE(kora::getline(in, line));
  EXPECT_TRUE(line.empty());
  EXPECT_TRUE(in.eof());
}

TEST(Getline, LoneCarriageReturnAtEndIsOneLineEnd) {
  std::istringstream in("x\r");
  std::string line;
  ASSERT_TRUE(kora::getline(in, line));
  EXPECT_EQ(line, "x");
  EXPECT_FALSE(kora::getline(in, line));
}

TEST(Getline, OtherControlCharactersStayInTheLine) {
  EXPECT_EQ(read_all(std::string("a\tb\0c\fd\n", 8)).lines, (Lines{std::string("a\tb\0c\fd", 7)}));
}

TEST(Getline, StreamPositionAfterEachLineIsTheStartOfTheNext) {
  std::istringstream in("ab\r\ncd\ref\ngh");
  std::string line;
  kora::getline(in, line);
  EXPECT_EQ(in.tellg(), 4);
  kora::getline(in, line);
  EXPECT_EQ(in.tellg(), 7);
  kora::getline(in, line);
  EXPECT_EQ(in.tellg(), 10);
  EXPECT_EQ(in.get(), 'g');
}

TEST(Getline, FailedStreamIsNotRead) {
  std::istringstream in("abc\n");
  in.setstate(std::ios::failbit);
  std::string line = "x";
  EXPECT_FALSE(kora::getline(in, line));
  EXPECT_TRUE(line.empty());
  in.clear();
  EXPECT_TRUE(kora::getline(in, line));
  EXPECT_EQ(line, "abc");
}

// A stream buffer with a tiny get area, so that lines and CR LF pairs straddle refills.
class TinyBuffer : public std::streambuf {
 public:
  TinyBuffer(std::string text, std::size_t chunk) : text_(std::move(text)), chunk_(chunk) {}

 protected:
  int_type underflow() override {
    if (pos_ >= text_.size()) return traits_type::eof();
    std::size_t const n = std::min(chunk_, text_.size() - pos_);
    char* p = text_.data() + pos_;
    setg(p, p, p + n);
    pos_ += n;
    return traits_type::to_int_type(*p);
  }

 private:
  std::string text_;
  std::size_t chunk_;
  std::size_t pos_ = 0;
};

// A stream buffer with no get area at all: every character comes through uflow.
class UnbufferedBuffer : public std::streambuf {
 public:
  explicit UnbufferedBuffer(std::string text) : text_(std::move(text)) {}

 protected:
  int_type underflow() override {
    return pos_ < text_.size() ? traits_type::to_int_type(text_[pos_]) : traits_type::eof();
  }
  int_type uflow() override {
    return pos_ < text_.size() ? traits_type::to_int_type(text_[pos_++]) : traits_type::eof();
  }

 private:
  std::string text_;
  std::size_t pos_ = 0;
};

TEST(Getline, LinesStraddlingBufferRefills) {
  std::string const text = "first line\r\nsecond\rthird line is longer than sixteen\n\nlast";
  Lines const expected{"first line", "second", "third line is longer than sixteen", "", "last"};
  for (std::size_t chunk = 1; chunk <= 20; ++chunk) {
    TinyBuffer buffer(text, chunk);
    std::istream in(&buffer);
    EXPECT_EQ(read_all(in).lines, expected) << "chunk " << chunk;
  }
  UnbufferedBuffer unbuffered(text);
  std::istream in(&unbuffered);
  EXPECT_EQ(read_all(in).lines, expected);
}

TEST(Getline, LongLinesAndSimdBoundaries) {
  // Line ends at every offset around the 16-byte blocks the scanner inspects at once.
  for (std::size_t len = 0; len <= 40; ++len) {
    std::string const body(len, 'x');
    for (char const* end : {"\n", "\r", "\r\n"}) {
      Read const r = read_all(body + end + "y");
      ASSERT_EQ(r.lines, (Lines{body, "y"})) << "length " << len;
    }
  }
  std::string const big(1 << 20, 'z');
  EXPECT_EQ(read_all(big + "\r\n" + big).lines, (Lines{big, big}));
}

TEST(Getline, ReadsFilesOpenedInBinaryMode) {
  std::string const path = ::testing::TempDir() + "kora_getline_test.txt";
  {
    std::ofstream out(path, std::ios::binary);
    for (int i = 0; i < 5000; ++i)
      out << "line " << i << (i % 3 == 0 ? "\r\n" : i % 3 == 1 ? "\n" : "\r");
  }
  std::ifstream in(path, std::ios::binary);
  Read const r = read_all(in);
  ASSERT_EQ(r.lines.size(), 5000u);
  EXPECT_EQ(r.lines[0], "line 0");
  EXPECT_EQ(r.lines[4999], "line 4999");
  std::remove(path.c_str());
}

TEST(Getline, StreamThatThrowsOnFailureStillThrows) {
  std::istringstream in("");
  in.exceptions(std::ios::failbit);
  std::string line;
  EXPECT_THROW(kora::getline(in, line), std::ios_base::failure);
}

}  // namespace
