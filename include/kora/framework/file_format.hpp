#pragma once

/// \file
/// Format descriptors: what a format is called, which files it takes, and the factories of
/// its file objects and databases.

#include <string>
#include <vector>

#include "kora/framework/database.hpp"
#include "kora/framework/molecule_file.hpp"
#include "kora/framework/options.hpp"
#include "kora/kernel/database_entry.hpp"
#include "kora/kernel/handle.hpp"

namespace kora {

class FileFormat {
 public:
  /// What the factories are asked to open.
  struct OpenParameters {
    std::string file_name;
    std::string extension;  ///< without a leading dot
    /// How a database made here reads its entries, and, where a format's index depends on
    /// the mode (SD blocks without "$$$$", PDB frames separated by END), how it is indexed
    /// (classic unless set).
    ReadOptions read_options{};
    /// A database made here uses the index saved beside the file for this key, when there is
    /// one made for the bytes the file holds (SavedIndexKey); empty: the file is indexed.
    std::string saved_index{};
  };

  /// How SD file indexes name their records: normalised_identifiers makes the short
  /// database codes of the first line (6 to 8 characters); verbatim_identifiers takes the
  /// first non-empty line as it stands.
  enum AserCompliance { normalised_identifiers = 0, verbatim_identifiers = 1 };

  virtual ~FileFormat() = default;

  /// A database over the whole file; null when this format does not take the file.
  virtual THandle<Database<CrystalStructureDatabaseEntry>> make_database(
      OpenParameters const& parameters) const = 0;
  /// An empty file object of the format; null when this format does not take the file.
  virtual THandle<MoleculeFile> make_molecule_file(OpenParameters const& parameters) const = 0;
  virtual std::string name() const = 0;
  /// Without a leading dot.
  virtual std::string default_extension() const = 0;
  /// Empties the vector, then appends the format's extensions.
  virtual void all_extensions(std::vector<std::string>& extensions) const = 0;
  virtual bool writeable() const = 0;
};

/// A format recognised from the text of its files.
class TextIdentifiedFileFormat : public FileFormat {
 public:
  /// Whether this line, at this line number (the first line is 1), marks a file as being of
  /// this format.
  virtual bool examine_line(std::string const& line, unsigned int line_number) const = 0;

  /// Puts the file's lines, numbered from 1, to examine_line and returns true at the first
  /// accepted line. Only the beginning of the file is read: the first
  /// identify_line_limit lines within its first identify_byte_limit bytes. A file that
  /// is missing or cannot be read is not identified.
  bool identify(std::string const& file_name) const;

  static constexpr unsigned int identify_line_limit = 1000;
  static constexpr std::size_t identify_byte_limit = 1 << 20;
};

}  // namespace kora
