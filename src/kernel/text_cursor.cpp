#include "kernel/text_cursor.hpp"

#include <charconv>
#include <system_error>

#include "kernel/number_parsing.hpp"

namespace kora::detail {

namespace {

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

}  // namespace

bool TextCursor::skip_space() {
  if (failed_) return false;
  while (position_ < text_.size() && is_c_space(text_[position_]))
    ++position_;
  if (position_ == text_.size()) failed_ = true;
  return !failed_;
}

bool TextCursor::read(int& value) {
  if (!skip_space()) return false;
  std::size_t end = position_;
  bool const plus = text_[end] == '+';
  if (text_[end] == '+' || text_[end] == '-') ++end;
  std::size_t const digits = end;
  while (end < text_.size() && is_digit(text_[end]))
    ++end;
  if (end == digits) return failed_ = true, false;
  int parsed = 0;
  char const* first = text_.data() + position_ + (plus ? 1 : 0);
  auto const [ptr, ec] = std::from_chars(first, text_.data() + end, parsed);
  position_ = end;
  if (ec != std::errc() || ptr != text_.data() + end) return failed_ = true, false;
  value = parsed;
  return true;
}

bool TextCursor::read(double& value) {
  if (!skip_space()) return false;
  std::size_t end = position_;
  bool const plus = text_[end] == '+';
  if (text_[end] == '+' || text_[end] == '-') ++end;
  std::size_t mantissa_digits = 0;
  while (end < text_.size() && is_digit(text_[end]))
    ++end, ++mantissa_digits;
  if (end < text_.size() && text_[end] == '.') {
    ++end;
    while (end < text_.size() && is_digit(text_[end]))
      ++end, ++mantissa_digits;
  }
  if (mantissa_digits == 0) return failed_ = true, false;
  if (end < text_.size() && (text_[end] == 'e' || text_[end] == 'E')) {
    std::size_t e = end + 1;
    if (e < text_.size() && (text_[e] == '+' || text_[e] == '-')) ++e;
    std::size_t const exponent_digits = e;
    while (e < text_.size() && is_digit(text_[e]))
      ++e;
    if (e == exponent_digits) return position_ = e, failed_ = true, false;
    end = e;
  }
  double parsed = 0.0;
  char const* first = text_.data() + position_ + (plus ? 1 : 0);
  auto const [ptr, ec] = from_chars_double(first, text_.data() + end, parsed);
  position_ = end;
  if (ec != std::errc() || ptr != text_.data() + end) return failed_ = true, false;
  value = parsed;
  return true;
}

bool TextCursor::read(std::string& word) {
  if (!skip_space()) return false;
  std::size_t end = position_;
  while (end < text_.size() && !is_c_space(text_[end]))
    ++end;
  word.assign(text_.data() + position_, end - position_);
  position_ = end;
  return true;
}

}  // namespace kora::detail
