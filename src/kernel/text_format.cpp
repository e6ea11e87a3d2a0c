#include "kernel/text_format.hpp"

#include <charconv>
#include <cmath>
#include <system_error>

namespace kora::detail {

void append_right(std::string& out, std::string_view text, int width, char fill) {
  if (width > 0 && text.size() < static_cast<std::size_t>(width)) {
    out.append(static_cast<std::size_t>(width) - text.size(), fill);
  }
  out.append(text);
}

void append_left(std::string& out, std::string_view text, int width, char fill) {
  out.append(text);
  if (width > 0 && text.size() < static_cast<std::size_t>(width)) {
    out.append(static_cast<std::size_t>(width) - text.size(), fill);
  }
}

void append_fixed(std::string& out, double value, int decimals, int width, char fill) {
  char buffer[400];
  auto result =
      std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed, decimals);
  if (result.ec != std::errc()) {
    // Only magnitudes beyond any coordinate get here; general notation always fits.
    result = std::to_chars(buffer, buffer + sizeof buffer, value);
  }
  append_right(out, std::string_view(buffer, static_cast<std::size_t>(result.ptr - buffer)), width,
               fill);
}

void append_int(std::string& out, long long value, int width, char fill) {
  char buffer[24];
  auto const result = std::to_chars(buffer, buffer + sizeof buffer, value);
  append_right(out, std::string_view(buffer, static_cast<std::size_t>(result.ptr - buffer)), width,
               fill);
}

}  // namespace kora::detail
