// Writing a record as other programs expect to read it: the CTfile header line 2, charge
// codes in the atom block with "M  CHG", "M  ISO" and "M  RAD" property lines, atoms in the
// order of the file they came from, and a V3000 connection table whenever V2000 cannot hold
// the record.

#include <algorithm>
#include <cmath>
#include <ctime>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "kernel/text_format.hpp"
#include "kora/kernel/string_functions.hpp"
#include "kora/mdl/mol_file.hpp"

namespace kora {

namespace {

using detail::append_fixed;
using detail::append_int;
using detail::append_left;

// The largest atom or bond count, and atom number, that V2000's three columns hold.
constexpr int v2000_limit = 999;
// A property line ("M  CHG", "M  ISO", "M  RAD") holds at most this many entries.
constexpr std::size_t entries_per_line = 8;
// V3000 lines longer than this continue on the next line ("-" at the end).
constexpr std::size_t v3000_line_length = 80;

// One atom as written: what its line and property lines need.
struct AtomRecord {
  Point position;
  std::string_view symbol;  // "*" for an atom without element
  int charge;
  int mass;     // isotope mass number; 0 for the natural mixture
  int radical;  // MDL radical code; 0 none
};

struct BondRecord {
  int atom1;  // 1-based
  int atom2;
  int code;  // MDL bond type code
};

// The MDL code of a bond type: the classic codes (single, double, triple, and aromatic for
// aromatic and delocalised bonds, the only MDL order for shared electrons), except that an
// unknown bond, and the orders MDL has no code for (quadruple, polymeric, pi), are written
// as 8 ("any"): a bond whose order the file does not state, rather than a single bond that
// the structure does not have.
int standard_bond_code(MolFile const& file, BondType type) {
  int const code = file.sd_bond_type(type);
  return code == 1 && type != single_bond ? 8 : code;
}

// The MDL charge code of a formal charge: 3 = +1, 2 = +2, 1 = +3, 5 = -1, 6 = -2, 7 = -3;
// 0 for no charge and for charges beyond the column's range (the "M  CHG" line holds them).
int charge_code(int charge) {
  return charge >= -3 && charge <= 3 && charge != 0 ? 4 - charge : 0;
}

// Deuterium and tritium are written as hydrogen with their mass numbers (the model has an
// element for deuterium; tritium is an atom without element read from the symbol "T").
// Other atoms without element are written as "*", the unspecified atom: no atom list,
// R-group or alias lines are written that would give "L", "R#" or an alias a meaning.
AtomRecord atom_record(Atom const& atom) {
  AtomDetails const* details = atom.details();
  AtomRecord record{atom.site()->orthogonal(),
                    {},
                    atom.formal_charge(),
                    details ? details->mass_number : 0,
                    details ? details->radical : 0};
  Element const element = atom.element();
  if (element.kora_code() == Element::deuterium_code) {
    record.symbol = "H";
    if (record.mass == 0) record.mass = 2;
  } else if (element.is_set()) {
    record.symbol = element.symbol();
  } else if (details && details->element_symbol == "T") {
    record.symbol = "H";
    if (record.mass == 0) record.mass = 3;
  } else {
    record.symbol = "*";
  }
  if (record.radical < 0 || record.radical > 3) record.radical = 0;
  // Values that round to zero are written as 0.0000, not -0.0000.
  for (int k = 0; k < 3; ++k) {
    if (std::abs(record.position[k]) < 0.00005) record.position[k] = 0.0;
  }
  return record;
}

// The atoms with positions of all molecules, in the order of the file they were read from
// when every atom knows a distinct place in it, else molecule by molecule; and the bonds
// between them, numbered by that order.
void flatten(MolFile const& file, MoleculeList const& molecules, std::vector<AtomRecord>& atoms,
             std::vector<BondRecord>& bonds) {
  std::vector<THandle<Atom>> found;
  std::vector<int> slot;  // per molecule atom, its index in `found`, -1 when not written
  for (THandle<Molecule> const& molecule : molecules) {
    for (THandle<Atom> const& atom : molecule->atoms()) {
      if (atom->has_site()) found.push_back(atom);
      slot.push_back(atom->has_site() ? static_cast<int>(found.size()) - 1 : -1);
    }
  }

  // File order, when known for every atom and never repeated.
  std::vector<int> order(found.size());
  for (std::size_t i = 0; i < order.size(); ++i)
    order[i] = static_cast<int>(i);
  std::vector<std::pair<int, int>> keyed;
  keyed.reserve(found.size());
  for (std::size_t i = 0; i < found.size(); ++i) {
    auto const* ordered = dynamic_cast<FileOrderedAtom3d const*>(found[i].get());
    if (!ordered) break;
    keyed.emplace_back(ordered->file_order(), static_cast<int>(i));
  }
  if (keyed.size() == found.size()) {
    std::sort(keyed.begin(), keyed.end());
    bool const distinct = std::adjacent_find(keyed.begin(), keyed.end(), [](auto& a, auto& b) {
                            return a.first == b.first;
                          }) == keyed.end();
    if (distinct) {
      for (std::size_t i = 0; i < keyed.size(); ++i)
        order[i] = keyed[i].second;
    }
  }
  std::vector<int> number(found.size());  // 1-based number written, by index in `found`
  atoms.clear();
  atoms.reserve(found.size());
  for (std::size_t i = 0; i < order.size(); ++i) {
    number[static_cast<std::size_t>(order[i])] = static_cast<int>(i) + 1;
    atoms.push_back(atom_record(*found[static_cast<std::size_t>(order[i])]));
  }

  bonds.clear();
  std::size_t base = 0;  // index in `slot` of the molecule's first atom
  for (THandle<Molecule> const& molecule : molecules) {
    for (int i = 0; i < molecule->nbonds(); ++i) {
      auto const [a, b] = molecule->bond_atoms(i);
      int const sa = slot[base + static_cast<std::size_t>(a)];
      int const sb = slot[base + static_cast<std::size_t>(b)];
      if (sa < 0 || sb < 0) continue;
      bonds.push_back({number[static_cast<std::size_t>(sa)], number[static_cast<std::size_t>(sb)],
                       standard_bond_code(file, molecule->bond(i)->type())});
    }
    base += static_cast<std::size_t>(molecule->natoms());
  }
}

// Whether a coordinate written with 4 decimals fits V2000's 10 columns.
bool fits_v2000_column(double value) {
  return value > -9999.99995 && value < 99999.99995;
}

bool fits_v2000(std::vector<AtomRecord> const& atoms, std::vector<BondRecord> const& bonds) {
  if (atoms.size() > v2000_limit || bonds.size() > v2000_limit) return false;
  return std::all_of(atoms.begin(), atoms.end(), [](AtomRecord const& atom) {
    return fits_v2000_column(atom.position[0]) && fits_v2000_column(atom.position[1]) &&
           fits_v2000_column(atom.position[2]);
  });
}

// "2D" or "3D": the dimension the source declared, else 3D unless every z is 0.
std::string_view dimension(StructureDetails const& details, std::vector<AtomRecord> const& atoms) {
  if (details.dimension == "2D" || details.dimension == "3D") return details.dimension;
  bool const flat = std::all_of(atoms.begin(), atoms.end(),
                                [](AtomRecord const& atom) { return atom.position[2] == 0.0; });
  return flat ? "2D" : "3D";
}

// Two digits, with a leading zero.
void append_two_digits(std::string& out, int value) {
  append_int(out, value % 100, 2, '0');
}

// Property lines "M  KEY" with up to 8 "atom value" entries each, for the atoms whose value
// (as `value_of` gives it) is not 0.
template <class ValueOf>
void append_property_lines(std::string& out, std::string_view key,
                           std::vector<AtomRecord> const& atoms, ValueOf value_of) {
  std::vector<std::pair<int, int>> entries;
  for (std::size_t i = 0; i < atoms.size(); ++i) {
    if (int const value = value_of(atoms[i]); value != 0)
      entries.emplace_back(static_cast<int>(i) + 1, value);
  }
  for (std::size_t at = 0; at < entries.size(); at += entries_per_line) {
    std::size_t const n = std::min(entries_per_line, entries.size() - at);
    out += "M  ";
    out += key;
    append_int(out, static_cast<long long>(n), 3);
    for (std::size_t i = at; i < at + n; ++i) {
      append_int(out, entries[i].first, 4);
      append_int(out, entries[i].second, 4);
    }
    out += '\n';
  }
}

void append_v2000(std::string& out, std::vector<AtomRecord> const& atoms,
                  std::vector<BondRecord> const& bonds) {
  append_int(out, static_cast<long long>(atoms.size()), 3);
  append_int(out, static_cast<long long>(bonds.size()), 3);
  out += "  0  0  0  0  0  0  0  0999 V2000\n";
  for (AtomRecord const& atom : atoms) {
    append_fixed(out, atom.position[0], 4, 10);
    append_fixed(out, atom.position[1], 4, 10);
    append_fixed(out, atom.position[2], 4, 10);
    out += ' ';
    append_left(out, atom.symbol, 3);
    // Mass difference 0: "M  ISO" gives the mass number.
    out += " 0";
    append_int(out, charge_code(atom.charge), 3);
    out += "  0  0  0  0  0  0  0  0  0  0\n";
  }
  for (BondRecord const& bond : bonds) {
    append_int(out, bond.atom1, 3);
    append_int(out, bond.atom2, 3);
    append_int(out, bond.code, 3);
    out += "  0  0  0  0\n";
  }
  append_property_lines(out, "CHG", atoms, [](AtomRecord const& atom) { return atom.charge; });
  append_property_lines(out, "ISO", atoms, [](AtomRecord const& atom) { return atom.mass; });
  append_property_lines(out, "RAD", atoms, [](AtomRecord const& atom) { return atom.radical; });
  out += "M  END\n";
}

// Appends "M  V30 " and the text from `line_start` on (the text already at the end of
// `out`), continued on further "M  V30 " lines where it is longer than a line holds.
void finish_v3000_line(std::string& out, std::size_t line_start) {
  constexpr std::string_view prefix = "M  V30 ";
  constexpr std::size_t room = v3000_line_length - prefix.size() - 1;  // one column for "-"
  std::size_t const length = out.size() - line_start;
  if (length + prefix.size() <= v3000_line_length) {
    out.insert(line_start, prefix);
  } else {
    std::string const text = out.substr(line_start);
    out.resize(line_start);
    for (std::size_t at = 0; at < text.size(); at += room) {
      out += prefix;
      out.append(text, at, room);
      if (at + room < text.size()) out += '-';
      out += '\n';
    }
    return;
  }
  out += '\n';
}

void append_v3000(std::string& out, std::vector<AtomRecord> const& atoms,
                  std::vector<BondRecord> const& bonds) {
  out += "  0  0  0     0  0            999 V3000\n";
  out += "M  V30 BEGIN CTAB\nM  V30 COUNTS ";
  append_int(out, static_cast<long long>(atoms.size()), 0);
  out += ' ';
  append_int(out, static_cast<long long>(bonds.size()), 0);
  out += " 0 0 0\nM  V30 BEGIN ATOM\n";
  int number = 0;
  for (AtomRecord const& atom : atoms) {
    std::size_t const start = out.size();
    append_int(out, ++number, 0);
    out += ' ';
    out += atom.symbol;
    for (int k = 0; k < 3; ++k) {
      out += ' ';
      append_fixed(out, atom.position[k], 4, 0);
    }
    out += " 0";  // atom-atom mapping: none
    if (atom.charge != 0) {
      out += " CHG=";
      append_int(out, atom.charge, 0);
    }
    if (atom.radical != 0) {
      out += " RAD=";
      append_int(out, atom.radical, 0);
    }
    if (atom.mass != 0) {
      out += " MASS=";
      append_int(out, atom.mass, 0);
    }
    finish_v3000_line(out, start);
  }
  out += "M  V30 END ATOM\nM  V30 BEGIN BOND\n";
  number = 0;
  for (BondRecord const& bond : bonds) {
    out += "M  V30 ";
    append_int(out, ++number, 0);
    out += ' ';
    append_int(out, bond.code, 0);
    out += ' ';
    append_int(out, bond.atom1, 0);
    out += ' ';
    append_int(out, bond.atom2, 0);
    out += '\n';
  }
  out += "M  V30 END BOND\nM  V30 END CTAB\nM  END\n";
}

}  // namespace

void MolFile::print_standard_(std::ostream& os) const {
  std::vector<AtomRecord> atoms;
  std::vector<BondRecord> bonds;
  flatten(*this, *molecules_, atoms, bonds);

  // Header: name, then IIPPPPPPPPMMDDYYHHmmdd (initials, program, date and time, dimensional
  // code) and any scaling factors, energy and registry number the record had, then comment.
  std::string out = truncate(molecule_name_, 80);
  out += '\n';
  std::size_t const line2 = out.size();
  append_left(out, truncate(user_initials_, 2), 2);
  out += "kora    ";
  std::time_t const now = std::time(nullptr);
  std::tm local{};
  if (localtime_r(&now, &local) == nullptr) gmtime_r(&now, &local);
  append_two_digits(out, local.tm_mon + 1);
  append_two_digits(out, local.tm_mday);
  append_two_digits(out, local.tm_year);
  append_two_digits(out, local.tm_hour);
  append_two_digits(out, local.tm_min);
  out += dimension(structure_details_, atoms);
  append_left(out, truncate(scaling_factors_, 12), 12);
  append_left(out, truncate(energy_, 12), 12);
  append_left(out, truncate(registry_number_, 6), 6);
  std::size_t const end = out.find_last_not_of(' ');
  out.resize(std::max(end + 1, line2));
  out += '\n';
  out += truncate(comment_, 80);
  out += '\n';

  bool const v3000 = version_ == V3000 || write_options().v3000 || !fits_v2000(atoms, bonds);
  if (v3000) {
    append_v3000(out, atoms, bonds);
  } else {
    append_v2000(out, atoms, bonds);
  }
  os << out;
  tags_->print(os);
  os << "$$$$\n";
}

}  // namespace kora
