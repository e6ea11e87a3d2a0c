#include "kora/mdl/sdfile_database_reader.hpp"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string_view>

#include "kernel/line_reading.hpp"
#include "kora/framework/input_file.hpp"
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

constexpr char const* cannot_open_message = "SDfileDatabase::parse() couldn't retrieve entry ";
constexpr char const* no_data_message =
    "SDfileDatabase::SDfileDatabase(const std::string& filename): could not read data in file.";

// The lines of an SD file, each with where it starts (counted from the bytes each line
// takes, not asked of the stream), and per record: the number of its lines so far, how many
// of them, from its first, are blank, and the starts and texts of its last four lines (the
// name line is the third line before the counts line).
class RecordLines {
 public:
  RecordLines(std::string const& file_name, bool keep_texts)
      : in_(file_name), lines_of_(in_), keep_texts_(keep_texts) {
    if (!in_) throw std::runtime_error(cannot_open_message + file_name);
  }

  // The next line; false at the end of the file.
  bool next() {
    std::size_t used = 0;
    if (!lines_of_.next(line_, used)) return false;
    start_ = end_;
    end_ += static_cast<std::streamoff>(used);
    // The trim set has a full stop where a blank would be expected; it is kept as it stands.
    text_ = trim_view(line_, ".\t\r\n");
    std::size_t const slot = static_cast<std::size_t>(lines_ % 4);
    starts_[slot] = start_;
    if (keep_texts_) texts_[slot].assign(text_);
    ++lines_;
    if (lines_ == leading_blanks_ + 1 && trim_view(line_, " \t\r\n").empty()) ++leading_blanks_;
    return true;
  }
  // A new record starts after the current line.
  void new_record() {
    lines_ = 0;
    leading_blanks_ = 0;
  }

  std::string_view line() const { return line_; }  // as read, without its line end
  std::string_view text() const { return text_; }  // trimmed of ".", tabs and line ends
  std::streamoff end() const { return end_; }      // where the next line starts
  long lines() const { return lines_; }
  // Whether the current line is where the record's counts line belongs: the fourth line
  // after its leading blank lines.
  bool fourth_line() const { return lines_ > 3 && lines_ - 4 <= leading_blanks_; }
  // The start and the text of the line `back` lines before the current one (0 to 3).
  std::streamoff start_before(long back) const {
    return starts_[static_cast<std::size_t>((lines_ - 1 - back) % 4)];
  }
  std::string const& text_before(long back) const {
    return texts_[static_cast<std::size_t>((lines_ - 1 - back) % 4)];
  }

 private:
  InputFile in_;
  detail::LineScanner lines_of_;
  bool keep_texts_;
  std::string_view line_;
  std::string_view text_;
  std::streamoff start_ = 0;
  std::streamoff end_ = 0;
  long lines_ = 0;
  long leading_blanks_ = 0;
  std::array<std::streamoff, 4> starts_{};
  std::array<std::string, 4> texts_;
};

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

namespace {

// Offers a line for a record's identifier: with normalised identifiers, set_entry_identifier;
// otherwise the first non-empty line as it stands. True when the identifier is found.
bool offer_identifier(FileFormat::AserCompliance compliance, std::string_view text,
                      std::string& identifier) {
  if (compliance == FileFormat::normalised_identifiers) {
    return SDfileDatabaseReader::set_entry_identifier(std::string(text), identifier, false);
  }
  if (text.empty()) return false;
  identifier.assign(text);
  return true;
}

// A counts line without the version stamp found among the lines after a block's "M  END":
// taken for the start of a block only when its first two columns hold the atom and bond
// counts and the next line fits (an atom line, with its decimal point, when it announces
// atoms), since stray numbers between data items look much the same.
bool has_atom_and_bond_counts(std::string_view line) {
  std::string_view const atoms = detail::column(line, 0, 3);
  std::string_view const bonds = detail::column(line, 3, 3);
  return !trim_view(atoms, " ").empty() && !trim_view(bonds, " ").empty();
}

}  // namespace

