#include "kora/mol2/mol2_atom.hpp"

#include <cmath>
#include <ios>
#include <istream>
#include <ostream>
#include <stdexcept>

#include "kernel/handle_arena.hpp"
#include "kernel/text_cursor.hpp"
#include "kernel/text_format.hpp"
#include "kora/kernel/string_functions.hpp"
#include "mol2/mol2_lines.hpp"

namespace kora {

Mol2AtomLine::Mol2AtomLine(int atom_id, std::string name, double x, double y, double z,
                           std::string type, int substructure_id,
                           std::string const& substructure_name, int charge)
    : atom_id_(atom_id),
      name_(trim(name, " \t")),
      x_(x),
      y_(y),
      z_(z),
      type_(trim(type, " \t")),
      substructure_id_(substructure_id),
      substructure_name_(trim(substructure_name, " \t")),
      charge_(charge),
      partial_charge_(charge),
      has_partial_charge_(true) {}

void Mol2AtomLine::read(std::istream& is) {
  std::string buffer;
  read(is, buffer);
}

void Mol2AtomLine::read(std::istream& is, std::string& buffer) {
  kora::getline(is, buffer);
  substructure_name_.clear();
  charge_ = 0;
  substructure_id_ = 1;
  partial_charge_ = 0.0;
  has_partial_charge_ = false;
  detail::TextCursor fields(buffer);
  if (!(fields.read(atom_id_) && fields.read(name_) && fields.read(x_) && fields.read(y_) &&
        fields.read(z_) && fields.read(type_) && fields.read(substructure_id_) &&
        fields.read(substructure_name_)))
    return;
  // The same column read once more as a real number, for the partial charge.
  detail::TextCursor charge_field(fields.rest());
  has_partial_charge_ = charge_field.read(partial_charge_);
  (void)fields.read(charge_);
}

void Mol2AtomLine::print(std::ostream& os) const {
  char const fill = os.fill();
  std::string line;
  line.reserve(96);
  detail::append_int(line, atom_id_, 6, fill);
  line += ' ';
  detail::append_left(line, name_, 6, fill);
  line += ' ';
  detail::append_fixed(line, x_, 4, 8, fill);
  line += ' ';
  detail::append_fixed(line, y_, 4, 8, fill);
  line += ' ';
  detail::append_fixed(line, z_, 4, 8, fill);
  line += "   ";
  detail::append_left(line, type_, 8, fill);
  line += ' ';
  detail::append_int(line, substructure_id_, 2, fill);
  line += ' ';
  line += substructure_name_;
  line += ' ';
  detail::append_fixed(line, static_cast<double>(charge_), 4, 8, fill);
  os.write(line.data(), static_cast<std::streamsize>(line.size()));
  os.setf(std::ios::fixed, std::ios::floatfield);
  os.setf(std::ios::right, std::ios::adjustfield);
  os.precision(4);
}

std::string Mol2AtomLine::sybyl_to_symbol(std::string const& type) const {
  std::size_t const dot = type.find('.');
  if (dot != std::string::npos) return type.substr(0, dot);
  if (type == "LP" || type == "Du") return "Unknown";
  return type;
}

namespace {

// The element of a SYBYL type without a copy of its symbol.
Element element_of_type(std::string_view type) {
  std::size_t const dot = type.find('.');
  if (dot != std::string_view::npos) return Element(type.substr(0, dot));
  if (type == "LP" || type == "Du") return Element();
  return Element(type);
}

// Atoms and sites of many lines, made in blocks: an atom in a substructure is a protein atom.
struct AtomMaker {
  detail::HandleArena<FileOrderedAtom3d> atoms;
  detail::HandleArena<FileOrderedProteinAtom> protein_atoms;
  detail::HandleArena<Site> sites;

  explicit AtomMaker(std::size_t expected)
      : atoms(expected), protein_atoms(expected), sites(expected) {}

