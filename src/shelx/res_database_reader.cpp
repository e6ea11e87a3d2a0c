#include "kora/shelx/res_database_reader.hpp"

#include <stdexcept>

#include "kora/framework/input_file.hpp"
#include "kora/kernel/string_functions.hpp"

namespace kora {

void ResDatabaseReader::parse(std::vector<DatabaseEntryIdentifier>& identifiers,
                              std::vector<std::streampos>& positions) const {
  InputFile in(file_name());
  if (!in) {
    throw database_error("ResDatabaseReader::parse() couldn't retrieve entry " + file_name());
  }
  in.seekg(0);
  std::streampos const position = in.tellg();
  DatabaseEntryIdentifier identifier;
  std::string line;
  while (in.good()) {
    kora::getline(in, line);
    if (in.eof() && line.empty()) break;
    if (line.compare(0, 4, "TITL") != 0) continue;
    try {
      identifier = DatabaseEntryIdentifier(line.size() > 5 ? line.substr(5) : std::string());
    } catch (std::logic_error const&) {
      // A title that is no valid identifier leaves the entry to a generated name.
    }
    break;
  }
  if (identifier.empty()) {
    identifier = generate_identifier_from_index(static_cast<int>(identifiers.size()));
  }
  identifiers.push_back(identifier);
  positions.push_back(position);
}

}  // namespace kora
