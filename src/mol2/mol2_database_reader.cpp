#include "kora/mol2/mol2_database_reader.hpp"

#include <stdexcept>

#include "kernel/line_reading.hpp"
#include "kora/framework/input_file.hpp"
#include "kora/kernel/string_functions.hpp"
#include "mol2/mol2_standard.hpp"

namespace kora {

namespace {

bool begins_with(std::string const& line, std::string_view text) {
  return line.compare(0, text.size(), text) == 0;
}

}  // namespace

void Mol2DatabaseReader::parse(std::vector<DatabaseEntryIdentifier>& identifiers,
                               std::vector<std::streampos>& positions) const {
  InputFile in(file_name());
  if (!in) {
    throw database_error("Mol2DatabaseReader::parse() couldn't retrieve entry " + file_name());
  }
  in.seekg(0);
  // Positions are counted from the bytes each line takes, not asked of the stream.
  std::streampos position = in.tellg();
  int entry = -1;
  std::vector<std::string> names;
  std::string line;
  std::size_t used = 0;
  while (!in.eof()) {
    if (!in.good()) in.clear();
    std::streampos const line_start = position;
    detail::getline_counted(in, line, used);
    position += static_cast<std::streamoff>(used);
    if (in.eof() && line.empty()) break;
    if (!line.empty() && begins_with(line, "@<TRIPOS>MOLECULE")) {
      ++entry;
      positions.push_back(line_start);
      generated_.push_back(false);
      detail::getline_counted(in, line, used);
      position += static_cast<std::streamoff>(used);
      if (!line.empty() && line.back() == '\r') line.pop_back();
      names.push_back(trim(line, " \t"));
    }
    if (entry >= 0 && !generated_[static_cast<std::size_t>(entry)] && !line.empty()) {
      std::size_t const length = names[static_cast<std::size_t>(entry)].size();
      if ((length == 6 || length == 8) && (begins_with(line, "Generated from the VRX") ||
                                           begins_with(line, "generated from Mol2 object"))) {
        generated_[static_cast<std::size_t>(entry)] = true;
      }
    }
    if (!(position > line_start)) break;
  }
  for (std::size_t i = 0; i < names.size(); ++i) {
    identifiers.push_back(set_entry_identifier(static_cast<int>(i), names[i]));
  }
}

DatabaseEntryIdentifier Mol2DatabaseReader::set_entry_identifier(int index,
                                                                 std::string const& name) const {
  std::size_t const k = static_cast<std::size_t>(index);
  bool const standard = options_.standard();
  if (index >= 0 && k < generated_.size() && generated_[k]) {
    std::string const word = name.substr(0, name.find(' '));
    if (standard) return detail::mol2_entry_identifier(word);
    try {
      return DatabaseEntryIdentifier(word);
    } catch (std::exception const&) {
      throw std::invalid_argument("Mol2DatabaseReader::entry_identifier: invalid VRX identifier.");
    }
  }
  DatabaseEntryIdentifier const id =
      standard ? detail::mol2_entry_identifier(name) : DatabaseEntryIdentifier(name);
  return id.empty() ? generate_identifier_from_index(index + 1) : id;
}

}  // namespace kora
