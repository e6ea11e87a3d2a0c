#pragma once

/// \file
/// The file object of a format: one structure read from or written to a stream, and
/// converted to and from the model.

#include <iosfwd>
#include <string>

#include "kora/framework/options.hpp"
#include "kora/kernel/cell.hpp"
#include "kora/kernel/crystal.hpp"
#include "kora/kernel/database_entry.hpp"
#include "kora/kernel/database_entry_identifier.hpp"
#include "kora/kernel/handle.hpp"
#include "kora/kernel/molecule.hpp"

namespace kora {

class MoleculeFile {
 public:
  virtual ~MoleculeFile() = default;

  /// Replaces the content by the one structure read from the stream.
  virtual void read(std::istream& is) = 0;
  /// Writes the content in the format, as write_options() say.
  virtual void print(std::ostream& os) const = 0;
  /// Back to the empty state.
  virtual void clear() = 0;
  /// Each replaces the content by the given structure, under the given identifier.
  virtual void add(Molecule const& molecule, DatabaseEntryIdentifier const& identifier) = 0;
  virtual void add(CrystalStructureDatabaseEntry const& entry) = 0;
  virtual void add(Crystal const& crystal, DatabaseEntryIdentifier const& identifier) = 0;
  virtual void add(CrystalMaker const& maker, DatabaseEntryIdentifier const& identifier) = 0;
  virtual THandle<CrystalStructureDatabaseEntry> database_entry() const = 0;
  virtual THandle<Molecule> molecule() const = 0;
  virtual THandle<Cell> cell() const = 0;
  virtual THandle<Crystal> crystal() const = 0;
  virtual THandle<CrystalMaker> crystal_maker() const = 0;

  /// Opens the named file and reads it with read(std::istream&). A file that cannot be
  /// opened throws std::runtime_error naming it.
  void read(std::string const& file_name);

  /// How print writes and read reads; classic unless set. They are settings of the object,
  /// not content: clear() keeps them.
  WriteOptions const& write_options() const { return write_options_; }
  void set_write_options(WriteOptions const& options) { write_options_ = options; }
  ReadOptions const& read_options() const { return read_options_; }
  void set_read_options(ReadOptions const& options) { read_options_ = options; }

 private:
  WriteOptions write_options_;
  ReadOptions read_options_;
};

}  // namespace kora
