#pragma once

/// \file
/// The entry index of a file holding several PDB entries one after another.

#include <ios>
#include <string>
#include <vector>

#include "kora/framework/flat_file_database.hpp"
#include "kora/framework/options.hpp"
#include "kora/kernel/database_entry_identifier.hpp"

namespace kora {

class PdbDatabaseReader : public FlatFileDatabaseReader {
 public:
  explicit PdbDatabaseReader(std::string const& file_name,
                             ReadOptions const& options = ReadOptions())
      : FlatFileDatabaseReader(file_name), options_(options) {}

  /// One identifier and the position where it starts per entry; a file that cannot be
  /// opened throws database_error.
  ///
  /// Classic reading: an entry starts at a HEADER line and is complete at its first line
  /// beginning with END (ENDMDL too) or at a blank line after its atoms; entries without
  /// ATOM or HETATM records are not indexed, and the index stops at the first such entry. A
  /// last entry with atoms but without END is kept.
  ///
  /// Standard reading, where END closes an entry and models stay together: an entry starts
  /// at a HEADER line, or, when atom records come without one, at the start of the file or
  /// the line after the last END (so the frames of a trajectory written with END after each
  /// frame are entries of their own, and a file without HEADER is indexed too). It ends at
  /// its END record (columns 1-6), at the next HEADER, or at the end of the file. Entries
  /// without atom records are left out and indexing goes on; an entry without HEADER gets
  /// a generated identifier.
  void parse(std::vector<DatabaseEntryIdentifier>& identifiers,
             std::vector<std::streampos>& positions) const override;

  /// The identifier of entry `index` (from 0) from its HEADER line: for a header this system
  /// wrote ("HEADER    VRX ENTRY name"), the name from column 21 to the end of the line; for
  /// any other header, the PDB identifier code of columns 63-66, or a generated identifier
  /// when those columns are blank. A written name that is not a valid identifier throws
  /// std::invalid_argument.
  DatabaseEntryIdentifier set_entry_identifier(int index, std::string const& header_line) const;

 private:
  void parse_standard_(std::vector<DatabaseEntryIdentifier>& identifiers,
                       std::vector<std::streampos>& positions) const;

  ReadOptions options_;
};

}  // namespace kora
