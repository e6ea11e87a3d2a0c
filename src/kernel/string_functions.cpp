#include "kora/kernel/string_functions.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <istream>
#include <limits>
#include <streambuf>
#include <system_error>

#include "kernel/line_reading.hpp"
#include "kernel/number_parsing.hpp"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace kora {

namespace {

// Reaches the get area of any stream buffer through pointers to its protected members, so
// that lines can be scanned in place instead of one character at a time.
struct GetArea : std::streambuf {
  static char* begin(std::streambuf& sb) { return (sb.*&GetArea::gptr)(); }
  static char* end(std::streambuf& sb) { return (sb.*&GetArea::egptr)(); }
  static void advance(std::streambuf& sb, std::ptrdiff_t n) {
    constexpr std::ptrdiff_t step = std::numeric_limits<int>::max();
    for (; n > step; n -= step)
      (sb.*&GetArea::gbump)(static_cast<int>(step));
    (sb.*&GetArea::gbump)(static_cast<int>(n));
  }
};

bool is_line_end(char c) noexcept {
  return c == '\n' || c == '\r';
}

}  // namespace

// First LF or CR in [p, end), or end.
char const* detail::find_line_end(char const* p, char const* end) noexcept {
#if defined(__SSE2__)
  __m128i const lf = _mm_set1_epi8('\n');
  __m128i const cr = _mm_set1_epi8('\r');
  while (end - p >= 16) {
    __m128i const chunk = _mm_loadu_si128(reinterpret_cast<__m128i const*>(p));
    int const mask =
        _mm_movemask_epi8(_mm_or_si128(_mm_cmpeq_epi8(chunk, lf), _mm_cmpeq_epi8(chunk, cr)));
    if (mask != 0) return p + __builtin_ctz(static_cast<unsigned>(mask));
    p += 16;
  }
#endif
  while (p != end && !is_line_end(*p))
    ++p;
  return p;
}

namespace {

// The line reader behind getline; `terminator` receives the length of the line end
// consumed (0 at the end of the stream, 1 for LF or CR, 2 for CR LF).
std::istream& read_line(std::istream& is, std::string& line, std::size_t& terminator) {
  terminator = 0;
  line.clear();
  std::istream::sentry sentry(is, true);
  if (!sentry) return is;

  std::streambuf& sb = *is.rdbuf();
  using traits = std::char_traits<char>;
  std::ios_base::iostate state = std::ios_base::goodbit;
  bool extracted = false;
  try {
    for (;;) {
      char* begin = GetArea::begin(sb);
      char* end = GetArea::end(sb);
      if (begin == end) {
        // Refill the buffer; a buffer without a get area hands out single characters.
        int const c = sb.sgetc();
        if (traits::eq_int_type(c, traits::eof())) {
          state |= std::ios_base::eofbit;
          break;
        }
        if (GetArea::begin(sb) == GetArea::end(sb)) {
          sb.sbumpc();
          extracted = true;
          char const ch = traits::to_char_type(c);
          if (ch == '\n') {
            terminator = 1;
            break;
          }
          if (ch == '\r') {
            terminator = 1;
            if (traits::eq_int_type(sb.sgetc(), '\n')) {
              sb.sbumpc();
              terminator = 2;
            }
            break;
          }
          line.push_back(ch);
        }
        continue;
      }
      char const* stop = detail::find_line_end(begin, end);
      line.append(begin, static_cast<std::size_t>(stop - begin));
      extracted = true;
      if (stop == end) {
        GetArea::advance(sb, end - begin);
        continue;
      }
      bool const cr = *stop == '\r';
      GetArea::advance(sb, stop - begin + 1);
      terminator = 1;
      if (cr && traits::eq_int_type(sb.sgetc(), '\n')) {
        sb.sbumpc();
        terminator = 2;
      }
      break;
    }
  } catch (...) {
    // A stream that asks for exceptions on badbit gets the stream buffer's own (a gzip
    // file's fault names the file), as the standard extractors pass it on.
    if ((is.exceptions() & std::ios_base::badbit) == 0) {
      is.setstate(std::ios_base::badbit);
    } else {
      try {
        is.setstate(std::ios_base::badbit);
      } catch (std::ios_base::failure const&) {
      }
      throw;
    }
  }
  if (!extracted) state |= std::ios_base::failbit;
  if (state != std::ios_base::goodbit) is.setstate(state);
  return is;
}

}  // namespace

std::istream& getline(std::istream& is, std::string& line) {
  std::size_t terminator = 0;
  return read_line(is, line, terminator);
}

std::istream& detail::getline_counted(std::istream& is, std::string& line, std::size_t& consumed) {
  std::size_t terminator = 0;
  read_line(is, line, terminator);
  consumed = line.size() + terminator;
  return is;
}

std::string_view trim_view(std::string_view text, std::string_view set) noexcept {
  // Sets are a few characters: comparing with each is cheaper than a search call per
  // character of the text.
  auto const in_set = [set](char c) {
    for (char s : set)
      if (s == c) return true;
    return false;
  };
  std::size_t first = 0;
  std::size_t last = text.size();
  while (first < last && in_set(text[first]))
    ++first;
  while (last > first && in_set(text[last - 1]))
    --last;
  return text.substr(first, last - first);
}

std::string trim(std::string_view text, std::string_view set) {
  return std::string(trim_view(text, set));
}

std::string strip(std::string_view text, std::string_view set) {
  return trim(text, set);
}

std::string truncate(std::string_view text, int n) {
  if (n <= 0) return {};
  return std::string(text.substr(0, static_cast<std::size_t>(n)));
}

