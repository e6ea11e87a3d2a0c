#include "kora/pdb/pdb_database_reader.hpp"

#include <algorithm>
#include <stdexcept>
#include <string_view>

#include "kernel/line_reading.hpp"
#include "kora/framework/input_file.hpp"
#include "kora/kernel/string_functions.hpp"

namespace kora {

namespace {

bool begins_with(std::string_view line, std::string_view text) {
  return line.substr(0, text.size()) == text;
}

bool is_blank(std::string_view line) {
  return line.find_first_not_of(" \t\r") == std::string_view::npos;
}

// The record name of columns 1-6, less trailing blanks.
std::string_view record_name(std::string_view line) {
  std::string_view name = line.substr(0, std::min<std::size_t>(line.size(), 6));
  while (!name.empty() && (name.back() == ' ' || name.back() == '\t' || name.back() == '\r'))
    name.remove_suffix(1);
  return name;
}

// Calls visit(line, where the line starts, where the next one starts) for every line of
// the file until visit returns false or the stream stops advancing. Positions are counted
// from the bytes each line takes, not asked of the stream.
template <class Visit>
void for_each_line(std::string const& file_name, Visit visit) {
  InputFile in(file_name);
  if (!in) throw database_error("PdbDatabase::parse() couldn't retrieve entry " + file_name);
  std::streampos position = in.tellg();
  std::string line;
  std::size_t used = 0;
  while (!in.eof()) {
    if (!in.good()) in.clear();
    std::streampos const line_start = position;
    detail::getline_counted(in, line, used);
    position += static_cast<std::streamoff>(used);
    if (in.eof() && line.empty()) break;
    if (!visit(std::string_view(line), line_start, position)) break;
    if (!(position > line_start)) break;
  }
}

}  // namespace

void PdbDatabaseReader::parse_standard_(std::vector<DatabaseEntryIdentifier>& identifiers,
                                        std::vector<std::streampos>& positions) const {
  std::streampos next_start = 0;  // where an entry without HEADER would start
  std::streampos entry_start = 0;
  bool open = false;    // an entry has started
  bool atoms = false;   // and holds atom records
  bool headed = false;  // or began with a HEADER: a structure without atoms is still one
  DatabaseEntryIdentifier identifier;
  auto const close = [&] {
    if (open && (atoms || headed)) {
      positions.push_back(entry_start);
      identifiers.push_back(identifier);
    }
    open = atoms = headed = false;
  };
  for_each_line(
      file_name(), [&](std::string_view line, std::streampos line_start, std::streampos next_line) {
        std::string_view const name = record_name(line);
        if (name == "HEADER") {
          close();
          open = headed = true;
          entry_start = line_start;
          identifier = set_entry_identifier(static_cast<int>(positions.size()), std::string(line));
        } else if (name == "ATOM" || name == "HETATM") {
          if (!open) {
            open = true;
            entry_start = next_start;
            identifier = generate_identifier_from_index(static_cast<int>(positions.size()) + 1);
          }
          atoms = true;
        } else if (name == "END") {
          close();
          next_start = next_line;
        }
        return true;
      });
  close();
}

void PdbDatabaseReader::parse(std::vector<DatabaseEntryIdentifier>& identifiers,
                              std::vector<std::streampos>& positions) const {
  if (options_.standard()) {
    parse_standard_(identifiers, positions);
    return;
  }
  int count = 0;
  bool header_seen = false;
  bool end_seen = false;
  bool complete = false;
  bool atoms_seen = false;
  DatabaseEntryIdentifier identifier("00000000");
  std::streampos entry_start = 0;
  for_each_line(file_name(), [&](std::string_view line, std::streampos line_start, std::streampos) {
    if (!header_seen) {
      if (begins_with(line, "HEADER")) {
        header_seen = true;
        identifier = set_entry_identifier(count, std::string(line));
        entry_start = line_start;
      }
    } else if (end_seen) {
      // An entry without atoms ended here: nothing after it is indexed.
      return false;
    } else if (begins_with(line, "ATOM") || begins_with(line, "HETATM")) {
      atoms_seen = true;
      complete = false;
    } else if (begins_with(line, "END")) {  // ENDMDL too
      end_seen = true;
      complete = true;
    } else if (atoms_seen && is_blank(line)) {
      complete = true;
    }
    if (complete && atoms_seen) {
      ++count;
      positions.push_back(entry_start);
      identifiers.push_back(identifier);
      header_seen = end_seen = complete = atoms_seen = false;
      identifier = DatabaseEntryIdentifier("00000000");
    }
    return true;
  });
  if (header_seen && atoms_seen && !complete) {
    positions.push_back(entry_start);
    identifiers.push_back(identifier);
  }
}

DatabaseEntryIdentifier PdbDatabaseReader::set_entry_identifier(
    int index, std::string const& header_line) const {
  std::string_view const line = header_line;
  if (line.substr(std::min<std::size_t>(line.size(), 10), 3) == "VRX") {
    std::string_view name = line.size() > 20 ? line.substr(20) : std::string_view();
    if (!name.empty() && name.back() == '\r') name.remove_suffix(1);
    try {
      return DatabaseEntryIdentifier(std::string(name));
    } catch (std::exception const&) {
      throw std::invalid_argument("PdbDatabase::entry_identifier: invalid VRX identifier.");
    }
  }
  // The PDB identifier code of columns 63-66.
  std::string_view const code =
      trim_view(line.size() > 62 ? line.substr(62, 4) : std::string_view(), " \t\r");
  if (code.empty()) return generate_identifier_from_index(index + 1);
  try {
    return DatabaseEntryIdentifier(std::string(code));
  } catch (std::exception const&) {
    return generate_identifier_from_index(index + 1);
  }
}

}  // namespace kora
