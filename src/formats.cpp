#include "kora/formats.hpp"

namespace kora {

std::vector<THandle<FileFormat>> const& file_formats() {
  // Filled format by format as they are added.
  static std::vector<THandle<FileFormat>> const formats;
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
