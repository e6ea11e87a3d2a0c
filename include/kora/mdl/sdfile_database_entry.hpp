#pragma once

/// \file
/// The database entry of an SD file record: a crystal-structure entry that also carries the
/// record's SD data items.

#include "kora/kernel/crystal.hpp"
#include "kora/kernel/database_entry.hpp"
#include "kora/kernel/database_entry_identifier.hpp"
#include "kora/kernel/handle.hpp"
#include "kora/mdl/mol_file.hpp"

namespace kora {

class SDfileDatabaseEntry : public CrystalStructureImmediateDatabaseEntry {
 public:
  /// The tags are shared with the MolFile that made the entry, not copied.
  SDfileDatabaseEntry(DatabaseEntryIdentifier const& identifier,
                      THandle<CrystalMaker> const& crystal_maker,
                      THandle<MolFile::TagCollection> const& tags)
      : CrystalStructureImmediateDatabaseEntry(identifier, crystal_maker), tags_(tags) {}

  THandle<MolFile::TagCollection> const& tags() const { return tags_; }

 private:
  THandle<MolFile::TagCollection> tags_;
};

}  // namespace kora
