#pragma once

// Opening input files as lists of entries, and making the file objects that write them.

#include <memory>
#include <ostream>
#include <string>

#include "kora/formats.hpp"

namespace kora::cli {

// A failure to report to the user (exit status 1).
struct Failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};
// An input file that does not exist or is not a regular file.
struct MissingFile : Failure {
  using Failure::Failure;
};
// A format name nobody knows, a file that no format takes, or one the format asked for refuses.
struct UnknownFormat : Failure {
  using Failure::Failure;
};

// The formats the tool names: "mol2", "sdf", "pdb", "res".
// Maps a user's name or alias (mol2; sdf, mol, sd, mdl; pdb, ent; res) to it; "" when
// there is none.
std::string canonical_format(std::string const& name);
// The format a file name's extension suggests ("" when none does).
std::string format_of_extension(std::string const& file_name);
// The extension of a file name without its dot.
std::string extension_of(std::string const& file_name);
// The canonical format of a descriptor.
std::string canonical_format(FileFormat const& format);

// The descriptor that takes a file: the registry's first (find_file_format), else the SHELX
// descriptor for a file named .res or .ins in either case, or whose text begins like a SHELX
// file (TITL or CELL first, after blank and REM lines, and a CELL line). The SHELX
// descriptor itself takes only the extension "res". Null when nothing takes the file.
THandle<FileFormat> identify_file(std::string const& file_name);
// A format's extensions as the tool takes them: the descriptor's, and "ins" for SHELX.
std::vector<std::string> extensions_of(FileFormat const& format);

// A new, empty file object of a format, for reading one structure or writing.
std::unique_ptr<MoleculeFile> make_file_object(std::string const& format);

// Writes one entry through a file object of the output format, as the options say (MOL
// blocks are V3000 when they ask for it); an SD record written as SD keeps its data items,
// which the model does not carry.
void write_entry(MoleculeFile& writer, CrystalStructureDatabaseEntry const& entry,
                 WriteOptions const& options, std::ostream& out);

// The entries of one input file: its database, or, when the format takes the file but its
// index finds no entry, the whole file read as one entry through the file object.
class Source {
 public:
  // `from` forces a format (canonical name or alias; "" to identify the file). SD files
  // keep their record names verbatim unless `short_ids`. A database's own failures keep
  // their type (database_error), with the file name put before the message.
  // Entries are read as `options` say.
  Source(std::string const& file_name, std::string const& from, bool short_ids,
         ReadOptions const& options);

  std::string const& file_name() const { return file_name_; }
  std::string const& format() const { return format_; }
  int size() const;
  DatabaseEntryIdentifier identifier(int i) const;
  // Byte offset where entry i starts.
  long long offset(int i) const;
  THandle<CrystalStructureDatabaseEntry> entry(int i) const;
  // The index of the entry with this identifier; -1 when there is none.
  int find(std::string const& identifier) const;
  // The entry with this identifier, else the first equal to it ignoring case, else the
  // nearest above it, else below it (see Database::nearest_entry); -1 when there is none.
  int nearest(std::string const& identifier,
              Database<CrystalStructureDatabaseEntry>::IdentifierMatch& match) const;

 private:
  std::string file_name_;
  std::string format_;
  THandle<Database<CrystalStructureDatabaseEntry>> database_;
  THandle<CrystalStructureDatabaseEntry> whole_file_;  // when the index found nothing
};

}  // namespace kora::cli
