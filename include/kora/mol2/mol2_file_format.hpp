#pragma once

/// \file
/// The Mol2 format descriptor.

#include <string>
#include <vector>

#include "kora/framework/file_format.hpp"

namespace kora {

class Mol2FileFormat : public TextIdentifiedFileFormat {
 public:
  /// A database over the file when it is a Mol2 file, else null.
  THandle<Database<CrystalStructureDatabaseEntry>> make_database(
      OpenParameters const& parameters) const override;
  /// An empty Mol2File when the file is a Mol2 file, else null.
  THandle<MoleculeFile> make_molecule_file(OpenParameters const& parameters) const override;
  std::string name() const override { return "Mol2 file"; }
  std::string default_extension() const override { return "mol2"; }
  void all_extensions(std::vector<std::string>& extensions) const override;
  bool writeable() const override { return true; }
  /// A line beginning with "@<TRIPOS>MOLECULE", on any line.
  bool examine_line(std::string const& line, unsigned int line_number) const override;
};

}  // namespace kora