std::string left_justify(std::string_view text, int width, char pad) {
  std::string out(text);
  if (width > 0 && out.size() < static_cast<std::size_t>(width)) out.resize(width, pad);
  return out;
}

std::string left_justify(std::string_view text, int min, int max, char pad) {
  std::string out = left_justify(text, min, pad);
  if (max >= 0 && out.size() > static_cast<std::size_t>(max)) out.resize(max);
  return out;
}

std::string right_justify(std::string_view text, int width, char pad) {
  if (width <= 0 || text.size() >= static_cast<std::size_t>(width)) return std::string(text);
  std::string out(static_cast<std::size_t>(width) - text.size(), pad);
  out.append(text);
  return out;
}

namespace {

template <class Field>
int split_into(std::string_view text, std::vector<Field>& fields, std::string_view separators,
               StringFunctionParameters::BlankFieldControl control) {
  fields.clear();
  bool const keep_blank = control == StringFunctionParameters::keep_blank_fields;
  std::size_t start = 0;
  for (;;) {
    std::size_t const stop = text.find_first_of(separators, start);
    std::string_view const field =
        text.substr(start, stop == std::string_view::npos ? std::string_view::npos : stop - start);
    if (keep_blank || !field.empty()) fields.emplace_back(field);
    if (stop == std::string_view::npos) break;
    start = stop + 1;
  }
  return static_cast<int>(fields.size());
}

}  // namespace

int split(std::string_view text, std::vector<std::string>& fields, std::string_view separators,
          StringFunctionParameters::BlankFieldControl control) {
  return split_into(text, fields, separators, control);
}

int split(std::string_view text, std::vector<std::string_view>& fields, std::string_view separators,
          StringFunctionParameters::BlankFieldControl control) {
  return split_into(text, fields, separators, control);
}

int string_to_int(std::string_view text, bool* ok) {
  int value = 0;
  bool const good = detail::parse_int(trim_view(text, " \t"), value);
  if (ok) *ok = good;
  return good ? value : 0;
}

int string_to_int(std::string_view text, bool& ok) {
  return string_to_int(text, &ok);
}

double string_to_double(std::string_view text, bool* ok) {
  double value = 0.0;
  bool const good = detail::parse_double(trim_view(text, " \t"), value);
  if (ok) *ok = good;
  return good ? value : 0.0;
}

double string_to_double(std::string_view text, bool& ok) {
  return string_to_double(text, &ok);
}

std::string int_to_string(int value) {
  char buffer[16];
  auto const result = std::to_chars(buffer, buffer + sizeof buffer, value);
  return std::string(buffer, result.ptr);
}

namespace {
char ascii_upper(char c) noexcept {
  return (c >= 'a' && c <= 'z') ? char(c - 'a' + 'A') : c;
}
char ascii_lower(char c) noexcept {
  return (c >= 'A' && c <= 'Z') ? char(c - 'A' + 'a') : c;
}
}  // namespace

std::string toupper(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(), ascii_upper);
  return out;
}

void lower_element_case(std::string& symbol) {
  if (symbol.empty()) return;
  symbol[0] = ascii_upper(symbol[0]);
  std::transform(symbol.begin() + 1, symbol.end(), symbol.begin() + 1, ascii_lower);
}

namespace detail {

LineScanner::LineScanner(std::istream& in, std::size_t block)
    : in_(in),
      buffer_(std::make_unique_for_overwrite<char[]>(block ? block : 1)),
      capacity_(block ? block : 1) {}

bool LineScanner::fill_() {
  if (exhausted_) return false;
  if (begin_ > 0) {
    std::memmove(buffer_.get(), buffer_.get() + begin_, end_ - begin_);
    end_ -= begin_;
    begin_ = 0;
  }
  if (end_ == capacity_) {
    auto larger = std::make_unique_for_overwrite<char[]>(2 * capacity_);
    std::memcpy(larger.get(), buffer_.get(), end_);
    buffer_ = std::move(larger);
    capacity_ *= 2;
  }
  in_.read(buffer_.get() + end_, static_cast<std::streamsize>(capacity_ - end_));
  auto const n = static_cast<std::size_t>(in_.gcount());
  end_ += n;
  if (n == 0) exhausted_ = true;
  return n != 0;
}

bool LineScanner::next(std::string_view& line, std::size_t& consumed) {
  std::size_t scanned = 0;  // bytes from begin_ known to hold no line end
  for (;;) {
    char const* const first = buffer_.get() + begin_;
    char const* const last = buffer_.get() + end_;
    char const* const stop = find_line_end(first + scanned, last);
    if (stop != last && !(*stop == '\r' && stop + 1 == last && !exhausted_)) {
      std::size_t const length = static_cast<std::size_t>(stop - first);
      std::size_t const terminator = (*stop == '\r' && stop + 1 != last && stop[1] == '\n') ? 2 : 1;
      line = std::string_view(first, length);
      consumed = length + terminator;
      begin_ += consumed;
      return true;
    }
    // No line end yet, or a CR whose LF may start the next block.
    scanned = static_cast<std::size_t>(stop - first);
    if (!fill_()) {
      if (begin_ == end_) return false;
      line = std::string_view(buffer_.get() + begin_, end_ - begin_);
      // A CR alone at the very end is the line's end.
      bool const cr = line.back() == '\r';
      if (cr) line.remove_suffix(1);
      consumed = line.size() + (cr ? 1 : 0);
      begin_ = end_;
      return true;
    }
  }
}

}  // namespace detail

}  // namespace kora
