// The Python classes of the model: bond types, space groups, cells, atoms, bonds and
// molecules.

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <cstddef>
#include <limits>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "bindings.hpp"
#include "kora/io.hpp"

namespace kora_python {

namespace {

using kora::THandle;

double nan() {
  return std::numeric_limits<double>::quiet_NaN();
}

struct Atom {
  THandle<kora::Atom> atom;
  int index;
  bool has_cell;
};

struct Bond {
  int atom1;
  int atom2;
  kora::BondType type;
};

// An atom's Cartesian or fractional position as a tuple; None without a position, and for
// fractional coordinates without a cell.
py::object position(Atom const& a, bool fractional) {
  THandle<kora::Site> const site = a.atom->site();
  if (!site || (fractional && !a.has_cell)) return py::none();
  kora::Point const& p = fractional ? site->fractional() : site->orthogonal();
  return py::make_tuple(p[0], p[1], p[2]);
}

// Cartesian (or fractional) positions, one row per atom; NaN where there is none.
py::array_t<double> positions(kora::Molecule const& molecule, bool fractional, bool has_cell) {
  py::ssize_t const n = molecule.natoms();
  py::array_t<double> array({n, py::ssize_t(3)});
  auto out = array.mutable_unchecked<2>();
  for (py::ssize_t i = 0; i < n; ++i) {
    THandle<kora::Atom> const atom = molecule.atom(static_cast<int>(i));
    THandle<kora::Site> const site = atom->site();
    for (py::ssize_t a = 0; a < 3; ++a) {
      double v = nan();
      if (site && (has_cell || !fractional))
        v = fractional ? site->fractional()[std::size_t(a)] : site->orthogonal()[std::size_t(a)];
      out(i, a) = v;
    }
  }
  return array;
}

template <class T>
py::array_t<double> matrix(kora::Matrix<T, 3, 3> const& m) {
  py::array_t<double> array({py::ssize_t(3), py::ssize_t(3)});
  auto out = array.mutable_unchecked<2>();
  for (py::ssize_t i = 0; i < 3; ++i)
    for (py::ssize_t j = 0; j < 3; ++j)
      out(i, j) = m(std::size_t(i), std::size_t(j));
  return array;
}

}  // namespace

void bind_bond_type(py::module_& m) {
  py::enum_<kora::BondType>(m, "BondType", "The order of a bond.")
      .value("UNKNOWN", kora::unknown_bond)
      .value("SINGLE", kora::single_bond)
      .value("DOUBLE", kora::double_bond)
      .value("TRIPLE", kora::triple_bond)
      .value("QUADRUPLE", kora::quadruple_bond)
      .value("AROMATIC", kora::aromatic_bond)
      .value("POLYMERIC", kora::polymeric_bond)
      .value("DELOCALISED", kora::delocalised_bond)
      .value("PI", kora::pi_bond);
}

void bind_model(py::module_& m) {
  py::class_<kora::Spacegroup>(m, "SpaceGroup", "A space group and its symmetry operators.")
      .def_property_readonly(
          "symbol", [](kora::Spacegroup const& s) { return text(s.symbol()); },
          "The Hermann-Mauguin symbol, as the file gave it or as kora names the group.")
      .def_property_readonly(
          "setting", [](kora::Spacegroup const& s) { return text(s.setting_symbol()); },
          "The symbol that names the setting, origin choice and axes included ('I 41/a:2', "
          "'R 3:H'); empty for operators that are no tabulated setting.")
      .def_property_readonly("number", &kora::Spacegroup::number,
                             "The number in International Tables (1 to 230); 0 when unknown.")
      .def_property_readonly(
          "operators",
          [](kora::Spacegroup const& s) {
            std::vector<std::string> ops;
            for (kora::CrystalSymmetryOperator const& op : s.operators())
              ops.push_back(op.to_string());
            return ops;
          },
          "The operators as strings such as 'x,y,z' or '-x,y+1/2,-z'.")
      .def("__len__", &kora::Spacegroup::order)
      .def("__repr__", [](kora::Spacegroup const& s) {
        return "<kora.SpaceGroup " + s.symbol() + " (" + std::to_string(s.number()) + ")>";
      });

  py::class_<kora::Cell>(m, "Cell", "A unit cell: lengths in angstroms, angles in degrees.")
      .def_property_readonly("a", &kora::Cell::a, "Length of a, in angstroms.")
      .def_property_readonly("b", &kora::Cell::b, "Length of b, in angstroms.")
      .def_property_readonly("c", &kora::Cell::c, "Length of c, in angstroms.")
      .def_property_readonly(
          "alpha", [](kora::Cell const& c) { return c.alpha().degrees(); }, "In degrees.")
      .def_property_readonly(
          "beta", [](kora::Cell const& c) { return c.beta().degrees(); }, "In degrees.")
      .def_property_readonly(
          "gamma", [](kora::Cell const& c) { return c.gamma().degrees(); }, "In degrees.")
      .def_property_readonly(
          "lengths", [](kora::Cell const& c) { return py::make_tuple(c.a(), c.b(), c.c()); },
          "(a, b, c).")
      .def_property_readonly(
          "angles",
          [](kora::Cell const& c) {
            return py::make_tuple(c.alpha().degrees(), c.beta().degrees(), c.gamma().degrees());
          },
          "(alpha, beta, gamma).")
      .def_property_readonly("volume", &kora::Cell::volume, "In cubic angstroms.")
      .def_property_readonly(
          "fractional_to_orthogonal",
          [](kora::Cell const& c) { return matrix(c.fractional_to_orthogonal()); },
          "The 3x3 matrix taking fractional to Cartesian coordinates (columns a, b, c).")
      .def_property_readonly(
          "orthogonal_to_fractional",
          [](kora::Cell const& c) { return matrix(c.orthogonal_to_fractional()); },
          "The inverse of fractional_to_orthogonal.")
      .def_property_readonly("spacegroup", &kora::Cell::spacegroup, "The cell's space group.")
      .def("__repr__", [](kora::Cell const& c) {
        std::ostringstream s;
        s << "<kora.Cell " << c.a() << ' ' << c.b() << ' ' << c.c() << ' ' << c.alpha().degrees()
          << ' ' << c.beta().degrees() << ' ' << c.gamma().degrees() << '>';
        return s.str();
      });

  py::class_<Atom>(m, "Atom", "An atom of a molecule.")
      .def_readonly("index", &Atom::index, "Its place in the molecule's atoms, from 0.")
      .def_property_readonly(
          "label", [](Atom const& a) { return text(a.atom->label()); },
          "The atom's name in the file.")
      .def_property_readonly(
          "element",
          [](Atom const& a) {
            kora::Element const e = a.atom->element();
            return e.is_set() ? e.symbol() : std::string();
          },
          "The element symbol; '' when unknown.")
      .def_property_readonly(
          "atomic_number",
          [](Atom const& a) {
            kora::Element const e = a.atom->element();
            return e.is_set() ? e.atomic_number() : 0;
          },
          "0 when the element is unknown.")
      .def_property_readonly(
          "formal_charge", [](Atom const& a) { return a.atom->formal_charge(); },
          "In units of the elementary charge.")
      .def_property_readonly(
          "mass_number",
          [](Atom const& a) {
            kora::AtomDetails const* d = a.atom->details();
            return d ? d->mass_number : 0;
          },
          "The isotope's mass number as the file gave it (2 for deuterium); 0 for the natural "
          "mixture.")
      .def_property_readonly(
          "partial_charge",
          [](Atom const& a) -> py::object {
            kora::AtomDetails const* d = a.atom->details();
            if (!d || !d->has_partial_charge) return py::none();
            return py::float_(d->partial_charge);
          },
          "The partial charge the file gave (Mol2); None when it gave none.")
      .def_property_readonly(
          "chain",
          [](Atom const& a) {
            kora::AtomDetails const* d = a.atom->details();
            return d ? d->chain : std::string();
          },
          "The chain identifier the file gave (PDB); '' when none.")
      .def_property_readonly(
          "residue_name",
          [](Atom const& a) {
            kora::AtomDetails const* d = a.atom->details();
            return d ? d->residue_name : std::string();
          },
          "The name of the atom's residue ('ALA', 'HOH'); '' when it is in none.")
      .def_property_readonly(
          "residue_number",
          [](Atom const& a) -> py::object {
            kora::AtomDetails const* d = a.atom->details();
            if (!d || d->residue_name.empty()) return py::none();
            return py::int_(d->residue_number);
          },
          "The sequence number of the atom's residue; None when it is in none.")
      .def_property_readonly(
          "insertion_code",
          [](Atom const& a) {
            kora::AtomDetails const* d = a.atom->details();
            return d && d->insertion_code != ' ' ? std::string(1, d->insertion_code)
                                                 : std::string();
          },
          "The residue's insertion code (PDB); '' when none.")
      .def_property_readonly(
          "hetero",
          [](Atom const& a) {
            kora::AtomDetails const* d = a.atom->details();
            return d && d->hetero;
          },
          "Whether the atom was read from a HETATM record (PDB).")
      .def_property_readonly(
          "b_factor",
          [](Atom const& a) -> py::object {
            kora::AtomDetails const* d = a.atom->details();
            if (!d || !d->has_b_factor) return py::none();
            return py::float_(d->b_factor);
          },
          "The isotropic temperature factor the file gave (PDB), in square angstroms; None "
          "when it gave none.")
      .def_property_readonly(
          "file_position",
          [](Atom const& a) -> py::object {
            kora::AtomDetails const* d = a.atom->details();
            if (!d || !d->has_file_position) return py::none();
            return py::make_tuple(d->file_position[0], d->file_position[1], d->file_position[2]);
          },
          "The fractional position the file gave the atom (SHELX), which an image made by "
          "symmetry to complete a molecule shares with its atom; None for other formats.")
      .def_property_readonly(
          "alt_loc",
          [](Atom const& a) {
            kora::AtomDetails const* d = a.atom->details();
            return d && d->alt_loc != ' ' ? std::string(1, d->alt_loc) : std::string();
          },
          "The alternate location indicator (PDB); '' when none.")
      .def_property_readonly(
          "model",
          [](Atom const& a) {
            kora::AtomDetails const* d = a.atom->details();
            return d ? d->model : 0;
          },
          "The MODEL number the atom was read under (PDB); 0 when the file had none.")
      .def_property_readonly(
          "part",
          [](Atom const& a) {
            kora::AtomDetails const* d = a.atom->details();
            return d ? d->part : 0;
          },
          "The disorder part (SHELX PART); 0 for the common part.")
      .def_property_readonly(
          "coordinates", [](Atom const& a) { return position(a, false); },
          "Cartesian coordinates in angstroms; None when the atom has no position.")
      .def_property_readonly(
          "fractional", [](Atom const& a) { return position(a, true); },
          "Fractional coordinates; None when the atom has no position or the entry no cell.")
      .def_property_readonly(
          "occupancy",
          [](Atom const& a) -> py::object {
            THandle<kora::Site> const site = a.atom->site();
            if (!site) return py::none();
            return py::float_(site->occupancy().value());
          },
          "None when the atom has no position.")
      .def_property_readonly(
          "residue",
          [](Atom const& a) -> py::object {
            kora::ProteinAtom const* protein = a.atom->protein_atom();
            if (!protein) return py::none();
            return text(protein->residue_label());
          },
          "The residue label of a protein atom (as PDB files give them); None otherwise.")
      .def("__repr__", [](Atom const& a) {
        return py::str("<kora.Atom {} {}>").format(text(a.atom->label()), a.index);
      });

  py::class_<Bond>(m, "Bond", "A bond between two atoms of a molecule.")
      .def_property_readonly(
          "atoms", [](Bond const& b) { return std::make_pair(b.atom1, b.atom2); },
          "The indexes of its two atoms in the molecule.")
      .def_readonly("type", &Bond::type, "A kora.BondType.")
      .def("__repr__", [](Bond const& b) {
        return py::str("<kora.Bond {}-{} {}>").format(b.atom1, b.atom2, py::cast(b.type));
      });

  py::class_<Molecule>(m, "Molecule", "Atoms and the bonds between them.")
      .def("__len__", [](Molecule const& mol) { return mol.molecule->natoms(); })
      .def_property_readonly(
          "natoms", [](Molecule const& mol) { return mol.molecule->natoms(); }, "len(molecule).")
      .def_property_readonly(
          "nbonds", [](Molecule const& mol) { return mol.molecule->nbonds(); }, "len(bonds).")
      .def_property_readonly(
          "atoms",
          [](Molecule const& mol) {
            std::vector<Atom> atoms;
            int const n = mol.molecule->natoms();
            atoms.reserve(std::size_t(n));
            for (int i = 0; i < n; ++i)
              atoms.push_back({mol.molecule->atom(i), i, mol.has_cell});
            return atoms;
          },
          "The atoms, each a kora.Atom.")
      .def_property_readonly(
          "bonds",
          [](Molecule const& mol) {
            std::vector<Bond> bonds;
            int const n = mol.molecule->nbonds();
            bonds.reserve(std::size_t(n));
            for (int i = 0; i < n; ++i) {
              auto const [a, b] = mol.molecule->bond_atoms(i);
              bonds.push_back({a, b, mol.molecule->bond(i)->type()});
            }
            return bonds;
          },
          "The bonds, each a kora.Bond.")
      .def_property_readonly(
          "coordinates", [](Molecule const& mol) { return positions(*mol.molecule, false, true); },
          "Cartesian coordinates as an (n, 3) array; NaN rows for atoms without a position.")
      .def_property_readonly(
          "fractional_coordinates",
          [](Molecule const& mol) { return positions(*mol.molecule, true, mol.has_cell); },
          "Fractional coordinates as an (n, 3) array; NaN rows for atoms without a position, "
          "and NaN everywhere when the entry has no cell.")
      .def_property_readonly(
          "formula",
          [](Molecule const& mol) {
            kora::FormulaCounter counter;
            counter.add(*mol.molecule);
            return counter.formula();
          },
          "In Hill order: C, H, then the other elements alphabetically; '?' counts atoms of "
          "unknown element.")
      .def_property_readonly(
          "formal_charge", [](Molecule const& mol) { return mol.molecule->formal_charge(); },
          "The sum of the atoms' formal charges.")
      .def_property_readonly(
          "identifier", [](Molecule const& mol) { return text(mol.identifier); },
          "The identifier of the entry the molecule came from.")
      .def("__repr__", [](Molecule const& mol) {
        return "<kora.Molecule " + std::to_string(mol.molecule->natoms()) + " atoms, " +
               std::to_string(mol.molecule->nbonds()) + " bonds>";
      });
}

}  // namespace kora_python
