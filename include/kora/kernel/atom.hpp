#pragma once

/// \file
/// Atoms and their sites.

#include <string>

#include "kora/kernel/cell.hpp"
#include "kora/kernel/details.hpp"
#include "kora/kernel/element.hpp"
#include "kora/kernel/geometry.hpp"
#include "kora/kernel/handle.hpp"
#include "kora/kernel/uncertain_value.hpp"

namespace kora {

/// An atom's position: fractional and orthogonal (Cartesian, angstroms) coordinates, an
/// occupancy, the standard uncertainties of the fractional coordinates and the
/// displacement parameters.
class Site {
 public:
  Site(Point const& fractional, Point const& orthogonal, double occupancy = 1.0);
  Site(Point const& fractional, Point const& orthogonal, UncertainValue occupancy,
       THandle<Array<Uncertainty, 3>> position_uncertainty,
       THandle<AtomicDisplacementParameters> displacement_parameters);

  Point const& fractional() const { return fractional_; }
  Point const& orthogonal() const { return orthogonal_; }
  void set_fractional(Point const& p) { fractional_ = p; }
  void set_orthogonal(Point const& p) { orthogonal_ = p; }
  UncertainValue const& occupancy() const { return occupancy_; }
  void set_occupancy(UncertainValue const& occupancy) { occupancy_ = occupancy; }
  /// Never null: when none were given, one all-zero array shared by every such site (read it,
  /// do not change it).
  THandle<Array<Uncertainty, 3>> const& position_uncertainty() const {
    return position_uncertainty_ ? position_uncertainty_ : no_uncertainty_();
  }
  /// Null when the site has no displacement parameters.
  THandle<AtomicDisplacementParameters> const& atomic_displacement_parameters() const {
    return displacement_parameters_;
  }
  /// Readers that learn an atom's displacement parameters after its position (a PDB ANISOU
  /// record follows its ATOM record) set them here.
  void set_atomic_displacement_parameters(
      THandle<AtomicDisplacementParameters> const& displacement_parameters) {
    displacement_parameters_ = displacement_parameters;
  }

 private:
  Point fractional_;
  Point orthogonal_;
  UncertainValue occupancy_;
  THandle<Array<Uncertainty, 3>> position_uncertainty_;
  THandle<AtomicDisplacementParameters> displacement_parameters_;

  static THandle<Array<Uncertainty, 3>> const& no_uncertainty_();
};

class Molecule3d;
class ProteinAtom;

/// The model atom. Its index and connection count are kept up to date by the molecule
/// that owns it (Molecule3d); an atom outside any molecule has index and count as last set.
class Atom {
 public:
  virtual ~Atom() = default;

  virtual std::string const& label() const = 0;
  virtual void set_label(std::string const& label) = 0;
  virtual Element element() const = 0;
  virtual void set_element(Element const& element) = 0;
  virtual int formal_charge() const = 0;
  virtual void set_formal_charge(int charge) = 0;
  virtual bool has_site() const = 0;
  /// Null when the atom has no position.
  virtual THandle<Site> site() const = 0;
  virtual void set_site(THandle<Site> const& site) = 0;
  /// 0-based position in its molecule.
  virtual int index() const = 0;
  virtual void set_index(int index) = 0;
  /// Number of bonded neighbours in its molecule.
  virtual int connection_count() const = 0;
  /// A new atom with the same properties and a copy of the site (not shared).
  virtual THandle<Atom> clone() const = 0;
  /// The protein side of the atom (its residue); null for an atom outside any residue. A
  /// cheaper question than a dynamic_cast across the two bases.
  virtual ProteinAtom const* protein_atom() const { return nullptr; }
  /// What the file said of the atom beyond the model (isotope, residue, PDB record, ...);
  /// null for an atom that keeps none.
  virtual AtomDetails const* details() const { return nullptr; }
  virtual AtomDetails* mutable_details() { return nullptr; }

 protected:
  friend class Molecule3d;
  virtual void set_connection_count_(int count) = 0;
};

/// An atom that remembers its place in the file it was read from.
class FileOrderedAtom3d : public Atom {
 public:
  FileOrderedAtom3d(int file_order, Element const& element, std::string label,
                    THandle<Site> const& site);

  int file_order() const { return file_order_; }

  std::string const& label() const override { return label_; }
  void set_label(std::string const& label) override { label_ = label; }
  Element element() const override { return element_; }
  void set_element(Element const& element) override { element_ = element; }
  int formal_charge() const override { return formal_charge_; }
  void set_formal_charge(int charge) override { formal_charge_ = charge; }
  bool has_site() const override { return static_cast<bool>(site_); }
  THandle<Site> site() const override { return site_; }
  void set_site(THandle<Site> const& site) override { site_ = site; }
  int index() const override { return index_; }
  void set_index(int index) override { index_ = index; }
  int connection_count() const override { return connection_count_; }
  THandle<Atom> clone() const override;
  AtomDetails const* details() const override { return &details_; }
  AtomDetails* mutable_details() override { return &details_; }

 protected:
  void set_connection_count_(int count) override { connection_count_ = count; }
  void copy_to_(FileOrderedAtom3d& atom) const;

 private:
  int file_order_;
  Element element_;
  int formal_charge_ = 0;
  int index_ = 0;
  int connection_count_ = 0;
  std::string label_;
  THandle<Site> site_;
  AtomDetails details_;
};

/// The protein side of an atom: the residue it belongs to.
class ProteinAtom {
 public:
  virtual ~ProteinAtom() = default;

  explicit ProteinAtom(std::string residue_label)
      : residue_label_(std::move(residue_label)), residue_kind_(kind_of_(residue_label_)) {}

  /// Residue name followed by residue number ("ALA12").
  std::string const& residue_label() const { return residue_label_; }
  void set_residue_label(std::string const& label) {
    residue_label_ = label;
    residue_kind_ = kind_of_(residue_label_);
  }
  /// The standard amino acid of the residue name, numbered 1 to 20 in the alphabetical
  /// order of the three-letter codes (ALA 1, ARG 2, ... VAL 20); 0 for anything else.
  int residue_kind() const { return residue_kind_; }

 private:
  static int kind_of_(std::string const& residue_label);

  std::string residue_label_;
  int residue_kind_;
};

/// A protein atom read from a file: an Atom and a ProteinAtom.
class FileOrderedProteinAtom : public FileOrderedAtom3d, public ProteinAtom {
 public:
  FileOrderedProteinAtom(int file_order, Element const& element, std::string label,
                         std::string residue_label, THandle<Site> const& site);

  THandle<Atom> clone() const override;
  ProteinAtom const* protein_atom() const override { return this; }
};

}  // namespace kora
