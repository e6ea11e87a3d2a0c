// PdbFile standard writing: the records other programs read a PDB entry from (residues,
// chains, element and charge columns, B-factors, hybrid-36 numbers, models, TER, CONECT
// for the bonds residue templates do not give).

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <numbers>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "kernel/text_format.hpp"
#include "kora/pdb/pdb_file.hpp"
#include "pdb/hybrid36.hpp"
#include "pdb/pdb_write_support.hpp"

namespace kora {

namespace detail {

namespace {

// The residue names PDB files write as ATOM records: amino acids and nucleotides of
// polymers (UNK and N are the unknown amino acid and nucleotide).
constexpr std::array<std::string_view, 36> standard_residues = {
    "ALA", "ARG", "ASN", "ASP", "CYS", "GLN", "GLU", "GLY", "HIS", "ILE", "LEU", "LYS",
    "MET", "PHE", "PRO", "SER", "THR", "TRP", "TYR", "VAL", "SEC", "PYL", "UNK", "A",
    "C",   "G",   "U",   "I",   "N",   "DA",  "DC",  "DG",  "DT",  "DI",  "DU",  "DN"};

bool ends_with(std::string_view text, std::string_view end) {
  return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

}  // namespace

bool is_standard_residue(std::string_view residue_name) {
  return std::find(standard_residues.begin(), standard_residues.end(), residue_name) !=
         standard_residues.end();
}

std::string cryst1_space_group(Spacegroup const& spacegroup) {
  std::string symbol = spacegroup.setting_symbol();
  if (symbol.empty()) return spacegroup.symbol().empty() ? "P 1" : spacegroup.symbol();
  if (ends_with(symbol, ":H")) {
    symbol.resize(symbol.size() - 2);
    symbol.front() = 'H';
  } else if (ends_with(symbol, ":R")) {
    symbol.resize(symbol.size() - 2);
  }
  // Symbols longer than the ten columns every reader of CRYST1 takes (the origin choice 2
  // settings of a few tetragonal groups, "P 42/n b c:2") are written without blanks
  // ("P42/nbc:2"), a spelling that names the same setting.
  if (symbol.size() > 10)
    symbol.erase(std::remove(symbol.begin(), symbol.end(), ' '), symbol.end());
  return symbol;
}

void append_name_field(std::string& out, std::string_view name, std::string_view element) {
  name = name.substr(0, 4);
  if (element.size() == 2 || name.size() == 4) {
    append_left(out, name, 4);
  } else {
    out += ' ';
    append_left(out, name, 3);
  }
}

void append_hybrid36(std::string& out, long value, int width, char const* what) {
  std::array<char, 8> field{};
  if (!hybrid36_encode(value, width, field.data())) {
    throw std::runtime_error(std::string("PdbFile::print: ") + what + " " + std::to_string(value) +
                             " does not fit the PDB format.");
  }
  out.append(field.data(), static_cast<std::size_t>(width));
}

void append_charge(std::string& out, int charge) {
  if (charge == 0 || charge < -9 || charge > 9) {
    out += "  ";
    return;
  }
  out += static_cast<char>('0' + (charge < 0 ? -charge : charge));
  out += charge < 0 ? '-' : '+';
}

}  // namespace detail

namespace {

constexpr double eight_pi_squared = 8.0 * std::numbers::pi * std::numbers::pi;
constexpr double radians_to_degrees = 180.0 / std::numbers::pi;

// One atom as its record writes it.
struct Row {
  Atom const* atom = nullptr;
  std::string name;  // at most four characters
  std::string residue_name;
  char alt_loc = ' ';
  char chain = ' ';
  char insertion_code = ' ';
  bool hetero = true;
  int residue_number = 1;
  int model = 0;
  int residue = 0;  // ordinal of the residue in writing order
  long serial = 0;  // within its model
};

bool same_residue(Row const& a, Row const& b) {
  return a.model == b.model && a.chain == b.chain && a.residue_number == b.residue_number &&
         a.insertion_code == b.insertion_code && a.residue_name == b.residue_name;
}

// What the atom's details (or, for atoms that keep none, the defaults of a small molecule)
// say of its record. Atoms from PDB files keep their residue, chain and record kind; any
// other atom is a HETATM of residue UNL 1 in chain A unless its details name a residue.
Row row_of(Atom const& atom, bool pdb_source) {
  Row row;
  row.atom = &atom;
  AtomDetails const* d = atom.details();
  bool const from_pdb = d && (pdb_source || d->serial > 0);
  std::string_view name = atom.label();
  if (d && d->alt_loc != ' ') {
    row.alt_loc = d->alt_loc;
    // PDB reading appends the alternate location to the atom name.
    if (from_pdb && name.size() > 1 && name.back() == d->alt_loc) name.remove_suffix(1);
  }
  row.name.assign(name.substr(0, 4));
  bool const has_residue = d && !d->residue_name.empty();
  row.residue_name = has_residue ? d->residue_name.substr(0, 3) : std::string("UNL");
  if (d) {
    if (!d->chain.empty()) row.chain = d->chain.front();
    row.insertion_code = d->insertion_code;
    row.model = d->model;
    if (has_residue || d->residue_number != 0) row.residue_number = d->residue_number;
  }
  if (!from_pdb && row.chain == ' ') row.chain = 'A';
  row.hetero = !from_pdb || d->hetero || !detail::is_standard_residue(row.residue_name);
  return row;
}

// Whether a bond between atoms of consecutive residues is the link of a polymer chain that
// residue templates give: the peptide bond C-N and the phosphodiester bond O3'-P.
bool polymer_link(Row const& a, Row const& b) {
  if (a.hetero || b.hetero || a.model != b.model || a.chain != b.chain) return false;
  if (a.residue + 1 == b.residue) {
    return (a.name == "C" && b.name == "N") ||
           ((a.name == "O3'" || a.name == "O3*") && b.name == "P");
  }
  if (b.residue + 1 == a.residue) return polymer_link(b, a);
  return false;
}

// Whether readers need a CONECT record for the bond: every bond of a HETATM atom, and
// bonds between residues other than the polymer links.
bool needs_conect(Row const& a, Row const& b) {
  if (a.hetero || b.hetero) return true;
  return a.residue != b.residue && !polymer_link(a, b);
}

int conect_repeats(BondType type) {
  if (type == double_bond) return 2;
  if (type == triple_bond) return 3;
  return 1;
}

double b_factor(Atom const& atom, Cell const& cell) {
  if (AtomDetails const* d = atom.details(); d && d->has_b_factor) return d->b_factor;
  if (!atom.has_site()) return 0.0;
  THandle<AtomicDisplacementParameters> const& adp = atom.site()->atomic_displacement_parameters();
  if (adp.get() == nullptr) return 0.0;
  double const u = adp->type() == AtomicDisplacementParameters::isotropic ? adp->u_iso().value()
                                                                          : adp->u_equivalent(cell);
  return u * eight_pi_squared;
}

// The map from Cartesian to fractional coordinates, frac = matrix * orth + shift.
struct Scale {
  Matrix<double, 3, 3> matrix;
  std::array<double, 3> shift{};
};

// Calls visit(orthogonal, fractional) for the site of every atom that has one.
template <class Visit>
void for_each_site(Molecule const& molecule, Visit visit) {
  for (THandle<Atom> const& atom : molecule.atoms()) {
    if (atom->has_site()) visit(atom->site()->orthogonal(), atom->site()->fractional());
  }
}

// The map the atoms' own fractional coordinates were made with, found by least squares
// over the atoms: a PDB file read with SCALE records other than the cell's standard ones
// keeps its frame. The cell's standard map when the atoms are too few or too flat to fix
// one, when no map fits them within 1e-4, or when the one found is the cell's.
Scale scale_of_sites(Molecule const& molecule, Cell const& cell) {
  Scale const standard{cell.orthogonal_to_fractional(), {}};
  std::array<double, 3> mean_o{};
  std::array<double, 3> mean_f{};
  int n = 0;
  for_each_site(molecule, [&](Point const& o, Point const& f) {
    for (std::size_t k = 0; k < 3; ++k) {
      mean_o[k] += o[k];
      mean_f[k] += f[k];
    }
    ++n;
  });
  if (n < 4) return standard;
  for (std::size_t k = 0; k < 3; ++k) {
    mean_o[k] /= n;
    mean_f[k] /= n;
  }
  // Normal equations of the centred coordinates: a * x = b, x holding the map's rows as
  // columns.
  Matrix<double, 3, 3> a;
  Matrix<double, 3, 3> b;
  for_each_site(molecule, [&](Point const& o, Point const& f) {
    for (std::size_t i = 0; i < 3; ++i) {
      for (std::size_t j = 0; j < 3; ++j) {
        a(i, j) += (o[i] - mean_o[i]) * (o[j] - mean_o[j]);
        b(i, j) += (o[i] - mean_o[i]) * (f[j] - mean_f[j]);
      }
    }
  });
  auto const cofactor = [&a](std::size_t i, std::size_t j) {
    std::size_t const i1 = (i + 1) % 3, i2 = (i + 2) % 3, j1 = (j + 1) % 3, j2 = (j + 2) % 3;
    return a(i1, j1) * a(i2, j2) - a(i1, j2) * a(i2, j1);
  };
  double const det = a(0, 0) * cofactor(0, 0) + a(0, 1) * cofactor(0, 1) + a(0, 2) * cofactor(0, 2);
  double const size = (a(0, 0) + a(1, 1) + a(2, 2)) / 3;
  if (!(size > 0) || std::fabs(det) < 1e-9 * size * size * size) return standard;
  Scale fit;
  for (std::size_t r = 0; r < 3; ++r) {    // row r of the map: fractional coordinate r
    for (std::size_t c = 0; c < 3; ++c) {  // (a^-1 b)(c, r), a^-1 = cofactors^T / det
      double value = 0;
      for (std::size_t k = 0; k < 3; ++k)
        value += cofactor(k, c) * b(k, r);
      fit.matrix(r, c) = value / det;
    }
    fit.shift[r] = mean_f[r];
    for (std::size_t c = 0; c < 3; ++c)
      fit.shift[r] -= fit.matrix(r, c) * mean_o[c];
  }
  double worst = 0;
  for_each_site(molecule, [&](Point const& o, Point const& f) {
    for (std::size_t r = 0; r < 3; ++r) {
      double const x = fit.matrix(r, 0) * o[0] + fit.matrix(r, 1) * o[1] + fit.matrix(r, 2) * o[2] +
                       fit.shift[r];
      worst = std::max(worst, std::fabs(x - f[r]));
    }
  });
  if (!(worst <= 1e-4)) return standard;
  double difference = 0;
  for (std::size_t r = 0; r < 3; ++r) {
    difference = std::max(difference, std::fabs(fit.shift[r]));
    for (std::size_t c = 0; c < 3; ++c)
      difference = std::max(difference, std::fabs(fit.matrix(r, c) - standard.matrix(r, c)));
  }
  return difference < 1e-6 ? standard : fit;
}

class StandardWriter {
 public:
  StandardWriter(Molecule const& molecule, Cell const& cell, bool has_cell, bool pdb_source)
      : molecule_(molecule), cell_(cell), has_cell_(has_cell) {
    int const natoms = molecule.natoms();
    rows_.reserve(static_cast<std::size_t>(natoms));
    for (int i = 0; i < natoms; ++i)
      rows_.push_back(row_of(*molecule.atom(i), pdb_source));
    // Atoms are written model by model, in their order within each model.
    order_.resize(rows_.size());
    for (std::size_t i = 0; i < order_.size(); ++i)
      order_[i] = static_cast<int>(i);
    std::stable_sort(order_.begin(), order_.end(),
                     [this](int a, int b) { return row(a).model < row(b).model; });
    number_residues();
    find_conect_partners();
    out_.reserve(rows_.size() * 82 + 1024);
  }

