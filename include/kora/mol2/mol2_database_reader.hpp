#pragma once

// The entry index of a multi-molecule Mol2 file.

#include <string>
#include <vector>

#include "kora/framework/flat_file_database.hpp"

namespace kora {

class Mol2DatabaseReader : public FlatFileDatabaseReader {
 public:
  explicit Mol2DatabaseReader(std::string const& file_name) : FlatFileDatabaseReader(file_name) {}

  // One position (of its "@<TRIPOS>MOLECULE" line) and one identifier per molecule entry.
  // A file that cannot be opened throws database_error.
  void parse(std::vector<DatabaseEntryIdentifier>& identifiers,
             std::vector<std::streampos>& positions) const override;

  // The identifier of entry `index` (from 0) named `name`: for an entry this system wrote
  // from a structure database, the name's first word; otherwise the whole name, or a
  // generated identifier when the name is empty.
  DatabaseEntryIdentifier set_entry_identifier(int index, std::string const& name) const;

  // One flag per entry indexed: whether this system wrote it from a structure database.
  std::vector<bool> const& generated() const { return generated_; }

 private:
  mutable std::vector<bool> generated_;
};

}  // namespace kora
