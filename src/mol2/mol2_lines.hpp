#pragma once

// What the ATOM and BOND sections share: a list of line objects read by count, printed one
// a line, and compared pairwise.

#include <algorithm>
#include <istream>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "kernel/handle_arena.hpp"
#include "kora/kernel/handle.hpp"
#include "kora/kernel/molecule.hpp"
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
  // The lines are made in blocks: one allocation for many lines, not one each.
  HandleArena<Line> made(static_cast<std::size_t>(std::max(count, 0)));
  std::string buffer;
  THandle<Line> blank;
  for (int i = 0; i < count; ++i) {
    if (standard) {
      if (!is.good()) break;
      int const next = is.peek();
      if (next == '@' || next == std::char_traits<char>::eof()) break;
      auto line = made.make();
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
    auto line = made.make();
    line->read(is, buffer);
    lines.push_back(line);
  }
}

// The types `type` gives each subset (its atom or bond types), in subset order.
template <class Type>
std::vector<std::vector<std::string>> types_of_subsets(
    std::vector<THandle<MoleculeSubset>> const& subsets, Type type) {
  std::vector<std::vector<std::string>> types;
  types.reserve(subsets.size());
  for (THandle<MoleculeSubset> const& subset : subsets)
    types.push_back(type(*subset));
  return types;
}

// Throws std::invalid_argument "WHERE: N WHAT types for M WHAT" unless `given` types were
// given for `wanted` items (subsets, atoms or bonds).
inline void check_type_count(char const* where, char const* what, std::size_t given,
                             std::size_t wanted) {
  if (given == wanted) return;
  throw std::invalid_argument(std::string(where) + ": " + std::to_string(given) + " types for " +
                              std::to_string(wanted) + " " + what);
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
