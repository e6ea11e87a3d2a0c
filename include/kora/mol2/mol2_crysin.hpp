#pragma once

/// \file
/// The CRYSIN record of a Tripos Mol2 file: a cell and a space group given as an
/// International Tables number and a setting.

#include <array>
#include <iosfwd>
#include <string>

#include "kora/kernel/cell.hpp"
#include "kora/kernel/spacegroup.hpp"

namespace kora {

class Mol2Crysin {
 public:
  /// The symbols of the settings of each space-group number (row 0 is empty): the standard
  /// symbol first, "---" for a setting the group does not have, "..." past its last one.
  using SettingTable = std::array<std::array<std::string, 6>, 231>;
  static SettingTable const& setting_table();

  /// From the default cell, then the record read from the stream.
  explicit Mol2Crysin(std::istream& is);
  explicit Mol2Crysin(Cell const& cell);

  /// a, b, c, alpha, beta, gamma, number and setting, by formatted extraction; a failed
  /// field leaves the rest as they were.
  void read(std::istream& is);
  /// The record without a line end; nothing at all when the setting is 0.
  void print(std::ostream& os) const;

  /// The cell of the record, with the space group of its number and setting.
  Cell cell() const;
  /// Number and setting of a space group (setting 0 when its symbol is in no row).
  void convert_from_kora(Spacegroup const& spacegroup);
  Spacegroup convert_to_kora() const;
  /// Number and setting that give back exactly the operators of the space group: those of
  /// convert_from_kora when they do, else the first setting of the group's row, or of the
  /// extra numbers 231 to 238, that does. False, with the setting 0, when none does.
  bool convert_from_kora_exactly(Spacegroup const& spacegroup);

  double a() const { return a_; }
  double b() const { return b_; }
  double c() const { return c_; }
  double alpha() const { return alpha_; }
  double beta() const { return beta_; }
  double gamma() const { return gamma_; }
  int spacegroup_number() const { return number_; }
  int setting() const { return setting_; }

  /// The six parameters within 0.001, the number and the setting equal.
  bool operator==(Mol2Crysin const& other) const;

 private:
  void set_cell_(Cell const& cell);

  double a_ = 0.0;
  double b_ = 0.0;
  double c_ = 0.0;
  double alpha_ = 0.0;
  double beta_ = 0.0;
  double gamma_ = 0.0;
  int number_ = 0;
  int setting_ = 0;
};

}  // namespace kora