  std::string const& write(std::string_view identifier) {
    out_ += "HEADER    VRX ENTRY ";
    out_ += identifier;
    out_ += '\n';
    write_cell();
    bool const models = !order_.empty() && row(order_.front()).model != row(order_.back()).model;
    std::size_t begin = 0;
    int model_ordinal = 0;
    while (begin < order_.size()) {
      std::size_t end = begin + 1;
      while (end < order_.size() && row(order_[end]).model == row(order_[begin]).model)
        ++end;
      if (models) {
        out_ += "MODEL     ";
        detail::append_int(out_, ++model_ordinal, 4);
        out_ += '\n';
      }
      write_atoms(begin, end);
      write_conects(begin, end);
      if (models) out_ += "ENDMDL\n";
      begin = end;
    }
    out_ += "END\n";
    return out_;
  }

 private:
  Row& row(int i) { return rows_[static_cast<std::size_t>(i)]; }
  Row const& row(int i) const { return rows_[static_cast<std::size_t>(i)]; }

  void number_residues() {
    int residue = 0;
    for (std::size_t k = 0; k < order_.size(); ++k) {
      if (k > 0 && !same_residue(row(order_[k]), row(order_[k - 1]))) ++residue;
      row(order_[k]).residue = residue;
    }
  }

  void write_cell() {
    if (!has_cell_) {
      out_ += "CRYST1    1.000    1.000    1.000  90.00  90.00  90.00 P 1           1\n";
      return;
    }
    // Lengths with four decimals, as small-molecule cells are known, in the nine columns of
    // the field (with a blank before them below 1000 A).
    out_ += "CRYST1";
    detail::append_fixed(out_, cell_.a(), 4, 9);
    detail::append_fixed(out_, cell_.b(), 4, 9);
    detail::append_fixed(out_, cell_.c(), 4, 9);
    detail::append_fixed(out_, cell_.alpha().radians() * radians_to_degrees, 2, 7);
    detail::append_fixed(out_, cell_.beta().radians() * radians_to_degrees, 2, 7);
    detail::append_fixed(out_, cell_.gamma().radians() * radians_to_degrees, 2, 7);
    out_ += ' ';
    detail::append_left(out_, detail::cryst1_space_group(cell_.spacegroup()),
                        detail::cryst1_symbol_width);
    // Z: the asymmetric units of the cell, one chain each.
    detail::append_int(out_, cell_.spacegroup().order(), 4);
    out_ += '\n';
    Scale const scale = scale_of_sites(molecule_, cell_);
    // Numbers that round to zero are written without a sign.
    auto const unsigned_zero = [](double value, double half_unit) {
      return std::fabs(value) < half_unit ? 0.0 : value;
    };
    for (std::size_t r = 0; r < 3; ++r) {
      out_ += "SCALE";
      out_ += static_cast<char>('1' + r);
      out_ += "    ";
      for (std::size_t c = 0; c < 3; ++c)
        detail::append_fixed(out_, unsigned_zero(scale.matrix(r, c), 5e-7), 6, 10);
      out_ += "     ";
      detail::append_fixed(out_, unsigned_zero(scale.shift[r], 5e-6), 5, 10);
      out_ += '\n';
    }
  }

