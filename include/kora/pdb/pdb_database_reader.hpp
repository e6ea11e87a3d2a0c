#pragma once

// The entry index of a file holding several PDB entries one after another.

#include <ios>
#include <string>
#include <vector>

#include "kora/framework/flat_file_database.hpp"
#include "kora/kernel/database_entry_identifier.hpp"

namespace kora {

class PdbDatabaseReader : public FlatFileDatabaseReader {
 public:
  explicit PdbDatabaseReader(std::string const& file_name) : FlatFileDatabaseReader(file_name) {}

  // One identifier and the position of its HEADER line per entry. An entry starts at a
  // HEADER line and is complete at its first line beginning with END (ENDMDL too) or at a
  // blank line after its atoms; entries without ATOM or HETATM records are not indexed, and
  // the index stops at the first such entry. A last entry with atoms but without END is
  // kept. A file that cannot be opened throws database_error.
  void parse(std::vector<DatabaseEntryIdentifier>& identifiers,
             std::vector<std::streampos>& positions) const override;

  // The identifier of entry `index` (from 0) from its HEADER line: for a header this system
  // wrote ("HEADER    VRX ENTRY name"), the name from column 21 to the end of the line; for
  // any other header, the PDB identifier code of columns 63-66, or a generated identifier
  // when those columns are blank. A written name that is not a valid identifier throws
  // std::invalid_argument.
  DatabaseEntryIdentifier set_entry_identifier(int index, std::string const& header_line) const;
};

}  // namespace kora
