#include "kora/formats.hpp"

#include "kora/mdl/mol_file_file_format.hpp"
#include "kora/mol2/mol2_file_format.hpp"
#include "kora/pdb/pdb_file_format.hpp"
#include "kora/shelx/res_file_format.hpp"

namespace kora {

std::vector<THandle<FileFormat>> const& file_formats() {
  static std::vector<THandle<FileFormat>> const formats{
      THandle<FileFormat>(make_handle<Mol2FileFormat>()),
      THandle<FileFormat>(make_handle<MolFileFileFormat>(FileFormat::normalised_identifiers)),
      THandle<FileFormat>(make_handle<PdbFileFormat>()),
      THandle<FileFormat>(make_handle<ResFileFormat>()),
  };
  return formats;
}

THandle<FileFormat> find_file_format(FileFormat::OpenParameters const& parameters) {
  for (THandle<FileFormat> const& format : file_formats()) {
    auto const text = handle_dynamic_cast<TextIdentifiedFileFormat>(format);
    bool const takes = text ? text->identify(parameters.file_name)
                            : static_cast<bool>(format->make_molecule_file(parameters));
    if (takes) return format;
  }
  return {};
}

}  // namespace kora