  // The atoms order_[begin, end) of one model, with TER after each polymer chain; serials
  // count from 1 in every model, TER records taking one.
  void write_atoms(std::size_t begin, std::size_t end) {
    long serial = 0;
    for (std::size_t k = begin; k < end; ++k) {
      Row& r = row(order_[k]);
      r.serial = ++serial;
      write_atom(r);
      bool const chain_ends = !r.hetero && (k + 1 == end || row(order_[k + 1]).hetero ||
                                            row(order_[k + 1]).chain != r.chain);
      if (chain_ends) write_ter(r, ++serial);
    }
  }

  void write_atom(Row const& r) {
    Atom const& atom = *r.atom;
    // The element in upper case, as PDB files write it.
    std::array<char, 2> symbol{};
    std::string const& own = atom.element().symbol();
    std::size_t const length = std::min<std::size_t>(own.size(), symbol.size());
    for (std::size_t n = 0; n < length; ++n)
      symbol[n] = (own[n] >= 'a' && own[n] <= 'z') ? static_cast<char>(own[n] - 'a' + 'A') : own[n];
    std::string_view const element(symbol.data(), length);
    out_ += r.hetero ? "HETATM" : "ATOM  ";
    detail::append_hybrid36(out_, r.serial, 5, "atom serial number");
    out_ += ' ';
    detail::append_name_field(out_, r.name, element);
    out_ += r.alt_loc;
    append_residue(r);
    out_ += "   ";
    Point const p = atom.has_site() ? atom.site()->orthogonal() : Point(0, 0, 0);
    detail::append_fixed(out_, p.x(), 3, 8);
    detail::append_fixed(out_, p.y(), 3, 8);
    detail::append_fixed(out_, p.z(), 3, 8);
    detail::append_fixed(out_, atom.has_site() ? atom.site()->occupancy().value() : 1.0, 2, 6);
    detail::append_fixed(out_, b_factor(atom, cell_), 2, 6);
    out_.append(10, ' ');
    detail::append_right(out_, element, 2);
    detail::append_charge(out_, atom.formal_charge());
    out_ += '\n';
  }

