#pragma once

/// \file
/// Bond detection from atom positions.

#include <vector>

#include "kora/kernel/atom.hpp"
#include "kora/kernel/bond.hpp"
#include "kora/kernel/cell.hpp"
#include "kora/kernel/handle.hpp"
#include "kora/kernel/molecule.hpp"

namespace kora {

/// When two atoms count as bonded: their distance lies below the sum of their covalent
/// radii plus `tolerance` angstroms (or, when `relative` is true, below that sum times
/// 1 + tolerance), and above minimum_distance, so that atoms on the same spot never bond.
class BondDistanceLimit {
 public:
  static constexpr double minimum_distance = 0.4;

  explicit BondDistanceLimit(double tolerance = 0.55, bool relative = false)
      : tolerance_(tolerance), relative_(relative) {}

  double tolerance() const { return tolerance_; }
  bool relative() const { return relative_; }
  /// The largest bonded distance between two elements; 0 when either is unset, and when the
  /// tolerance makes the limit negative or not a number (nothing then bonds).
  double maximum_distance(Element const& a, Element const& b) const;

 private:
  double tolerance_;
  bool relative_;
};

class BondDetector {
 public:
  enum DetectionMode {
    /// Orthogonal coordinates of the atoms as they are: no lattice, no symmetry.
    molecular = 1,
    /// Crystal structures: the atoms' fractional positions are those of an asymmetric unit
    /// (or more) of the cell; bonds are also found across lattice translations and the space
    /// group's operators, and molecules are completed with symmetry-equivalent atoms.
    crystal = 4
  };
  enum RefinementMode {
    /// Every pair of atoms within the distance limit is bonded.
    no_refinement = 0,
    /// As above, then a hydrogen (or deuterium) bonded to several atoms keeps only the bond
    /// to its nearest partner, as geometric detection over-bonds crowded hydrogens. Each
    /// hydrogen picks its nearest partner (the lower index on equal distances; in crystal
    /// mode, the lower atom number, then the first image found), and a bond survives when
    /// each of its hydrogen ends picked it: so a bond between two hydrogens needs both to
    /// pick each other, and a hydrogen hanging off another that prefers a third atom loses it.
    prune_hydrogens = 1
  };

  BondDetector(DetectionMode detection, RefinementMode refinement, BondDistanceLimit const& limit)
      : detection_(detection), refinement_(refinement), limit_(limit) {}

  DetectionMode detection_mode() const { return detection_; }
  RefinementMode refinement_mode() const { return refinement_; }
  BondDistanceLimit const& limit() const { return limit_; }

  /// Disorder parts (AtomDetails::part, SHELX PART): when separated, atoms of two different
  /// non-zero parts never bond, part 0 bonds to every part, and an atom of a negative part
  /// bonds to no symmetry image (another operation or a lattice translation) of an atom of a
  /// non-zero part, as SHELX treats disorder about a symmetry element. Hydrogen pruning then
  /// only weighs the bonds that parts allow. Off by default: parts are ignored.
  bool separates_parts() const { return separate_parts_; }
  void set_separate_parts(bool separate) { separate_parts_ = separate; }
  /// Whether atoms of these parts may bond, the second as a symmetry image or not.
  static bool parts_may_bond(int part, int other, bool image) {
    if (part == 0 || other == 0) return true;
    return part == other && !(image && part < 0);
  }

  /// The bonds among the atoms from their orthogonal positions, with indexes into `atoms`
  /// and type unknown_bond, each pair once (lower index first), ordered by first then
  /// second index. Atoms without a site, without an element or with a coordinate that is not
  /// finite never bond. Runs in time proportional to the number of atoms (a spatial grid),
  /// whatever the detection mode.
  THandle<std::vector<THandle<BondData>>> bonds(std::vector<THandle<Atom>> const& atoms) const;

  /// The atoms grouped into bonded molecules. In molecular mode: the connected components
  /// of bonds(atoms), each a Molecule3d of the given atoms. In crystal mode: bonds are
  /// found between the atoms and all their images under the cell's space group and lattice
  /// translations, and each molecule is grown from the given atoms until it is whole,
  /// adding symmetry-equivalent atoms (copies with their own sites) where it needs them; a
  /// molecule on an inversion centre or a mirror comes out whole, and the given atoms are
  /// kept where they are. Every given atom ends up in exactly one molecule (as itself or as
  /// an image); polymeric structures stop growing when an atom would repeat by a lattice
  /// translation.
  ///
  /// In crystal mode, in more detail: a given atom that is a symmetry copy of an earlier one (same
  /// element, within 0.01 angstroms of one of its images, and elsewhere in the cell than that atom:
  /// split sites of a disordered atom stay apart) stands for the same atom, so a structure given
  /// with more than its asymmetric unit gains no duplicates; such a copy appears as itself where
  /// the molecule reaches its position, and is otherwise represented by the images of the first.
  /// Positions within 0.05 angstroms of each other are one position, so an atom on a special
  /// position is added once. New atoms are clones of the given atom with a new site: the image's
  /// fractional and orthogonal position, the same occupancy, and the anisotropic displacement
  /// parameters turned by the operator (the uncertainties of coordinates and parameters are kept
  /// where the operator only permutes axes, dropped where it mixes them). Of the symmetry copies of
  /// a molecule, the one that keeps the most given atoms at their own positions is returned; its
  /// atoms are those given atoms, in their order, then the new ones. Atoms without a site or an
  /// element, or with a fractional coordinate beyond a million cells, each make a molecule of their
  /// own. A cell that is not valid, or narrower than a third of the longest possible bond in some
  /// direction, or whose operators' rotations do not form a point group (an incomplete list),
  /// cannot hold a crystal: molecules are then found as in molecular mode. The number of new atoms
  /// is capped at 20 times the number of given atoms times the number of operators, which only a
  /// set of operators that is not a group could reach.
  THandle<std::vector<THandle<Molecule>>> molecules(std::vector<THandle<Atom>>& atoms,
                                                    Cell const& cell) const;

 private:
  DetectionMode detection_;
  RefinementMode refinement_;
  BondDistanceLimit limit_;
  bool separate_parts_ = false;
};

}  // namespace kora
