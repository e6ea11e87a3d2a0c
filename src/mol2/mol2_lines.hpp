#pragma once

// What the ATOM and BOND sections share: a list of line objects read by count, printed one
// a line, and compared pairwise.

#include <istream>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "kora/kernel/handle.hpp"
#include "kora/kernel/string_functions.hpp"

namespace kora::detail {

// How many lines past the end of the stream a section may be short: a file cut off is read
// with its missing lines as defaults, but a count far beyond what the file holds would make
// a few bytes of input cost gigabytes. Beyond this many, and beyond as many as were read, the
// section is refused.
inline constexpr int missing_lines_allowed = 1000;

// Whether a line says nothing: empty, blanks only, or a "#" comment.
inline bool is_blank_or_comment(std::string const& line) {
  std::size_t const first = line.find_first_not_of(" \t\r");
  return first == std::string::npos || line[first] == '#';
}

// Reads `count` lines (none for 0 or less) into `lines`, reusing one line buffer. A count
// above `maximum` is refused before anything is allocated; lines past the end of the stream
// are one shared line of defaults, unless more are missing than missing_lines_allowed and
// than were read.
//
// With `standard`, blank and comment lines are passed over, and the section ends early, with
// fewer lines than counted, at the end of the stream or before a line beginning with "@" (the
// next section's header, left in the stream): a wrong count loses neither the next section
// nor adds lines of defaults.
template <class Line>
void read_section_lines(std::istream& is, int count, int maximum, char const* where,
                        char const* what, std::vector<THandle<Line>>& lines,
                        bool standard = false) {
  if (count > maximum) {
    throw std::runtime_error(std::string(where) + ": the molecule announces " +
                             int_to_string(count) + " " + what + ", more than the " +
                             int_to_string(maximum) + " a section may hold");
  }
  lines.clear();
  std::string buffer;
  THandle<Line> blank;
  for (int i = 0; i < count; ++i) {
    if (standard) {
      if (!is.good()) break;
      int const next = is.peek();
      if (next == '@' || next == std::char_traits<char>::eof()) break;
      auto line = make_handle<Line>();
      line->read(is, buffer);
      if (is_blank_or_comment(buffer)) {
        --i;
      } else {
        lines.push_back(std::move(line));
      }
      continue;
    }
    if (!is.good()) {
      int const missing = count - i;
      if (missing > missing_lines_allowed && missing > i) {
        throw std::runtime_error(std::string(where) + ": the file ends " + int_to_string(missing) +
                                 " " + what + " short of the " + int_to_string(count) +
                                 " the molecule announces");
      }
      if (!blank) {
        blank = make_handle<Line>();
        blank->read(is, buffer);
      }
      lines.push_back(blank);
      continue;
    }
    auto line = make_handle<Line>();
    line->read(is, buffer);
    lines.push_back(line);
  }
}

// Each line, with a line end after all but the last.
template <class Line>
void print_section_lines(std::ostream& os, std::vector<THandle<Line>> const& lines) {
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (i) os << '\n';
    lines[i]->print(os);
  }
}

template <class Line>
bool equal_section_lines(std::vector<THandle<Line>> const& a, std::vector<THandle<Line>> const& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (!(*a[i] == *b[i])) return false;
  }
  return true;
}

}  // namespace kora::detail
