#pragma once

/// \file
/// The entry index of a SHELX RES file: one entry, the whole file, named after its title.

#include <string>
#include <vector>

#include "kora/framework/flat_file_database.hpp"

namespace kora {

class ResDatabaseReader : public FlatFileDatabaseReader {
 public:
  explicit ResDatabaseReader(std::string const& file_name) : FlatFileDatabaseReader(file_name) {}

  /// One entry at the start of the file, named by the text of the first "TITL" line (as
  /// written), or a generated identifier. A file that cannot be opened throws database_error.
  void parse(std::vector<DatabaseEntryIdentifier>& identifiers,
             std::vector<std::streampos>& positions) const override;
};

}  // namespace kora
