#pragma once

/// \file
/// The entry index of an SD file: where each MOL record starts and what it is called.

#include <ios>
#include <string>
#include <vector>

#include "kora/framework/file_format.hpp"
#include "kora/framework/flat_file_database.hpp"
#include "kora/framework/options.hpp"
#include "kora/kernel/database_entry_identifier.hpp"

namespace kora {

class SDfileDatabaseReader : public FlatFileDatabaseReader {
 public:
  /// normalised_identifiers names each record by set_entry_identifier; any other value by
  /// its first non-empty line as it stands. The options choose how records are found (see
  /// parse).
  explicit SDfileDatabaseReader(
      std::string const& file_name,
      FileFormat::AserCompliance compliance = FileFormat::normalised_identifiers,
      ReadOptions const& options = ReadOptions())
      : FlatFileDatabaseReader(file_name), compliance_(compliance), options_(options) {}

  FileFormat::AserCompliance compliance() const { return compliance_; }
  ReadOptions const& read_options() const { return options_; }

  /// One identifier and the position of its name line per entry. Throws std::runtime_error
  /// when the file cannot be opened or holds no entry.
  ///
  /// Classic: records are ended by "$$$$"; when the number of records so found differs from
  /// the number of MOL blocks ended by "M  END", those blocks are listed instead (so a MOL
  /// file without "$$$$" is one record). An "M  END" within a record's data items starts no
  /// block of its own.
  ///
  /// Standard: every MOL block is an entry. A block is found by its counts line, with or
  /// without the version stamp: the fourth line of a record (after any blank lines), a
  /// stamped counts line after a block's connection table, or a counts line that follows
  /// three lines outside any data item after a block's "M  END" (a second block without
  /// "$$$$" before it; a molfile quoted inside a data value is no block). A block need not
  /// end with "M  END" or "$$$$": a last block cut short is still an entry. A record with an
  /// "M  END" but no counts line found is one entry from its first line.
  void parse(std::vector<DatabaseEntryIdentifier>& identifiers,
             std::vector<std::streampos>& positions) const override;

  /// Derives a short identifier from a line: "UNKNWN" and false for a blank line or one
  /// holding "$"; for a ten-character text whose first digit is its seventh character, its
  /// first 8 characters (6 when those two digits read below 1); otherwise, unless
  /// `codes_only`, the text padded with "_" to 6 and cut at 8 characters (with `codes_only`
  /// such a line gives false).
  static bool set_entry_identifier(std::string const& line, std::string& identifier,
                                   bool codes_only);

 private:
  void parse_standard_(std::vector<DatabaseEntryIdentifier>& identifiers,
                       std::vector<std::streampos>& positions) const;

  FileFormat::AserCompliance compliance_;
  ReadOptions options_;
};

}  // namespace kora
