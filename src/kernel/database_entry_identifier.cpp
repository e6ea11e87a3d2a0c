#include "kora/kernel/database_entry_identifier.hpp"

#include <algorithm>
#include <ostream>
#include <stdexcept>

namespace kora {

DatabaseEntryIdentifier::DatabaseEntryIdentifier(std::string const& text) : text_(text) {
  if (text_.size() > static_cast<std::size_t>(maximum_length_)) {
    throw std::invalid_argument("DatabaseEntryIdentifier: identifier longer than " +
                                std::to_string(maximum_length_) + " characters");
  }
  if (text_.find_first_of(std::string_view("\r\n\0", 3)) != std::string::npos) {
    throw std::invalid_argument(
        "DatabaseEntryIdentifier: identifier contains a line break or a NUL character");
  }
}

std::ostream& operator<<(std::ostream& os, DatabaseEntryIdentifier const& id) {
  return os << id.str();
}

bool CaseInsensitiveStringLess::operator()(std::string_view a, std::string_view b) const noexcept {
  auto const fold = [](char c) {
    return static_cast<unsigned char>((c >= 'A' && c <= 'Z') ? c - 'A' + 'a' : c);
  };
  return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                      [&](char x, char y) { return fold(x) < fold(y); });
}

}  // namespace kora