  void write_ter(Row const& last, long serial) {
    out_ += "TER   ";
    detail::append_hybrid36(out_, serial, 5, "atom serial number");
    out_ += "      ";
    append_residue(last);
    out_ += '\n';
  }

  // Columns 18-27: residue name, chain, residue number and insertion code.
  void append_residue(Row const& r) {
    detail::append_right(out_, r.residue_name, 3);
    out_ += ' ';
    out_ += r.chain;
    detail::append_hybrid36(out_, r.residue_number, 4, "residue number");
    out_ += r.insertion_code;
  }

  // The CONECT partners of every atom: both atoms of a bond list each other, once per unit
  // of bond order. Bonds between models are left out.
  void find_conect_partners() {
    partners_.resize(rows_.size());
    int const nbonds = molecule_.nbonds();
    for (int b = 0; b < nbonds; ++b) {
      auto const [i, j] = molecule_.bond_atoms(b);
      Row const& a = row(i);
      Row const& c = row(j);
      if (c.model != a.model || !needs_conect(a, c)) continue;
      int const repeats = conect_repeats(molecule_.bond(b)->type());
      for (int n = 0; n < repeats; ++n) {
        partners_[static_cast<std::size_t>(i)].push_back(j);
        partners_[static_cast<std::size_t>(j)].push_back(i);
      }
    }
  }

