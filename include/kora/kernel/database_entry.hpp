#pragma once

/// \file
/// Database entries: a crystal structure under an identifier.

#include <iosfwd>

#include "kora/kernel/crystal.hpp"
#include "kora/kernel/database_entry_identifier.hpp"
#include "kora/kernel/handle.hpp"

namespace kora {

class CrystalStructureDatabaseEntry {
 public:
  virtual ~CrystalStructureDatabaseEntry() = default;

  virtual DatabaseEntryIdentifier identifier() const = 0;
  virtual void set_identifier(DatabaseEntryIdentifier const& identifier) = 0;
  virtual THandle<CrystalMaker> crystal_maker() const = 0;
  /// A short description: the identifier, then one line per molecule with its atom and
  /// bond counts, then the cell.
  virtual void print(std::ostream& os) const;
};

/// An entry that holds its crystal maker.
class CrystalStructureImmediateDatabaseEntry : public CrystalStructureDatabaseEntry {
 public:
  CrystalStructureImmediateDatabaseEntry(DatabaseEntryIdentifier const& identifier,
                                         THandle<CrystalMaker> const& crystal_maker)
      : identifier_(identifier), crystal_maker_(crystal_maker) {}

  DatabaseEntryIdentifier identifier() const override { return identifier_; }
  void set_identifier(DatabaseEntryIdentifier const& identifier) override {
    identifier_ = identifier;
  }
  THandle<CrystalMaker> crystal_maker() const override { return crystal_maker_; }

 private:
  DatabaseEntryIdentifier identifier_;
  THandle<CrystalMaker> crystal_maker_;
};

}  // namespace kora
