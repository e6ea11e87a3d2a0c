#pragma once

/// \file
/// The BOND section of a Tripos Mol2 file: one bond a line.

#include <iosfwd>
#include <string>
#include <vector>

#include "kora/framework/options.hpp"
#include "kora/kernel/bond.hpp"
#include "kora/kernel/handle.hpp"
#include "kora/kernel/molecule.hpp"

namespace kora {

/// One BOND line: id, origin and target atom ids (from 1) and the SYBYL bond type.
class Mol2BondLine {
 public:
  Mol2BondLine() = default;
  explicit Mol2BondLine(std::istream& is) { read(is); }
  Mol2BondLine(int bond_id, int origin, int target, std::string type)
      : bond_id_(bond_id), origin_(origin), target_(target), type_(std::move(type)) {}

  /// Reads one line: id, origin, target and type; fields that do not parse keep what they
  /// held.
  void read(std::istream& is);
  void read(std::istream& is, std::string& buffer);
  /// Right-aligned in 6, 6, 6 and 5 columns, without a line end.
  void print(std::ostream& os) const;

  /// BondData(origin - 1, target - 1, bond type of the code).
  THandle<BondData> bond() const;
  /// The bond type of a SYBYL code: "1" single, "2" double, "3" triple, "ar" aromatic, "am"
  /// single, "4" quadruple, "po" polymeric, "de" and "dl" delocalised, "pi" pi; anything
  /// else (case matters) unknown.
  BondType sybyl_to_symbol(std::string const& type) const;

  int bond_id() const { return bond_id_; }
  int origin() const { return origin_; }
  int target() const { return target_; }
  std::string const& type() const { return type_; }

  bool operator==(Mol2BondLine const& other) const = default;

 private:
  int bond_id_ = 0;
  int origin_ = 0;
  int target_ = 0;
  std::string type_;
};

/// The whole BOND section, in file order.
class Mol2Bond {
 public:
  static constexpr int maximum_count = 10'000'000;

  Mol2Bond() = default;
  Mol2Bond(std::istream& is, int count) { read(is, count); }
  /// Lines for every bond of the molecule, with its SYBYL bond types.
  explicit Mol2Bond(Molecule const& molecule);
  /// Lines for the bonds of each subset in turn; atom ids run on across the subsets as the
  /// ATOM section numbers them.
  explicit Mol2Bond(std::vector<THandle<MoleculeSubset>> const& subsets);
  /// The same with the SYBYL bond types of each subset given (types[k][j] for bond j of
  /// subset k).
  Mol2Bond(std::vector<THandle<MoleculeSubset>> const& subsets,
           std::vector<std::vector<std::string>> const& types);

  /// Reads `count` lines (none for 0 or less); a count above maximum_count throws
  /// std::runtime_error naming it.
  void read(std::istream& is, int count);
  /// The same in classic mode; in standard mode blank and "#" lines are passed over and the
  /// section ends early at the end of the stream or before a line beginning with "@" (the
  /// next section's header, left in the stream), without lines of defaults.
  void read(std::istream& is, int count, ReadOptions const& options);
  void print(std::ostream& os) const;

  THandle<std::vector<THandle<BondData>>> bonds() const;

  std::vector<THandle<Mol2BondLine>> const& lines() const { return lines_; }
  bool empty() const { return lines_.empty(); }

  bool operator==(Mol2Bond const& other) const;

 private:
  std::vector<THandle<Mol2BondLine>> lines_;
};

}  // namespace kora
