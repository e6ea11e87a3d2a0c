#pragma once

/// \file
/// Space groups: a compact Hermann-Mauguin symbol, an International Tables number and the
/// full list of symmetry operators (centring translations included).

#include <string>
#include <vector>

#include "kora/kernel/geometry.hpp"
#include "kora/kernel/handle.hpp"
#include "kora/kernel/symmetry.hpp"

namespace kora {

class Spacegroup {
 public:
  /// Crystal systems; unknown_system lets the constructor derive it from the group.
  enum System {
    unknown_system = 0,
    triclinic = 1,
    monoclinic = 2,
    orthorhombic = 3,
    tetragonal = 4,
    trigonal = 5,
    hexagonal = 6,
    cubic = 7
  };
  /// Lattice centrings. rhombohedral is the obverse R centring of hexagonal axes; a group on
  /// rhombohedral axes is primitive.
  enum Centring {
    unknown_centring = 0,
    primitive = 1,
    body_centred = 2,
    a_centred = 3,
    b_centred = 4,
    c_centred = 5,
    face_centred = 6,
    rhombohedral = 7
  };
  enum IncludeOriginCriterion { exclude_origin = 0, include_origin = 1 };

  /// P1.
  Spacegroup();

  /// From a symbol in any common spelling: with or without blanks, full or short
  /// ("P 1 21/c 1", "P21/c", "P 21 21 21"), old cubic forms ("Pm3m", "Fd3m", "Ia3") and new
  /// ones ("Pm-3m"), new e-glide names ("Cmce"), "H3" or "R3" for hexagonal axes, "R3r",
  /// "R 3r" or "R3:R" for rhombohedral axes, ":1"/":2" origin choices (the first is the
  /// default), and the doubled C- and F-centred tetragonal cells ("C4/amb", "F41/ddm").
  /// The stored symbol is the compact short form of the setting found ("P21/c", "Fm3m",
  /// "R3r", "Cmca"). A number from 1 to 230 picks between settings that share a symbol;
  /// with a symbol that names no setting it gives that number's standard operators and the
  /// symbol is kept as given (blanks removed). A symbol that names nothing, with any other
  /// number (-1 means "look it up"), keeps that symbol, has number 0 and only the identity.
  explicit Spacegroup(std::string const& symbol, int number = -1, System system = unknown_system);

  /// From operators. With number 0 the setting is identified when the operators are those
  /// of a tabulated one (number and compact symbol are then set; the name is kept
  /// otherwise); any other number keeps the number and name as given. A null or empty
  /// list means P1. The operators are kept in the given order.
  Spacegroup(THandle<std::vector<CrystalSymmetryOperator>> const& operators, int number,
             std::string const& name);

  std::string const& symbol() const { return symbol_; }
  /// The symbol that names the setting of a tabulated group, with blanks between its parts
  /// and the origin choice or axes after a colon ("P 1 21/c 1", "I 41/a:2", "R 3:H",
  /// "R 3:R", "P 21/b 21/c 21/a" for the non-standard Pbca settings as tabulated); the
  /// constructor from a symbol gives back these operators. Empty for operators that are no
  /// tabulated setting, and for a symbol that named none.
  std::string const& setting_symbol() const { return setting_symbol_; }
  int number() const { return number_; }
  System system() const { return system_; }
  /// Every operator of the group, the first being the identity for groups built from a
  /// symbol; centring translations are included (C2/c has 8).
  std::vector<CrystalSymmetryOperator> const& operators() const { return operators_; }
  int order() const { return static_cast<int>(operators_.size()); }

  /// The centring found among the operators (pure translations); unknown_centring when
  /// their translations form no standard centring.
  Centring centring() const;
  /// Whether -x,-y,-z is one of the operators.
  bool inversion_at_origin() const;

  /// The setting symbols of every tabulated setting, in table order (group number first).
  static std::vector<std::string> tabulated_settings();

  /// The lattice translations of a centring, the origin first when asked for.
  static std::vector<Vector<double, 3>> standard_centring_vectors(Centring centring,
                                                                  IncludeOriginCriterion criterion);

  /// The same set of operators (modulo lattice translations), whatever their order.
  friend bool operator==(Spacegroup const& a, Spacegroup const& b);

 private:
  std::string symbol_;
  std::string setting_symbol_;
  int number_ = 0;
  System system_ = unknown_system;
  std::vector<CrystalSymmetryOperator> operators_;
};

}  // namespace kora
