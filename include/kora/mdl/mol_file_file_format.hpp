#pragma once

/// \file
/// The MDL MOL / SD format descriptor.

#include <string>
#include <vector>

#include "kora/framework/file_format.hpp"

namespace kora {

class MolFileFileFormat : public TextIdentifiedFileFormat {
 public:
  /// The compliance value is handed to the SD index of every database made here.
  explicit MolFileFileFormat(AserCompliance compliance) : compliance_(compliance) {}

  AserCompliance aser_compliance() const { return compliance_; }
  void set_aser_compliance(AserCompliance compliance) { compliance_ = compliance; }

  /// A database over the whole file when it is a MOL or SD file, else null.
  THandle<Database<CrystalStructureDatabaseEntry>> make_database(
      OpenParameters const& parameters) const override;
  /// An empty MolFile when the file is a MOL or SD file, else null.
  THandle<MoleculeFile> make_molecule_file(OpenParameters const& parameters) const override;
  std::string name() const override { return "MOL file"; }
  std::string default_extension() const override { return "mol"; }
  void all_extensions(std::vector<std::string>& extensions) const override;
  bool writeable() const override { return false; }
  /// A "V2000" or "V3000" stamp at 0-based position 34, a line beginning with "M END" (one
  /// blank) or "$$$$", or a counts line as the fourth line.
  bool examine_line(std::string const& line, unsigned int line_number) const override;

 private:
  AserCompliance compliance_;
};

}  // namespace kora
