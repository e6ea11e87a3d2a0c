#pragma once

/// \file
/// A small wrapper over POSIX extended regular expressions (<regex.h>). Meant for the few
/// places that classify labels; never use it on a per-line path of a reader.

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kora {

/// The parts of a text that a search matched: part 0 is the whole match, part i the i-th
/// parenthesised subexpression. A part that did not take part in the match is unmatched.
class RegexResults {
 public:
  RegexResults() = default;

  std::size_t size() const noexcept { return parts_.size(); }
  bool empty() const noexcept { return parts_.empty(); }
  bool matched(std::size_t i) const noexcept { return i < parts_.size() && parts_[i].matched; }
  /// Offset of part i in the searched text; std::string::npos when unmatched.
  std::size_t position(std::size_t i) const noexcept;
  std::size_t length(std::size_t i) const noexcept;
  /// The text of part i; empty when unmatched.
  std::string str(std::size_t i = 0) const;
  std::string operator[](std::size_t i) const { return str(i); }

 private:
  friend class Regex;
  struct Part {
    std::size_t position = std::string::npos;
    std::size_t length = 0;
    bool matched = false;
  };
  std::string subject_;
  std::vector<Part> parts_;
};

class Regex {
 public:
  // Compilation flags (combine with |): the pattern is always POSIX extended.
  static constexpr unsigned int icase = 1u;    ///< ignore case
  static constexpr unsigned int newline = 2u;  ///< '.' and [^...] do not match a line end
  // Search flags.
  static constexpr unsigned int not_bol = 1u;  ///< the text does not start a line: ^ fails
  static constexpr unsigned int not_eol = 2u;  ///< the text does not end a line: $ fails

  /// Throws std::invalid_argument naming the pattern when it does not compile.
  explicit Regex(std::string const& pattern, unsigned int flags = 0);
  Regex(Regex const& other);
  Regex& operator=(Regex const& other);
  Regex(Regex&&) noexcept;
  Regex& operator=(Regex&&) noexcept;
  ~Regex();

  std::string const& pattern() const noexcept { return pattern_; }
  /// True when the pattern matches somewhere in `text`; fills `results` with the parts of
  /// the first match (and clears them when there is none). The text ends at its first NUL.
  bool search(std::string const& text, RegexResults& results, unsigned int flags = 0) const;
  bool search(std::string const& text, unsigned int flags = 0) const;

 private:
  struct Compiled;
  std::string pattern_;
  unsigned int flags_ = 0;
  std::unique_ptr<Compiled> compiled_;
};

}  // namespace kora
