#include "sources.hpp"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>

#include "kora/framework/flat_file_database.hpp"
#include "kora/framework/input_file.hpp"
#include "kora/mdl/mol_file.hpp"
#include "kora/mdl/mol_file_file_format.hpp"
#include "kora/mdl/sdfile_database_entry.hpp"
#include "kora/mol2/mol2_file.hpp"
#include "kora/mol2/mol2_file_format.hpp"
#include "kora/pdb/pdb_file.hpp"
#include "kora/shelx/res_file.hpp"

namespace kora::cli {

namespace {

std::string lower(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return s;
}

// The registry's descriptor of a canonical format.
THandle<FileFormat> descriptor(std::string const& format) {
  for (THandle<FileFormat> const& f : file_formats()) {
    if (canonical_format(*f) == format) return f;
  }
  return {};
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

std::string extension_of(std::string const& file_name) {
  std::string const ext = std::filesystem::path(file_name).extension().string();
  return ext.empty() ? ext : ext.substr(1);
}

std::string format_of_extension(std::string const& file_name) {
  return canonical_format(extension_of(file_name));
}

std::string canonical_format(FileFormat const& format) {
  std::string const name = format.name();
  if (name == "Mol2 file") return "mol2";
  if (name == "MOL file") return "sdf";
  if (name == "PDB file") return "pdb";
  if (name == "SHELX file") return "res";
  return "";
}

namespace {

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

THandle<FileFormat> identify_file(std::string const& file_name) {
  // "x.sdf.gz" is named as an SD file.
  if (THandle<FileFormat> found = find_file_format({file_name, format_extension(file_name)}))
    return found;
  std::string const extension = lower(format_extension(file_name));
  std::error_code ec;
  bool const shelx = ((extension == "res" || extension == "ins") &&
                      std::filesystem::is_regular_file(file_name, ec)) ||
                     looks_like_shelx(file_name);
  return shelx ? descriptor("res") : THandle<FileFormat>();
}

std::vector<std::string> extensions_of(FileFormat const& format) {
  std::vector<std::string> extensions;
  format.all_extensions(extensions);
  if (canonical_format(format) == "res" &&
      std::find(extensions.begin(), extensions.end(), "ins") == extensions.end())
    extensions.push_back("ins");
  return extensions;
}

std::unique_ptr<MoleculeFile> make_file_object(std::string const& format) {
  if (format == "mol2") return std::make_unique<Mol2File>();
  if (format == "sdf") return std::make_unique<MolFile>();
  if (format == "pdb") return std::make_unique<PdbFile>();
  if (format == "res") return std::make_unique<ResFile>();
  throw Failure("unknown format '" + format + "'");
}

void write_entry(MoleculeFile& writer, CrystalStructureDatabaseEntry const& entry,
                 WriteOptions const& options, std::ostream& out) {
  writer.set_write_options(options);
  writer.clear();
  writer.add(entry);
  if (auto* mol = dynamic_cast<MolFile*>(&writer)) {
    if (options.v3000) mol->set_version(MolFile::V3000);
    auto const* sd = dynamic_cast<SDfileDatabaseEntry const*>(&entry);
    if (sd && sd->tags()) {
      for (auto const& [key, values] : sd->tags()->items())
        mol->add_sd_tag(key, values);
    }
  }
  writer.print(out);
}

Source::Source(std::string const& file_name, std::string const& from, bool short_ids,
               ReadOptions const& options)
    : file_name_(file_name) {
  std::error_code ec;
  if (!std::filesystem::is_regular_file(file_name, ec)) {
    throw MissingFile(file_name + ": no such file");
  }
  FileFormat::OpenParameters parameters{file_name, format_extension(file_name), options};
  THandle<FileFormat> format;
  if (!from.empty()) {
    format_ = canonical_format(from);
    if (format_.empty()) throw UnknownFormat("unknown format '" + from + "'");
    format = descriptor(format_);
  } else {
    format = identify_file(file_name);
    if (!format) throw UnknownFormat(file_name + ": unknown format");
    format_ = canonical_format(*format);
  }
  // The SHELX descriptor takes files by their name: .ins and .RES files are SHELX files too.
  if (format_ == "res") parameters.extension = "res";
  if (format_ == "sdf") {
    format = THandle<FileFormat>(make_handle<MolFileFileFormat>(
        short_ids ? FileFormat::normalised_identifiers : FileFormat::verbatim_identifiers));
  }
  try {
    database_ = format->make_database(parameters);
  } catch (database_error const& e) {
    throw database_error(file_name + ": " + e.what());
  } catch (std::exception const& e) {
    throw Failure(file_name + ": " + e.what());
  }
  if (!database_) throw UnknownFormat(file_name + ": not a " + format->name());
  if (database_->size() > 0) return;
  // The index found no entry: read the file as one structure.
  std::unique_ptr<MoleculeFile> file = make_file_object(format_);
  file->set_read_options(options);
  try {
    file->read(file_name);
    whole_file_ = file->database_entry();
  } catch (std::exception const& e) {
    throw Failure(file_name + ": " + e.what());
  }
}

int Source::size() const {
  return whole_file_ ? 1 : database_->size();
}

DatabaseEntryIdentifier Source::identifier(int i) const {
  return whole_file_ ? whole_file_->identifier() : database_->identifier(i);
}

long long Source::offset(int i) const {
  if (whole_file_) return 0;
  auto const index = handle_dynamic_cast<FlatFileDatabaseIndex>(database_);
  return index ? static_cast<long long>(index->position(i)) : -1;
}

THandle<CrystalStructureDatabaseEntry> Source::entry(int i) const {
  if (!whole_file_) return database_->entry(i);
  if (i != 0) throw Failure(file_name_ + ": no entry " + std::to_string(i));
  return whole_file_;
}

int Source::nearest(std::string const& identifier,
                    Database<CrystalStructureDatabaseEntry>::IdentifierMatch& match) const {
  if (database_->size() > 0 || !whole_file_)
    return database_->nearest_entry(DatabaseEntryIdentifier(identifier), match);
  // The whole file as one entry: the only one there is.
  using Match = Database<CrystalStructureDatabaseEntry>::IdentifierMatch;
  DatabaseEntryIdentifier const id(identifier);
  DatabaseEntryIdentifier const only = whole_file_->identifier();
  CaseInsensitiveStringLess const less;
  if (only == id) {
    match = Match::exact;
  } else {
    match = less(only, id) || less(id, only) ? Match::nearest_only : Match::equal_ignoring_case;
  }
  return 0;
}

int Source::find(std::string const& identifier) const {
  for (int i = 0; i < size(); ++i) {
    if (this->identifier(i).str() == identifier) return i;
  }
  return -1;
}

}  // namespace kora::cli
