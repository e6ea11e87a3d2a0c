#pragma once

/// \file
/// An MDL MOL file object: one record of a MOL or SD file (three header lines, a counts
/// line, a connection table in V2000 or V3000 form, and the SD data items that follow it up
/// to "$$$$"), read, written and converted to and from the model.

#include <iosfwd>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "kora/framework/molecule_file.hpp"
#include "kora/kernel/bond.hpp"
#include "kora/kernel/cell.hpp"
#include "kora/kernel/crystal.hpp"
#include "kora/kernel/database_entry.hpp"
#include "kora/kernel/database_entry_identifier.hpp"
#include "kora/kernel/details.hpp"
#include "kora/kernel/handle.hpp"
#include "kora/kernel/molecule.hpp"

namespace kora {

class MolFile : public MoleculeFile {
 public:
  enum FormatVersion { V2000 = 0, V3000 = 1 };

  /// The SD data items of one record: a header line naming the item (beginning with ">"),
  /// then its value lines. Items are kept by key in plain string order, so they are always
  /// written in key order, whatever the order they were read or added in.
  class TagCollection {
   public:
    using Values = std::vector<std::string>;
    using Map = std::map<std::string, THandle<Values>>;

    TagCollection();

    /// Reads data items up to and including the "$$$$" line, which is left behind the
    /// stream's position. At the end of the stream, the stream is set back to just after
    /// the last line that belonged to an item or ended one (clearing its state), so that
    /// stray lines after them are not lost. An item that is still open at the end of the
    /// stream (no blank line or "$$$$" after it) is not kept.
    void read(std::istream& is);
    /// Each item: its key, its value lines trimmed of blanks, tabs and line ends, then an
    /// empty line. The "$$$$" terminator is not written here.
    void print(std::ostream& os) const;

    /// The stored key of an item name: a header line (beginning with ">") is kept as it is;
    /// a name beginning with "<", or "DT" followed by a field number, becomes "> " and the
    /// trimmed name; any other name becomes "> <", the trimmed name with its blanks replaced
    /// by ".", and ">".
    std::string parse_key_in(std::string const& name) const;
    /// The text written for a stored key: the key itself.
    std::string parse_key_out(std::string const& key) const;

    Map const& items() const { return *items_; }
    int size() const { return static_cast<int>(items_->size()); }
    bool empty() const { return items_->empty(); }
    /// The values of the item with this name (normalised by parse_key_in); null when there
    /// is none.
    THandle<Values> values(std::string const& name) const;
    /// Stores the values under parse_key_in(name), replacing an item with the same key.
    void set(std::string const& name, THandle<Values> const& values);

   private:
    friend class MolFile;
    // read, with an item whose header line the caller has already read (when not empty);
    // `standard`: only a line beginning with "$$$$" ends the record.
    void read_(std::istream& is, std::string_view first_header, bool standard = false);

    THandle<Map> items_;
  };

  MolFile();
  /// Reads the named file.
  explicit MolFile(std::string const& file_name);
  /// A record's data items are shared with the entries made from it; copying would share
  /// them too, so a MolFile is not copied.
  MolFile(MolFile const&) = delete;
  MolFile& operator=(MolFile const&) = delete;
  MolFile(MolFile&&) noexcept = default;
  MolFile& operator=(MolFile&&) noexcept = default;
  ~MolFile() override = default;

  using MoleculeFile::read;
  /// Reads one record: the header block, then the V3000 connection table when the counts
  /// line holds "V3000", else the V2000 one, then the data items up to "$$$$".
  void read(std::istream& is) override;
  /// Header, connection table (V3000 when version() is V3000, else V2000), data items and
  /// "$$$$". The header always names this program and today's date.
  /// In standard mode (write_options()), the connection table follows the CTfile layout:
  /// charge codes with "M  CHG", "M  ISO" and "M  RAD" property lines, atoms in their file
  /// order, and V3000 when asked for (version() or write_options().v3000) or when the
  /// record does not fit V2000 (more than 999 atoms or bonds, coordinates wider than their
  /// columns).
  void print(std::ostream& os) const override;
  /// Empties the record: default cell, no molecules, no data items, version V2000, not 2-D,
  /// empty header fields. The identifier and the counts line are kept.
  void clear() override;
  /// Each add empties the record first. The molecule name becomes the identifier's text and
  /// the dimensional code "3D"; molecules are copied.
  void add(Molecule const& molecule, DatabaseEntryIdentifier const& identifier) override;
  /// The entry's crystal maker under its identifier; its data items are not copied.
  void add(CrystalStructureDatabaseEntry const& entry) override;
  /// Always throws std::runtime_error: MOL records hold no crystal.
  void add(Crystal const& crystal, DatabaseEntryIdentifier const& identifier) override;
  /// Every molecule of the maker; its cell is not taken over, its structure details are.
  void add(CrystalMaker const& maker, DatabaseEntryIdentifier const& identifier) override;
  /// An SDfileDatabaseEntry sharing this record's data items.
  THandle<CrystalStructureDatabaseEntry> database_entry() const override;
  /// An empty molecule when there is none, the stored molecule when there is one, and a new
  /// molecule merging all of them in order when there are several.
  THandle<Molecule> molecule() const override;
  THandle<Cell> cell() const override;
  THandle<Crystal> crystal() const override;
  /// The record's molecules as the maker's third list (molecules that may be 2-D), with the
  /// record's structure details.
  THandle<CrystalMaker> crystal_maker() const override;