void SDfileDatabaseReader::parse(std::vector<DatabaseEntryIdentifier>& identifiers,
                                 std::vector<std::streampos>& positions) const {
  if (options_.standard()) {
    parse_standard_(identifiers, positions);
    return;
  }
  RecordLines lines(file_name(), false);

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
  std::streamoff start = 0;
  std::string identifier = "UNKNWN";
  bool identifier_found = false;
  bool counts_seen = false;
  bool end_seen = false;

  while (lines.next()) {
    std::string_view const text = lines.text();
    if (!identifier_found) identifier_found = offer_identifier(compliance_, text, identifier);
    // Bond lines and data values look like counts lines too. A counts line without the
    // version stamp is taken only as the fourth line after the record's leading blank
    // lines; one with the stamp, anywhere before the record's "M  END".
    if (lines.lines() > 3 &&
        (is_stamped_counts_line(text) ? !end_seen : !counts_seen && lines.fourth_line()) &&
        detail::is_counts_line(text)) {
      start = lines.start_before(3);
      counts_seen = true;
    }

    if (detail::begins_with(text, "M  END")) {
      end_seen = true;
      // One block per counts line: an "M  END" inside a data value ends no block.
      if (record_ends.empty() || record_ends.back() != start) record_ends.push_back(start);
    } else if (detail::begins_with(text, "$$$$")) {
      bool const same = counts_seen && record_ends.size() == 1 && record_ends.front() == start;
      if (!parted && !same) part();
      if (parted) add_record_ends(identifier);
      if (counts_seen) {
        positions.emplace_back(start);
        identifiers.push_back(entry_identifier(identifier));
      }
      record_ends.clear();
      start = lines.end();
      identifier = "UNKNWN";
      identifier_found = false;
      counts_seen = false;
      end_seen = false;
      lines.new_record();
    }
  }

  // A last record without "$$$$".
  if (!record_ends.empty()) {
    if (!parted) part();
    add_record_ends(identifier);
  }
  std::size_t const found = identifiers.size() - base;
  std::size_t const ended = parted ? end_identifiers.size() : found;
  if (found == 0 && ended == 0) throw std::runtime_error(no_data_message);
  if (found != ended) {
    identifiers.resize(base);
    positions.resize(base);
    identifiers.insert(identifiers.end(), std::make_move_iterator(end_identifiers.begin()),
                       std::make_move_iterator(end_identifiers.end()));
    positions.insert(positions.end(), end_positions.begin(), end_positions.end());
  }
}