  THandle<Atom> atom(Mol2AtomLine const& line) {
    Element const element = element_of_type(line.type());
    if (!line.substructure_name().empty()) {
      return THandle<Atom>(protein_atoms.make(line.atom_id(), element, line.name(),
                                              line.substructure_name(), THandle<Site>()));
    }
    return THandle<Atom>(atoms.make(line.atom_id(), element, line.name(), THandle<Site>()));
  }
  THandle<Site> site(Mol2AtomLine const& line, Cell const& cell) {
    Point const p(line.x(), line.y(), line.z());
    return sites.make(cell.orthogonal_to_fractional() * p, p, 1.0);
  }
};

}  // namespace

THandle<Atom> Mol2AtomLine::atom() const {
  return AtomMaker(1).atom(*this);
}

THandle<Site> Mol2AtomLine::sites(Cell const& cell) const {
  return AtomMaker(1).site(*this, cell);
}

bool Mol2AtomLine::operator==(Mol2AtomLine const& o) const {
  auto const close = [](double a, double b) { return std::fabs(a - b) <= 0.0001; };
  return atom_id_ == o.atom_id_ && name_ == o.name_ && type_ == o.type_ &&
         substructure_id_ == o.substructure_id_ && substructure_name_ == o.substructure_name_ &&
         charge_ == o.charge_ && close(x_, o.x_) && close(y_, o.y_) && close(z_, o.z_);
}

namespace {

THandle<Mol2AtomLine> line_of(Atom const& atom, int id, std::string const& type, int substructure,
                              std::string const& substructure_name) {
  Point const p = atom.site()->orthogonal();
  return make_handle<Mol2AtomLine>(id, atom.label(), p[0], p[1], p[2], type, substructure,
                                   substructure_name, atom.formal_charge());
}

}  // namespace

Mol2Atom::Mol2Atom(Molecule const& molecule) {
  std::string const substructure = "RES1";
  int const n = molecule.natoms();
  for (int i = 0; i < n; ++i) {
    if (!molecule.atom(i)->has_site()) {
      throw std::invalid_argument("Internal error in Mol2Atom: atom " + int_to_string(i) +
                                  " does not have position information");
    }
  }
  std::vector<std::string> const types = molecule.sybyl_atom_types();
  lines_.reserve(static_cast<std::size_t>(n));
  for (int i = 0; i < n; ++i) {
    lines_.push_back(
        line_of(*molecule.atom(i), i + 1, types[static_cast<std::size_t>(i)], 1, substructure));
  }
}

Mol2Atom::Mol2Atom(std::vector<THandle<MoleculeSubset>> const& subsets)
    : Mol2Atom(subsets, detail::types_of_subsets(subsets, [](MoleculeSubset const& subset) {
                 return subset.sybyl_atom_types();
               })) {}

Mol2Atom::Mol2Atom(std::vector<THandle<MoleculeSubset>> const& subsets,
                   std::vector<std::vector<std::string>> const& all_types) {
  detail::check_type_count("Mol2Atom", "subsets", all_types.size(), subsets.size());
  int id = 1;
  for (std::size_t k = 0; k < subsets.size(); ++k) {
    MoleculeSubset const& subset = *subsets[k];
    std::string const name = "RES" + int_to_string(static_cast<int>(k) + 1);
    std::vector<std::string> const& types = all_types[k];
    detail::check_type_count("Mol2Atom", "atoms", types.size(),
                             static_cast<std::size_t>(subset.natoms()));
    for (int j = 0; j < subset.natoms(); ++j) {
      lines_.push_back(line_of(*subset.atom(j), id++, types[static_cast<std::size_t>(j)],
                               static_cast<int>(k) + 1, name));
    }
  }
}

void Mol2Atom::read(std::istream& is, int count) {
  detail::read_section_lines(is, count, maximum_count, "Mol2Atom::read", "atoms", lines_);
}

void Mol2Atom::read(std::istream& is, int count, ReadOptions const& options) {
  detail::read_section_lines(is, count, maximum_count, "Mol2Atom::read", "atoms", lines_,
                             options.standard());
}

void Mol2Atom::print(std::ostream& os) const {
  detail::print_section_lines(os, lines_);
}

THandle<std::vector<THandle<Atom>>> Mol2Atom::atoms(Cell const& cell) const {
  return atoms(cell, -1);
}

THandle<std::vector<THandle<Atom>>> Mol2Atom::atoms(Cell const& cell, int substructure) const {
  auto atoms = make_handle<std::vector<THandle<Atom>>>();
  atoms->reserve(lines_.size());
  AtomMaker made(lines_.size());
  for (std::size_t i = 0; i < lines_.size(); ++i) {
    Mol2AtomLine const& line = *lines_[i];
    if (substructure >= 0 && line.substructure_id() != substructure + 1) continue;
    THandle<Atom> const atom = made.atom(line);
    atom->set_index(static_cast<int>(i));
    atom->set_site(made.site(line, cell));
    atoms->push_back(atom);
  }
  return atoms;
}

bool Mol2Atom::operator==(Mol2Atom const& other) const {
  return detail::equal_section_lines(lines_, other.lines_);
}

}  // namespace kora
