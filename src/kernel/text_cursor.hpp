#pragma once

// Reads whitespace-separated fields from one line the way formatted stream extraction
// does (`line_stream >> id >> name >> x`), without a stream: numbers end where their
// characters end ("0.1234" read as an integer gives 0 and leaves ".1234" for the next
// field), and once a field fails every later field fails too. A failed field keeps the
// value it had. Whitespace is that of the C locale.

#include <string>
#include <string_view>

namespace kora::detail {

class TextCursor {
 public:
  explicit TextCursor(std::string_view text) : text_(text) {}

  bool read(int& value);
  bool read(double& value);
  bool read(std::string& word);

  bool failed() const { return failed_; }
  // What is left after the fields read so far.
  std::string_view rest() const { return text_.substr(position_); }

 private:
  bool skip_space();

  std::string_view text_;
  std::size_t position_ = 0;
  bool failed_ = false;
};

inline bool is_c_space(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

}  // namespace kora::detail