  /// Reads the four lines of the header block and chooses the version from the counts line.
  void read_header(std::istream& is);
  /// Splits header line 2 into its fixed columns; fields beyond the line are left as they
  /// are.
  void read_header_second_line(std::string const& line);
  /// The V2000 connection table after the counts line, then the data items.
  void read_V2000(std::istream& is);
  /// The V3000 connection table (CTAB block) after the counts line, then the data items.
  void read_V3000(std::istream& is);
  /// Header lines 1 to 3.
  void print_header(std::ostream& os) const;
  /// Counts line and connection table, ending with "M  END". The atom and bond lists are
  /// those made by initialise_print.
  void print_V2000(std::ostream& os) const;
  void print_V3000(std::ostream& os) const;
  /// Numbers the atoms with sites of all molecules from 1, and lists the bonds between them.
  void initialise_print() const;
  /// The MDL code written for a bond type: 2, 3, 4 (aromatic and delocalised), else 1.
  int sd_bond_type(BondType type) const;

  /// Whether a line looks like a MOL counts line: a "V3000" or "V2000" stamp beginning at
  /// column 35, or groups of three columns holding integers or blanks.
  static bool first_formated_line(std::string const& line);

  std::string molecule_name() const { return molecule_name_; }
  std::string comment() const { return comment_; }
  std::string const& user_initials() const { return user_initials_; }
  std::string const& program_name() const { return program_name_; }
  std::string const& date_time() const { return date_time_; }
  std::string const& dimensional_code() const { return dimensional_code_; }
  std::string const& scaling_factors() const { return scaling_factors_; }
  std::string const& energy() const { return energy_; }
  std::string const& registry_number() const { return registry_number_; }
  std::string const& counts_line() const { return counts_line_; }
  FormatVersion version() const { return version_; }
  /// Chooses the form print writes; reset to V2000 by clear and every add.
  void set_version(FormatVersion version) { version_ = version; }
  /// Whether the record read is two-dimensional: every atom has z = 0 and the header does
  /// not say "3D".
  bool is_2d() const { return two_d_; }
  /// What the record says of the structure: after reading, source format "sdf", no cell of
  /// its own, and the dimension (the header's "2D"/"3D", else "2D" when every z is 0, else
  /// "3D"); after add(maker), the maker's details. Emptied by clear.
  StructureDetails const& structure_details() const { return structure_details_; }

  THandle<TagCollection> tags() const { return tags_; }
  void add_sd_tag(std::string const& name, THandle<std::vector<std::string>> const& values);
  void add_sd_tag(std::string const& name, std::string const& value);

 private:
  DatabaseEntryIdentifier identifier_;
  THandle<Cell> cell_;
  THandle<MoleculeList> molecules_;
  std::string counts_line_;
  bool two_d_ = false;
  FormatVersion version_ = V2000;
  std::string molecule_name_;
  std::string comment_;
  std::string user_initials_;
  std::string program_name_;
  std::string date_time_;
  std::string dimensional_code_;
  std::string scaling_factors_;
  std::string energy_;
  std::string registry_number_;
  THandle<TagCollection> tags_;
  // Working lists of print, filled by initialise_print.
  mutable THandle<std::vector<THandle<Atom>>> atoms_;
  mutable THandle<std::vector<THandle<BondData>>> bonds_;
  mutable int natoms_ = 0;
  mutable int nbonds_ = 0;
  StructureDetails structure_details_;

  // Fills the structure details of a record just read; `flat` when every z is 0.
  void record_structure_details_(bool flat);
  // The whole record as the standard mode writes it.
  void print_standard_(std::ostream& os) const;
};

/// Accepts every symbol: element symbols read from MOL files are not checked.
void verify_symbol(std::string symbol);

}  // namespace kora
