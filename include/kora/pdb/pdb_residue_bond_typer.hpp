#pragma once

/// \file
/// Bond orders for standard amino-acid residues: geometric bond detection gives bonds without
/// orders, and this typer sets the double and aromatic bonds of the backbone carbonyl, the
/// side-chain carbonyls and carboxylates and the aromatic rings from the atom names.

#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "kora/framework/options.hpp"
#include "kora/kernel/atom.hpp"
#include "kora/kernel/bond.hpp"
#include "kora/kernel/handle.hpp"
#include "kora/kernel/molecule.hpp"

namespace kora {

class PdbResidueBondTyper {
 public:
  explicit PdbResidueBondTyper(Mode mode = Mode::classic) : mode_(mode) {}

  /// Types the bonds of the range (the bonds of one molecule).
  ///
  /// Classic mode: bonds between protein atoms are grouped into residues by residue kind: a
  /// bond whose first atom has another kind than the current residue starts the next one;
  /// within a residue, bonds reaching an atom of another kind are left out. Consecutive
  /// residues of the same kind are typed together.
  ///
  /// Standard mode: every residue (chain, residue label, insertion code) is typed with maps
  /// of its own, from the bonds joining two of its atoms wherever they stand in the range;
  /// atom names are taken without their alternate-location letter, and a residue with
  /// alternate locations is typed once per location, with the bonds of atoms without a
  /// location and those of that location.
  void apply(PolymorphicIterator<THandle<Bond>> begin, PolymorphicIterator<THandle<Bond>> end);

  /// The base atom name of a label: CD1A gives CD1, CGB gives CG; labels that are not a
  /// carbon, nitrogen or oxygen with a Greek position letter are returned unchanged.
  std::string convert_label(std::string const& label) const;

  /// Applies the rule of the current residue kind, then makes the backbone C-O double.
  void type_current_residue();
  /// Gives the bond of the pair key ("CD2-CG": the two base names, the smaller first) the
  /// type; a key that names no bond of the residue is ignored.
  void set_bond_type(std::string const& key, BondType type);

  /// The rules, by residue.
  void type_asparagine();
  void type_aspartic_acid();
  void type_glutamine();
  void type_glutamic_acid();
  void type_histidine();
  void type_phenylalanine();
  void type_tryptophan();
  void type_tyrosine();

 private:
  // Residue kinds (the alphabetical numbering of the twenty standard amino acids).
  static constexpr int asparagine = 3;
  static constexpr int aspartic_acid = 4;
  static constexpr int glutamine = 6;
  static constexpr int glutamic_acid = 7;
  static constexpr int histidine = 9;
  static constexpr int phenylalanine = 14;
  static constexpr int tryptophan = 18;
  static constexpr int tyrosine = 19;

  // convert_label, remembered per distinct label.
  std::string const& converted_label_(std::string const& label);
  // Enters the bond and its atoms into the maps under their converted names.
  void enter_(THandle<Bond> const& bond, std::string const& name1, std::string const& name2);
  void apply_by_residue_(PolymorphicIterator<THandle<Bond>> begin,
                         PolymorphicIterator<THandle<Bond>> end);
  // Whether the atom mapped under the label has `count` bonds; false when none is mapped.
  bool has_connections_(std::string const& label, int count) const;
  // The connection count of the atom mapped under the label; -1 when none is mapped.
  int connections_(std::string const& label) const;
  // The carboxylate rule of aspartic and glutamic acid.
  void type_carboxylate_(char const* oxygen1, char const* oxygen2, char const* key1,
                         char const* key2);

  // The bonds and atoms of the current residue under their keys and base names. A residue
  // has a few dozen at most, so a list searched from the front is the cheapest map.
  template <class T>
  using Keyed = std::vector<std::pair<std::string, T>>;
  template <class T>
  static void put_(Keyed<T>& list, std::string const& key, T const& value);
  template <class T>
  static T const* find_(Keyed<T> const& list, std::string_view key);

  Keyed<THandle<Bond>> bonds_;
  Keyed<THandle<Atom>> atoms_;
  int residue_kind_ = 0;
  std::unordered_map<std::string, std::string> converted_;
  std::string key_;  // reused for every bond
  Mode mode_;
};

}  // namespace kora
