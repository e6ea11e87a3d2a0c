#include "kora/pdb/pdb_file_format.hpp"

#include <string_view>

#include "kora/framework/flat_file_database.hpp"
#include "kora/pdb/pdb_database_reader.hpp"
#include "kora/pdb/pdb_file.hpp"

namespace kora {

THandle<Database<CrystalStructureDatabaseEntry>> PdbFileFormat::make_database(
    OpenParameters const& parameters) const {
  if (!identify(parameters.file_name)) return {};
  return make_flat_file_database<PdbDatabaseReader, PdbFile>(parameters, parameters.read_options);
}

THandle<MoleculeFile> PdbFileFormat::make_molecule_file(OpenParameters const& parameters) const {
  if (!identify(parameters.file_name)) return {};
  return THandle<MoleculeFile>(make_handle<PdbFile>());
}

void PdbFileFormat::all_extensions(std::vector<std::string>& extensions) const {
  extensions = {"pdb", "ent"};
}

bool PdbFileFormat::examine_line(std::string const& line, unsigned int) const {
  std::string_view const text = line;
  for (std::string_view prefix : {"HEADER", "REMARK", "SCALE", "ATOM  ", "HETATM"}) {
    if (text.substr(0, prefix.size()) == prefix) return true;
  }
  return false;
}

}  // namespace kora
