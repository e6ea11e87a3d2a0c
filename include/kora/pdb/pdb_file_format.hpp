#pragma once

/// \file
/// The PDB format descriptor.

#include <string>
#include <vector>

#include "kora/framework/file_format.hpp"

namespace kora {

class PdbFileFormat : public TextIdentifiedFileFormat {
 public:
  /// A database over the file when it is a PDB file, else null; it indexes the file and reads
  /// its entries as parameters.read_options say (standard: END-separated frames are entries).
  THandle<Database<CrystalStructureDatabaseEntry>> make_database(
      OpenParameters const& parameters) const override;
  /// An empty PdbFile when the file is a PDB file, else null.
  THandle<MoleculeFile> make_molecule_file(OpenParameters const& parameters) const override;
  std::string name() const override { return "PDB file"; }
  std::string default_extension() const override { return "ent"; }
  /// "pdb", "ent".
  void all_extensions(std::vector<std::string>& extensions) const override;
  bool writeable() const override { return true; }
  /// A line beginning with HEADER, REMARK, SCALE, "ATOM  " (two blanks) or HETATM, on any
  /// line.
  bool examine_line(std::string const& line, unsigned int line_number) const override;
};

}  // namespace kora
