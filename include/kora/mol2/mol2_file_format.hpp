#pragma once

// The Mol2 format descriptor.

#include <string>
#include <vector>

#include "kora/framework/file_format.hpp"
#include "kora/framework/options.hpp"

namespace kora {

class Mol2FileFormat : public TextIdentifiedFileFormat {
 public:
  Mol2FileFormat() = default;
  // The databases made here are indexed and read as the options say (classic by default).
  explicit Mol2FileFormat(ReadOptions const& options) : options_(options) {}

  ReadOptions const& read_options() const { return options_; }

  // A database over the file when it is a Mol2 file, else null.
  THandle<Database<CrystalStructureDatabaseEntry>> make_database(
      OpenParameters const& parameters) const override;
  // An empty Mol2File when the file is a Mol2 file, else null.
  THandle<MoleculeFile> make_molecule_file(OpenParameters const& parameters) const override;
  std::string name() const override { return "Mol2 file"; }
  std::string default_extension() const override { return "mol2"; }
  void all_extensions(std::vector<std::string>& extensions) const override;
  bool writeable() const override { return true; }
  // A line beginning with "@<TRIPOS>MOLECULE", on any line.
  bool examine_line(std::string const& line, unsigned int line_number) const override;

 private:
  ReadOptions options_;
};

}  // namespace kora
