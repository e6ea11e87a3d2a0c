#pragma once

// The entry index of an SD file: where each MOL record starts and what it is called.

#include <ios>
#include <string>
#include <vector>

#include "kora/framework/file_format.hpp"
#include "kora/framework/flat_file_database.hpp"
#include "kora/kernel/database_entry_identifier.hpp"

namespace kora {

class SDfileDatabaseReader : public FlatFileDatabaseReader {
 public:
  // normalised_identifiers names each record by set_entry_identifier; any other value by
  // its first non-empty line as it stands.
  explicit SDfileDatabaseReader(
      std::string const& file_name,
      FileFormat::AserCompliance compliance = FileFormat::normalised_identifiers)
      : FlatFileDatabaseReader(file_name), compliance_(compliance) {}

  FileFormat::AserCompliance compliance() const { return compliance_; }

  // One identifier and the position of its name line per record. Records are ended by
  // "$$$$"; when the number of records so found differs from the number of "M  END" lines,
  // the records ended by "M  END" are listed instead (so a MOL file without "$$$$" is one
  // record). Throws std::runtime_error when the file cannot be opened or holds no record.
  void parse(std::vector<DatabaseEntryIdentifier>& identifiers,
             std::vector<std::streampos>& positions) const override;

  // Derives a short identifier from a line: "UNKNWN" and false for a blank line or one
  // holding "$"; for a ten-character text whose first digit is its seventh character, its
  // first 8 characters (6 when those two digits read below 1); otherwise, unless
  // `codes_only`, the text padded with "_" to 6 and cut at 8 characters (with `codes_only`
  // such a line gives false).
  static bool set_entry_identifier(std::string const& line, std::string& identifier,
                                   bool codes_only);

 private:
  FileFormat::AserCompliance compliance_;
};

}  // namespace kora
