// Formats by their short names, identification of files, and file objects by format.

#include <algorithm>
#include <cctype>
#include <filesystem>

#include "kora/framework/input_file.hpp"
#include "kora/io.hpp"
#include "kora/mdl/mol_file.hpp"
#include "kora/mol2/mol2_file.hpp"
#include "kora/pdb/pdb_file.hpp"
#include "kora/shelx/res_file.hpp"

namespace kora {

namespace {

std::string lower(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return s;
}

// Whether the file begins like a SHELX instruction file: its first instruction, after blank
// lines and remarks, is TITL or CELL, and a CELL instruction is among its first lines.
bool looks_like_shelx(std::string const& file_name) try {
  InputFile in(file_name);
  std::string line;
  bool first = true;
  for (int n = 0; n < 200 && std::getline(in, line); ++n) {
    std::size_t const start = line.find_first_not_of(" \t\r");
    if (start == std::string::npos) continue;
    std::string const head = lower(line.substr(start, 4));
    if (head.substr(0, 3) == "rem") continue;
    if (first && head != "titl" && head != "cell") return false;
    first = false;
    if (head == "cell") return true;
  }
  return false;
} catch (std::runtime_error const&) {
  return false;  // corrupt compressed data: reading the file reports it
}

}  // namespace

std::string canonical_format(std::string const& name) {
  std::string const n = lower(name);
  if (n == "mol2") return "mol2";
  if (n == "sdf" || n == "mol" || n == "sd" || n == "mdl") return "sdf";
  if (n == "pdb" || n == "ent") return "pdb";
  if (n == "res" || n == "ins") return "res";
  return "";
}

std::string canonical_format(FileFormat const& format) {
  std::string const name = format.name();
  if (name == "Mol2 file") return "mol2";
  if (name == "MOL file") return "sdf";
  if (name == "PDB file") return "pdb";
  if (name == "SHELX file") return "res";
  return "";
}

std::string extension_of(std::string const& file_name) {
  std::string const ext = std::filesystem::path(file_name).extension().string();
  return ext.empty() ? ext : ext.substr(1);
}

std::string format_of_extension(std::string const& file_name) {
  return canonical_format(extension_of(file_name));
}

std::vector<std::string> format_extensions(FileFormat const& format) {
  std::vector<std::string> extensions;
  format.all_extensions(extensions);
  if (canonical_format(format) == "res" &&
      std::find(extensions.begin(), extensions.end(), "ins") == extensions.end())
    extensions.push_back("ins");
  return extensions;
}

THandle<FileFormat> format_descriptor(std::string const& format) {
  for (THandle<FileFormat> const& f : file_formats()) {
    if (canonical_format(*f) == format) return f;
  }
  return {};
}

THandle<FileFormat> identify_file(std::string const& file_name) {
  // "x.sdf.gz" is named as an SD file.
  if (THandle<FileFormat> found = find_file_format({file_name, format_extension(file_name)}))
    return found;
  std::string const extension = lower(format_extension(file_name));
  std::error_code ec;
  bool const shelx = ((extension == "res" || extension == "ins") &&
                      std::filesystem::is_regular_file(file_name, ec)) ||
                     looks_like_shelx(file_name);
  return shelx ? format_descriptor("res") : THandle<FileFormat>();
}

std::unique_ptr<MoleculeFile> make_file_object(std::string const& format) {
  std::string const name = canonical_format(format);
  if (name == "mol2") return std::make_unique<Mol2File>();
  if (name == "sdf") return std::make_unique<MolFile>();
  if (name == "pdb") return std::make_unique<PdbFile>();
  if (name == "res") return std::make_unique<ResFile>();
  throw unknown_format("unknown format '" + format + "'");
}

}  // namespace kora
