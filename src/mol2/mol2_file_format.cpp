#include "kora/mol2/mol2_file_format.hpp"

#include "kora/framework/flat_file_database.hpp"
#include "kora/mol2/mol2_database_reader.hpp"
#include "kora/mol2/mol2_file.hpp"

namespace kora {

THandle<Database<CrystalStructureDatabaseEntry>> Mol2FileFormat::make_database(
    OpenParameters const& parameters) const {
  if (!identify(parameters.file_name)) return {};
  return make_flat_file_database<Mol2DatabaseReader, Mol2File>(parameters, parameters.read_options);
}

THandle<MoleculeFile> Mol2FileFormat::make_molecule_file(OpenParameters const& parameters) const {
  if (!identify(parameters.file_name)) return {};
  return THandle<MoleculeFile>(make_handle<Mol2File>());
}

void Mol2FileFormat::all_extensions(std::vector<std::string>& extensions) const {
  extensions = {"mol2", "mol"};
}

bool Mol2FileFormat::examine_line(std::string const& line, unsigned int) const {
  return line.rfind("@<TRIPOS>MOLECULE", 0) == 0;
}

}  // namespace kora