// The standard index, one entry per MOL block. Lines are read in three phases per block:
// the header (up to its counts line), the connection table (up to "M  END") and the data
// items (up to "$$$$"). In the data phase the items are followed as the reader takes them
// (a ">" line opens one, an empty line closes it), so that lines inside a value never start
// a block.
void SDfileDatabaseReader::parse_standard_(std::vector<DatabaseEntryIdentifier>& identifiers,
                                           std::vector<std::streampos>& positions) const {
  RecordLines lines(file_name(), true);
  std::size_t const base = identifiers.size();

  struct Name {
    std::string text = "UNKNWN";
    bool found = false;
  };
  enum class Phase { header, table, data };

  // The record since the last "$$$$".
  std::streamoff record_start = 0;
  Name record_name;
  bool record_has_block = false;
  bool end_without_block = false;  // an "M  END" that could end a block, before any
  Phase phase = Phase::header;
  // The block being read.
  bool block_open = false;
  std::streamoff block_start = 0;
  Name block_name;
  long block_counts_line = 0;
  // The data phase: whether a data item is open, and how many lines in a row stood outside
  // any item.
  bool inside = false;
  long outside = 0;
  // A block announced by an unstamped counts line, waiting for the line after it.
  bool pending = false;
  std::streamoff pending_start = 0;
  Name pending_name;
  bool pending_atoms = false;

  auto const close_block = [&] {
    if (!block_open) return;
    positions.emplace_back(block_start);
    identifiers.push_back(entry_identifier(block_name.text));
    block_open = false;
  };
  // A block whose counts line is `back` lines before the current one.
  auto const open_block = [&](std::streamoff start, Name name, long back = 0) {
    close_block();
    block_open = true;
    block_start = start;
    block_name = std::move(name);
    block_counts_line = lines.lines() - back;
    record_has_block = true;
    phase = Phase::table;
  };
  // The name of a block whose counts line is the current line: the first of its four lines
  // that gives one.
  // Named as they stand, blocks take their title line; a blank title gives "ENTRYn" (n
  // counting blocks from 1), so that records drawn without a name are told apart rather than
  // all named by their program line.
  auto const name_from_header = [&] {
    Name name;
    if (compliance_ == FileFormat::verbatim_identifiers) {
      std::string_view const title = lines.text_before(3);
      name.found = true;
      if (trim_view(title, " \t").empty()) {
        // The block still open is closed, and counted, when this one opens.
        int const before = static_cast<int>(positions.size()) + (block_open ? 1 : 0);
        name.text = generate_identifier_from_index(before + 1).str();
      } else {
        name.text.assign(title);
      }
      return name;
    }
    for (long back = 3; back >= 0 && !name.found; --back)
      name.found = offer_identifier(compliance_, lines.text_before(back), name.text);
    return name;
  };
  auto const close_record = [&] {
    close_block();
    if (!record_has_block && end_without_block) {
      positions.emplace_back(record_start);
      identifiers.push_back(entry_identifier(record_name.text));
    }
    record_start = lines.end();
    record_name = Name();
    record_has_block = false;
    end_without_block = false;
    lines.new_record();
    phase = Phase::header;
    inside = false;
    outside = 0;
    pending = false;
  };

  while (lines.next()) {
    std::string_view const line = lines.line();
    std::string_view const text = lines.text();
    if (detail::begins_with(text, "$$$$")) {
      close_record();
      continue;
    }
    if (!record_has_block) {
      if (!record_name.found)
        record_name.found = offer_identifier(compliance_, text, record_name.text);
    } else if (block_open && !block_name.found && lines.lines() > block_counts_line) {
      block_name.found = offer_identifier(compliance_, text, block_name.text);
    }
    if (pending) {
      pending = false;
      if (!pending_atoms || line.find('.') != std::string_view::npos) {
        open_block(pending_start, std::move(pending_name), 1);
      } else {
        ++outside;  // the counts line was a stray line after all
      }
    }

    bool const stamped = is_stamped_counts_line(text);
    bool const ends_table = detail::begins_with(text, "M  END");
    std::string_view const content = trim_view(line, " \t");
    bool const header_line = !content.empty() && content.front() == '>';
    switch (phase) {
      case Phase::header:
        // An "M  END" that could end a MOL block: three header lines and a counts line fit
        // before it.
        if (ends_table) {
          end_without_block = end_without_block || lines.lines() > 4;
        } else if (lines.lines() > 3 && (stamped ? !end_without_block : lines.fourth_line()) &&
                   detail::is_counts_line(text)) {
          open_block(lines.start_before(3), name_from_header());
        }
        break;
      case Phase::table:
        if (ends_table || header_line) {
          // A data header without "M  END" before it ends a table too.
          phase = Phase::data;
          inside = header_line;
          outside = 0;
        } else if (stamped && lines.lines() - block_counts_line >= 4) {
          open_block(lines.start_before(3), name_from_header());
        }
        break;
      case Phase::data:
        if (line.empty()) {
          if (inside) {
            inside = false;
            outside = 0;
          } else {
            ++outside;
          }
        } else if (inside) {
          // A value line.
        } else if (header_line) {
          inside = true;
          outside = 0;
        } else if (outside >= 3 && stamped) {
          open_block(lines.start_before(3), name_from_header());
        } else if (outside >= 3 && detail::is_counts_line(text) && has_atom_and_bond_counts(text)) {
          pending = true;
          pending_start = lines.start_before(3);
          pending_name = name_from_header();
          pending_atoms = detail::c_int(detail::column(text, 0, 3)) > 0;
        } else {
          ++outside;
        }
        break;
    }
  }
  close_record();
  if (identifiers.size() == base) throw std::runtime_error(no_data_message);
}

}  // namespace kora
