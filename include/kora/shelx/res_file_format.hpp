#pragma once

/// \file
/// The SHELX RES format descriptor. RES files are recognised by their extension, not their
/// text.

#include <string>
#include <vector>

#include "kora/framework/file_format.hpp"

namespace kora {

class ResFileFormat : public FileFormat {
 public:
  /// A one-entry database when the extension is exactly "res" and the file exists.
  THandle<Database<CrystalStructureDatabaseEntry>> make_database(
      OpenParameters const& parameters) const override;
  /// An empty ResFile under the same condition.
  THandle<MoleculeFile> make_molecule_file(OpenParameters const& parameters) const override;
  std::string name() const override { return "SHELX file"; }
  std::string default_extension() const override { return "res"; }
  void all_extensions(std::vector<std::string>& extensions) const override;
  bool writeable() const override { return true; }
};

}  // namespace kora
