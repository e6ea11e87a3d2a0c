#include "kora/mdl/mol_file_file_format.hpp"

#include "kora/framework/flat_file_database.hpp"
#include "kora/mdl/mol_file.hpp"
#include "kora/mdl/sdfile_database_reader.hpp"
#include "mdl/mdl_text.hpp"

namespace kora {

THandle<Database<CrystalStructureDatabaseEntry>> MolFileFileFormat::make_database(
    OpenParameters const& parameters) const {
  if (!identify(parameters.file_name)) return {};
  return make_flat_file_database<SDfileDatabaseReader, MolFile>(parameters, compliance_,
                                                                parameters.read_options);
}

THandle<MoleculeFile> MolFileFileFormat::make_molecule_file(
    OpenParameters const& parameters) const {
  if (!identify(parameters.file_name)) return {};
  return THandle<MoleculeFile>(make_handle<MolFile>());
}

void MolFileFileFormat::all_extensions(std::vector<std::string>& extensions) const {
  extensions = {"mol", "sdf", "sd", "mdl"};
}

bool MolFileFileFormat::examine_line(std::string const& line, unsigned int line_number) const {
  return line.find("V2000") == 34 || line.find("V3000") == 34 ||
         detail::begins_with(line, "M END") || detail::begins_with(line, "$$$$") ||
         (line_number == 4 && MolFile::first_formated_line(line));
}

}  // namespace kora
