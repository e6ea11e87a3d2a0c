#include "kora/mdl/sdfile_database_reader.hpp"

#include <algorithm>
#include <array>
#include <fstream>
#include <stdexcept>
#include <string_view>

#include "kernel/line_reading.hpp"
#include "kora/kernel/string_functions.hpp"
#include "mdl/mdl_text.hpp"

namespace kora {

namespace {

// A record's identifier as an entry identifier: cut to the longest identifier allowed,
// and "UNKNWN" when the text is still refused (a NUL character).
DatabaseEntryIdentifier entry_identifier(std::string const& text) {
  try {
    return DatabaseEntryIdentifier(truncate(text, DatabaseEntryIdentifier::maximum_length_));
  } catch (std::invalid_argument const&) {
    return DatabaseEntryIdentifier("UNKNWN");
  }
}

// Whether a line carries the version stamp of a counts line (its first "V2000" or "V3000"
// at 0-based position 34). Most lines are rejected by the characters at 34.
bool is_stamped_counts_line(std::string_view line) {
  std::string_view const at = line.substr(std::min<std::size_t>(34, line.size()), 5);
  if (at == "V2000") return line.find("V2000") == 34;
  return at == "V3000" && line.find("V3000") == 34;
}

}  // namespace

bool SDfileDatabaseReader::set_entry_identifier(std::string const& line, std::string& identifier,
                                                bool codes_only) {
  identifier = "UNKNWN";
  std::string_view const text = trim_view(line, " \t\r\n");
  if (text.empty() || text.find('$') != std::string_view::npos) return false;
  if (text.size() == 10 && text.find_first_of("0123456789") == 6) {
    bool ok = false;
    int const number = string_to_int(text.substr(6, 2), ok);
    identifier = truncate(text, number < 1 ? 6 : 8);
    return true;
  }
  if (codes_only) return false;
  identifier = left_justify(text, 6, 8, '_');
  return true;
}

void SDfileDatabaseReader::parse(std::vector<DatabaseEntryIdentifier>& identifiers,
                                 std::vector<std::streampos>& positions) const {
  std::ifstream in(file_name(), std::ios::binary);
  if (!in) {
    throw std::runtime_error("SDfileDatabase::parse() couldn't retrieve entry " + file_name());
  }
  // Positions are counted from the bytes each line takes, not asked of the stream.
  std::streamoff position = 0;

  // Two lists are kept: records closed by "$$$$" after a counts line (written straight into
  // the caller's lists), and every "M  END" (one per record in a well-formed file). The
  // second is taken when the two differ in length. While every record has exactly one of
  // each, at the same start, the lists are equal and the second exists only as a count:
  // it is written out at the first record where they part.
  std::size_t const base = identifiers.size();
  bool parted = false;
  std::vector<DatabaseEntryIdentifier> end_identifiers;  // once parted
  std::vector<std::streampos> end_positions;
  std::vector<std::streamoff> record_ends;  // "M  END" starts of the current record
  auto const part = [&] {
    parted = true;
    end_identifiers.assign(identifiers.begin() + static_cast<std::ptrdiff_t>(base),
                           identifiers.end());
    end_positions.assign(positions.begin() + static_cast<std::ptrdiff_t>(base), positions.end());
  };
  auto const add_record_ends = [&](std::string const& id) {
    for (std::streamoff const at : record_ends) {
      end_positions.emplace_back(at);
      end_identifiers.push_back(entry_identifier(id));
    }
  };

  // The current record.
  std::streamoff start = position;
  std::string identifier = "UNKNWN";
  bool identifier_found = false;
  bool counts_seen = false;
  bool end_seen = false;
  // Starts of the last four lines, the number of lines of the record so far, and how many
  // of them, from its first, are blank: the name line is the third line before the counts
  // line, and only blank lines may come before the name line.
  std::array<std::streamoff, 4> line_starts{};
  long lines = 0;
  long leading_blanks = 0;

  detail::LineScanner lines_of(in);
  std::string_view line;
  std::size_t used = 0;
  while (lines_of.next(line, used)) {
    std::streamoff const line_start = position;
    position += static_cast<std::streamoff>(used);
    std::string_view const text = trim_view(line, ".\t\r\n");

    if (!identifier_found) {
      if (compliance_ == FileFormat::normalised_identifiers) {
        identifier_found = set_entry_identifier(std::string(text), identifier, false);
      } else if (!text.empty()) {
        identifier.assign(text);
        identifier_found = true;
      }
    }

    line_starts[static_cast<std::size_t>(lines % 4)] = line_start;
    ++lines;
    if (lines == leading_blanks + 1 && trim_view(line, " \t\r\n").empty()) ++leading_blanks;
    // Bond lines and data values look like counts lines too. A counts line without the
    // version stamp is taken only as the fourth line after the record's leading blank
    // lines; one with the stamp, anywhere before the record's "M  END".
    if (lines > 3 &&
        (is_stamped_counts_line(text) ? !end_seen : !counts_seen && lines - 4 <= leading_blanks) &&
        detail::is_counts_line(text)) {
      start = line_starts[static_cast<std::size_t>((lines - 4) % 4)];
      counts_seen = true;
    }

    if (detail::begins_with(text, "M  END")) {
      end_seen = true;
      record_ends.push_back(start);
    } else if (detail::begins_with(text, "$$$$")) {
      bool const same = counts_seen && record_ends.size() == 1 && record_ends.front() == start;
      if (!parted && !same) part();
      if (parted) add_record_ends(identifier);
      if (counts_seen) {
        positions.emplace_back(start);
        identifiers.push_back(entry_identifier(identifier));
      }
      record_ends.clear();
      start = position;
      identifier = "UNKNWN";
      identifier_found = false;
      counts_seen = false;
      end_seen = false;
      lines = 0;
      leading_blanks = 0;
    }
  }

  // A last record without "$$$$".
  if (!record_ends.empty()) {
    if (!parted) part();
    add_record_ends(identifier);
  }
  std::size_t const found = identifiers.size() - base;
  std::size_t const ended = parted ? end_identifiers.size() : found;
  if (found == 0 && ended == 0) {
    throw std::runtime_error(
        "SDfileDatabase::SDfileDatabase(const std::string& filename): could not read data in "
        "file.");
  }
  if (found != ended) {
    identifiers.resize(base);
    positions.resize(base);
    identifiers.insert(identifiers.end(), std::make_move_iterator(end_identifiers.begin()),
                       std::make_move_iterator(end_identifiers.end()));
    positions.insert(positions.end(), end_positions.begin(), end_positions.end());
  }
}

}  // namespace kora