  // The CONECT records of the atoms order_[begin, end), at most four partners a line.
  void write_conects(std::size_t begin, std::size_t end) {
    for (std::size_t k = begin; k < end; ++k) {
      int const i = order_[k];
      std::vector<int> const& list = partners_[static_cast<std::size_t>(i)];
      for (std::size_t first = 0; first < list.size(); first += 4) {
        out_ += "CONECT";
        detail::append_hybrid36(out_, row(i).serial, 5, "atom serial number");
        for (std::size_t n = first; n < std::min(list.size(), first + 4); ++n)
          detail::append_hybrid36(out_, row(list[n]).serial, 5, "atom serial number");
        out_ += '\n';
      }
    }
  }

  Molecule const& molecule_;
  Cell const& cell_;
  bool has_cell_;
  std::vector<Row> rows_;
  std::vector<int> order_;  // row indexes in writing order
  std::vector<std::vector<int>> partners_;
  std::string out_;
};

}  // namespace

void PdbFile::print_standard_(std::ostream& os) const {
  THandle<Molecule> const m = molecule();
  bool const has_cell = details_.has_cell && !(*cell_ == Cell());
  StandardWriter writer(*m, *cell_, has_cell, details_.source_format == "pdb");
  std::string const& out = writer.write(identifier_.str());
  os.write(out.data(), static_cast<std::streamsize>(out.size()));
  os.flush();
}

}  // namespace kora
