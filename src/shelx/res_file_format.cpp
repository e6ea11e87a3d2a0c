#include "kora/shelx/res_file_format.hpp"

#include "kora/framework/flat_file_database.hpp"
#include "kora/kernel/text_data_io.hpp"
#include "kora/shelx/res_database_reader.hpp"
#include "kora/shelx/res_file.hpp"

namespace kora {

namespace {

bool takes(FileFormat::OpenParameters const& parameters) {
  return parameters.extension == "res" && TextDataIO::file_exists(parameters.file_name);
}

}  // namespace

THandle<Database<CrystalStructureDatabaseEntry>> ResFileFormat::make_database(
    OpenParameters const& parameters) const {
  if (!takes(parameters)) return {};
  return make_flat_file_database<ResDatabaseReader, ResFile>(parameters);
}

THandle<MoleculeFile> ResFileFormat::make_molecule_file(OpenParameters const& parameters) const {
  if (!takes(parameters)) return {};
  return THandle<MoleculeFile>(make_handle<ResFile>());
}

void ResFileFormat::all_extensions(std::vector<std::string>& extensions) const {
  extensions = {"res"};
}

}  // namespace kora
