#pragma once

/// \file
/// The registry of file formats: every descriptor the library offers, in the order in which
/// they are asked whether they take a file.

#include <string>
#include <vector>

#include "kora/framework/file_format.hpp"
#include "kora/kernel/handle.hpp"

namespace kora {

/// The descriptors, in registry order.
std::vector<THandle<FileFormat>> const& file_formats();

/// The first descriptor of the registry that takes the file: for a text-identified format
/// when identify(file name) is true, otherwise when make_molecule_file gives a file object.
/// Null when none does.
THandle<FileFormat> find_file_format(FileFormat::OpenParameters const& parameters);

}  // namespace kora
