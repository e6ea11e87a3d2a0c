#pragma once

/// \file
/// The entry index of a multi-molecule Mol2 file.

#include <string>
#include <vector>

#include "kora/framework/flat_file_database.hpp"
#include "kora/framework/options.hpp"

namespace kora {

class Mol2DatabaseReader : public FlatFileDatabaseReader {
 public:
  explicit Mol2DatabaseReader(std::string const& file_name) : FlatFileDatabaseReader(file_name) {}
  /// In standard mode no molecule name makes the index fail (see set_entry_identifier).
  Mol2DatabaseReader(std::string const& file_name, ReadOptions const& options)
      : FlatFileDatabaseReader(file_name), options_(options) {}

  /// One position (of its "@<TRIPOS>MOLECULE" line) and one identifier per molecule entry.
  /// A file that cannot be opened throws database_error.
  void parse(std::vector<DatabaseEntryIdentifier>& identifiers,
             std::vector<std::streampos>& positions) const override;

  /// The identifier of entry `index` (from 0) named `name`: for an entry this system wrote
  /// from a structure database, the name's first word; otherwise the whole name, or a
  /// generated identifier when the name is empty. A name the identifier refuses throws in
  /// classic mode; in standard mode it is cut to the longest identifier allowed (a name of
  /// more than 256 characters), or "UNKNWN" (a NUL character), and the entry reads as usual.
  DatabaseEntryIdentifier set_entry_identifier(int index, std::string const& name) const;

  ReadOptions const& read_options() const { return options_; }

  /// One flag per entry indexed: whether this system wrote it from a structure database.
  std::vector<bool> const& generated() const { return generated_; }

 private:
  mutable std::vector<bool> generated_;
  ReadOptions options_;
};

}  // namespace kora
