#pragma once

/// \file
/// The name of a database entry, and the case-insensitive ordering used to look names up.

#include <cstddef>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

namespace kora {

/// An entry's name: text of at most maximum_length_ characters without line breaks (CR, LF)
/// or NUL characters. Blanks and tabs inside are allowed (molecule names have them) and the
/// empty text is allowed. Equality is exact.
class DatabaseEntryIdentifier {
 public:
  static constexpr int maximum_length_ = 256;

  DatabaseEntryIdentifier() = default;
  /// Throws std::invalid_argument for text that is too long or holds a CR, LF or NUL.
  explicit DatabaseEntryIdentifier(std::string const& text);
  explicit DatabaseEntryIdentifier(char const* text) : DatabaseEntryIdentifier(std::string(text)) {}

  std::string const& str() const noexcept { return text_; }
  bool empty() const noexcept { return text_.empty(); }

  friend bool operator==(DatabaseEntryIdentifier const&,
                         DatabaseEntryIdentifier const&) noexcept = default;
  friend auto operator<=>(DatabaseEntryIdentifier const&,
                          DatabaseEntryIdentifier const&) noexcept = default;

 private:
  std::string text_;
};

std::ostream& operator<<(std::ostream& os, DatabaseEntryIdentifier const& id);

/// A strict weak ordering of texts that ignores ASCII case ("abc" and "ABC" are equivalent).
struct CaseInsensitiveStringLess {
  using is_transparent = void;
  bool operator()(std::string_view a, std::string_view b) const noexcept;
  bool operator()(DatabaseEntryIdentifier const& a,
                  DatabaseEntryIdentifier const& b) const noexcept {
    return (*this)(std::string_view(a.str()), std::string_view(b.str()));
  }
};

}  // namespace kora

template <>
struct std::hash<kora::DatabaseEntryIdentifier> {
  std::size_t operator()(kora::DatabaseEntryIdentifier const& id) const noexcept {
    return std::hash<std::string>{}(id.str());
  }
};
