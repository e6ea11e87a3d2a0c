// Standard RES writing: a file that SHELXL, cctbx and this library's reader all read as the
// same structure.

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <map>
#include <set>
#include <stdexcept>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "kernel/text_format.hpp"
#include "kora/kernel/string_functions.hpp"
#include "kora/shelx/res_file.hpp"
#include "shelx/res_writing.hpp"

namespace kora::detail {

namespace {

// SHELX instructions (SHELXS, SHELXL and the keywords readers look for): a name that spells
// one of them would be read as the instruction.
constexpr std::string_view instructions[] = {
    "ABIN", "ACTA", "AFIX", "ANIS", "ANSC", "ANSR", "BASF", "BEDE", "BIND", "BLOC", "BOND",
    "BUMP", "CELL", "CGLS", "CHIV", "CONF", "CONN", "DAMP", "DANG", "DEFS", "DELU", "DFIX",
    "DISP", "EADP", "EQIV", "ESEL", "EXTI", "EXYZ", "FEND", "FLAT", "FMAP", "FRAG", "FREE",
    "FVAR", "GRID", "HFIX", "HKLF", "HOPE", "HTAB", "INIT", "ISOR", "LATT", "LAUE", "LIST",
    "LONE", "MERG", "MOLE", "MORE", "MOVE", "MPLA", "MUST", "NCSY", "NEUT", "OMIT", "PART",
    "PATT", "PHAN", "PLAN", "PRIG", "PSEE", "RESI", "RIGU", "RTAB", "SADI", "SAME", "SFAC",
    "SHEL", "SIMU", "SIZE", "SPEC", "STIR", "SUMP", "SWAT", "SYMM", "TEMP", "TEXP", "TIME",
    "TITL", "TREF", "TWIN", "TWST", "UNIT", "VECT", "WGHT", "WIGL", "WPDB", "XNPD", "ZERR"};

std::string upper(std::string_view text) {
  std::string out(text);
  for (char& c : out)
    c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return out;
}

// Whether a name can stand as written: one to four letters, digits or primes, starting with a
// letter other than Q (Q names are difference-map peaks), spelling no instruction.
bool usable_name(std::string_view name) {
  if (name.empty() || name.size() > 4) return false;
  if (!std::isalpha(static_cast<unsigned char>(name[0]))) return false;
  if (name[0] == 'Q' || name[0] == 'q') return false;
  for (char c : name) {
    if (!std::isalnum(static_cast<unsigned char>(c)) && c != '\'') return false;
  }
  std::string const u = upper(name);
  if (u.rfind("END", 0) == 0 || u.rfind("REM", 0) == 0) return false;
  return std::find(std::begin(instructions), std::end(instructions), u) == std::end(instructions);
}

// The names given in one residue: kept where usable and not yet taken (letter case aside),
// otherwise the element symbol and the first free number. Empty when the element's numbers
// no longer fit four characters.
class ResidueNames {
 public:
  std::string name(std::string const& wanted, std::string const& symbol) {
    if (usable_name(wanted) && taken_.insert(upper(wanted)).second) return wanted;
    int& n = counters_[symbol];
    for (;;) {
      std::string candidate = symbol + std::to_string(++n);
      if (candidate.size() > 4) return {};
      if (taken_.insert(upper(candidate)).second) return candidate;
    }
  }

 private:
  std::unordered_set<std::string> taken_;
  std::unordered_map<std::string, int> counters_;
};

struct Residue {
  std::string class_name;  // "" in residue 0
  int number = 0;
  bool operator<(Residue const& o) const {
    return number != o.number ? number < o.number : class_name < o.class_name;
  }
};

struct Entry {
  THandle<Atom> atom;
  Element element;
  AtomDetails const* details;  // null for atoms that keep none
  Point position;              // fractional, as written (rounded)
  int file_order;
  Residue residue;
  std::string name;
};

// The atom's element; for an atom without one (a file's atom type that names none), the
// element its name begins with: two letters when the second is lower case ("Cl1"), else one
// ("O5*", "CA" as carbon). Unset when the name begins with no element either.
Element element_of(Atom const& atom) {
  if (atom.element().is_set()) return atom.element();
  std::string const& label = atom.label();
  if (label.size() >= 2 && std::isupper(static_cast<unsigned char>(label[0])) &&
      std::islower(static_cast<unsigned char>(label[1]))) {
    Element const two(label.substr(0, 2));
    if (two.is_set()) return two;
  }
  if (label.empty()) return Element();
  return Element(
      std::string(1, static_cast<char>(std::toupper(static_cast<unsigned char>(label[0])))));
}

bool from_res(AtomDetails const* d) {
  return d != nullptr && d->has_shelx_codes;
}

// A SHELX code resolved against the free variables; empty when it names a missing one.
std::optional<double> resolved(double code, std::vector<double> const& free_variables) {
  try {
    resolve_free_variable(code, free_variables);
    return code;
  } catch (std::runtime_error const&) {
    return std::nullopt;
  }
}

// The operators a reader builds from LATT and SYMM cards: the identity and the cards, each
// with the centring vectors, and when `centric` their inversions, (R, t) -> (-R, -t) as SHELX
// has it or (-R, t) as the classic reader has it.
std::vector<CrystalSymmetryOperator> expanded(std::vector<CrystalSymmetryOperator> cards,
                                              Spacegroup::Centring centring, bool centric,
                                              bool negate_translation) {
  cards.insert(cards.begin(), CrystalSymmetryOperator());
  std::vector<CrystalSymmetryOperator> all;
  for (Vector<double, 3> const& v :
       Spacegroup::standard_centring_vectors(centring, Spacegroup::include_origin)) {
    for (CrystalSymmetryOperator const& op : cards) {
      Vector<double, 3> const t = op.translation() + v;
      all.emplace_back(op.rotation(), t);
      if (centric) all.emplace_back(-op.rotation(), negate_translation ? -t : t);
    }
  }
  return all;
}

// Whether two lists hold the same operators (modulo lattice translations).
bool same_operators(std::vector<CrystalSymmetryOperator> const& a,
                    std::vector<CrystalSymmetryOperator> const& b) {
  auto const within = [](std::vector<CrystalSymmetryOperator> const& x,
                         std::vector<CrystalSymmetryOperator> const& y) {
    return std::all_of(x.begin(), x.end(), [&](CrystalSymmetryOperator const& op) {
      return std::any_of(y.begin(), y.end(),
                         [&](CrystalSymmetryOperator const& o) { return equals(op, o, 1e-6); });
    });
  };
  return within(a, b) && within(b, a);
}

double rounded(double value, double scale) {
  return std::nearbyint(value * scale) / scale;
}

void append_code(std::string& out, double value, int decimals, int width) {
  out += ' ';
  append_fixed(out, value, decimals, width);
}

}  // namespace

void print_res_standard(std::ostream& os, std::string const& title, Cell const& given_cell,
                        std::vector<THandle<Atom>> const& atoms, StructureDetails const& details,
                        double default_u) {
  constexpr double tolerance = res_special_position_tolerance;
  std::optional<Cell> const box = res_box_for(given_cell, atoms);
  Cell const& cell = box ? *box : given_cell;
  Spacegroup const& group = cell.spacegroup();
  std::vector<double> const& free_variables = details.free_variables;

  // The atoms: each once. A molecule completed by symmetry holds images of the atoms read
  // (clones with the same name, element, residue and part); an atom is left out when one
  // with all of those is written at a symmetry-equivalent position. Atoms that only share a
  // site (split or mixed sites, other names or elements) are all written.
  std::array<double, 3> edge_tolerance{};
  for (std::size_t k = 0; k < 3; ++k)
    edge_tolerance[k] = std::min(0.01, tolerance / cell.lengths()[k].value());
  WrittenImages images(edge_tolerance);
  std::unordered_map<std::string, int> tags;
  std::vector<Entry> entries;
  std::string key;
  for (THandle<Atom> const& atom : atoms) {
    Element const element = element_of(*atom);
    if (!atom->has_site() || !element.is_set()) continue;
    AtomDetails const* d = atom->details();
    Point p = box ? cell.fractional(atom->site()->orthogonal()) : atom->site()->fractional();
    // An image made from an atom of a file goes back to where the file had the atom; it is
    // then left out as at the same place as the atom, while other atoms of the file stay
    // even where they repeat one by symmetry.
    bool placed = false;
    if (!box && d && d->has_file_position) {
      Point const file(d->file_position[0], d->file_position[1], d->file_position[2]);
      placed = cell.is_symmetry_related(file, p, tolerance);
      if (placed) p = file;
    }
    for (double& v : p)
      v = rounded(v, 1e6) + 0.0;  // no "-0.000000"
    key = upper(atom->label());
    key += '\x1f';
    key += element.symbol();
    if (d) {
      key += '\x1f' + d->residue_name + '\x1f' + std::to_string(d->residue_number) + '\x1f' +
             std::to_string(d->part) + d->alt_loc + d->chain;
    }
    int const tag = tags.emplace(key, static_cast<int>(tags.size())).first->second;
    // The positions written are kept, and an atom's images looked up among them (memory in
    // proportion to the atoms, whatever the order of the group).
    bool const repeated = placed ? images.contains(p, tag)
                                 : std::any_of(group.operators().begin(), group.operators().end(),
                                               [&](CrystalSymmetryOperator const& op) {
                                                 return images.contains(op(p), tag);
                                               });
    if (repeated) continue;
    images.add(p, tag);
    auto const* ordered = dynamic_cast<FileOrderedAtom3d const*>(atom.get());
    Residue residue;
    if (from_res(d)) residue = {d->residue_name, d->residue_number};
    entries.push_back({atom, element, d, p, ordered ? ordered->file_order() : 0, residue, {}});
  }
  // Atoms read from a RES file go back in file order, so that riding atoms follow the atoms
  // they ride on.
  if (!entries.empty() && std::all_of(entries.begin(), entries.end(), [](Entry const& e) {
        return from_res(e.details) && dynamic_cast<FileOrderedAtom3d const*>(e.atom.get());
      })) {
    std::stable_sort(entries.begin(), entries.end(),
                     [](Entry const& a, Entry const& b) { return a.file_order < b.file_order; });
  }

  // Names, residue by residue. Atoms whose element has run out of four-character names in
  // their residue move on to a residue of their own (RESI n RES).
  std::map<Residue, ResidueNames> names;
  std::map<Residue, Residue> overflow;  // a residue whose names ran out -> the one after it
  int next_number = 0;
  for (Entry const& e : entries)
    next_number = std::max(next_number, e.residue.number);
  for (Entry& e : entries) {
    std::string const symbol = e.element.symbol();
    for (;;) {
      e.name = names[e.residue].name(e.atom->label(), symbol);
      if (!e.name.empty()) break;
      auto const [it, added] = overflow.try_emplace(e.residue);
      if (added) it->second = {"RES", ++next_number};
      e.residue = it->second;
    }
  }
  // Residue 0 first (a reader that takes RESI as "number class" cannot go back to it), then
  // the residues in the order they first appear.
  std::map<Residue, int> rank;
  for (Entry const& e : entries) {
    bool const none = e.residue.number == 0 && e.residue.class_name.empty();
    rank.emplace(e.residue, none ? 0 : static_cast<int>(rank.size()) + 1);
  }
  std::stable_sort(entries.begin(), entries.end(), [&](Entry const& a, Entry const& b) {
    return rank[a.residue] < rank[b.residue];
  });

  std::string out = "TITL " + title + "\nCELL 0.71073";
  for (auto const* values : {&cell.lengths(), &cell.angles()}) {
    for (UncertainValue const& v : *values) {
      out += ' ';
      append_res_number(out, v.value());
    }
  }
  out += "\nZERR " + std::to_string(group.order());
  for (auto const* values : {&cell.lengths(), &cell.angles()}) {
    for (UncertainValue const& v : *values)
      out += ' ' + v.uncertainty().to_string();
  }

  // LATT and SYMM. The inversion of a positive LATT is applied as (-R, -t) by SHELX and as
  // (-R, t) by the classic reader; where the two differ for this group, the inversion's
  // operators are listed as SYMM cards under a negative LATT.
  Spacegroup::Centring centring = group.centring();
  if (centring == Spacegroup::unknown_centring) centring = Spacegroup::primitive;
  bool centric = group.inversion_at_origin();
  std::vector<CrystalSymmetryOperator> cards = res_symmetry_cards(group, centring, centric);
  if (centric && !(same_operators(expanded(cards, centring, true, true), group.operators()) &&
                   same_operators(expanded(cards, centring, true, false), group.operators()))) {
    centric = false;
    cards = res_symmetry_cards(group, centring, false);
  }
  int const lattice = res_lattice_of(centring);
  out += "\nLATT " + std::to_string(centric ? lattice : -lattice) + "\n";
  for (CrystalSymmetryOperator const& op : cards)
    out += "SYMM " + op.wrapped().to_string() + "\n";

  // SFAC: carbon and hydrogen first, then the other elements in order of appearance; UNIT:
  // the number of atoms of each in the cell.
  std::vector<Element> elements;
  for (char const* first : {"C", "H"}) {
    Element const e(first);
    if (std::any_of(entries.begin(), entries.end(),
                    [&](Entry const& w) { return w.element == e; })) {
      elements.push_back(e);
    }
  }
  for (Entry const& w : entries) {
    Element const e = w.element;
    if (std::find(elements.begin(), elements.end(), e) == elements.end()) elements.push_back(e);
  }
  if (elements.empty()) elements.push_back(Element("C"));
  auto const sfac_index = [&](Element const& e) {
    return static_cast<std::size_t>(std::find(elements.begin(), elements.end(), e) -
                                    elements.begin());
  };
  std::vector<double> units(elements.size(), 0.0);
  for (Entry const& w : entries) {
    units[sfac_index(w.element)] +=
        w.atom->site()->occupancy().value() * cell.site_multiplicity(w.position, tolerance);
  }
  out += "SFAC";
  for (Element const& e : elements)
    out += ' ' + e.symbol();
  out += "\nUNIT";
  for (double u : units) {
    out += ' ';
    append_res_number(out, rounded(u, 100.0));
  }

  // FVAR: the source's free variables (the scale first), seven to a line.
  std::vector<double> fvar = free_variables;
  if (fvar.empty()) fvar.push_back(1.0);
  for (std::size_t i = 0; i < fvar.size(); ++i) {
    out += i % 7 == 0 ? "\nFVAR" : "";
    append_code(out, fvar[i], 5, 10);
  }
  out += '\n';

  // The atoms, with PART, AFIX and RESI where they change.
  int part = 0;
  int afix = 0;
  Residue residue;
  bool previous_u_known = false;
  double previous_u = 0.0;
  for (Entry const& e : entries) {
    AtomDetails const* d = from_res(e.details) ? e.details : nullptr;
    if (e.residue.number != residue.number || e.residue.class_name != residue.class_name) {
      residue = e.residue;
      out += "RESI " + std::to_string(residue.number) + ' ' +
             (residue.class_name.empty() ? std::string("RES") : residue.class_name) + '\n';
    }
    int const atom_part = d ? d->part : 0;
    int const atom_afix = d ? d->afix : 0;
    if (atom_afix != afix && afix != 0) out += "AFIX 0\n";
    if (atom_part != part) out += "PART " + std::to_string(atom_part) + '\n';
    if (atom_afix != afix && atom_afix != 0) out += "AFIX " + std::to_string(atom_afix) + '\n';
    part = atom_part;
    afix = atom_afix;

    Site const& site = *e.atom->site();
    Point const& p = e.position;
    append_left(out, e.name, 5);
    append_int(out, static_cast<long long>(sfac_index(e.element) + 1), 2);
    for (std::size_t k = 0; k < 3; ++k)
      append_code(out, p[k], 6, 10);

    // Occupancy: the site's divided by its order, fixed (10 +); the source's code where it
    // still gives the site's occupancy (a free variable, or the same fixed value).
    double const occupancy = site.occupancy().value();
    double const order = cell.site_order(p, tolerance);
    double occupancy_code = 10.0 + occupancy / order;
    if (d && std::fabs(d->shelx_occupancy) >= 5.0) {
      if (std::optional<double> const r = resolved(d->shelx_occupancy, free_variables)) {
        double const as_read = std::min(1.0, *r * order);
        double const as_read_exactly = std::min(1.0, *r * cell.site_order(p, 1e-7));
        if (std::fabs(as_read - occupancy) <= 1e-6 ||
            std::fabs(as_read_exactly - occupancy) <= 1e-6) {
          occupancy_code = d->shelx_occupancy;
        }
      }
    }
    append_code(out, occupancy_code, 5, 11);

    THandle<AtomicDisplacementParameters> const adp = site.atomic_displacement_parameters();
    if (adp && adp->type() == AtomicDisplacementParameters::anisotropic) {
      // Continued on a second line after U22.
      std::array<double, 6> const u = res_file_order_u(*adp);
      for (int k = 0; k < 6; ++k) {
        if (k == 2) out += " =\n   ";
        append_code(out, u[k], 5, 9);
      }
      previous_u = adp->u_equivalent(cell);
      previous_u_known = true;
    } else {
      double const u = adp ? adp->u_iso().value() : default_u;
      double u_code = u;
      bool riding = false;
      if (d && d->shelx_u < 0.0) {
        // Riding: |U| times the U of the last atom whose U was given.
        double const rides = previous_u_known ? -d->shelx_u * previous_u : 0.05;
        riding = std::fabs(rides - u) <= 1e-6;
        if (riding) u_code = d->shelx_u;
      } else if (d && d->shelx_u >= 5.0) {
        std::optional<double> const r = resolved(d->shelx_u, free_variables);
        if (r && std::fabs(*r - u) <= 1e-6) u_code = d->shelx_u;
      }
      append_code(out, u_code, 5, 9);
      if (!riding) {
        previous_u = u;
        previous_u_known = true;
      }
    }
    out += '\n';
  }
  if (afix != 0) out += "AFIX 0\n";
  if (part != 0) out += "PART 0\n";
  out += "HKLF 4\nEND\n";
  os.write(out.data(), static_cast<std::streamsize>(out.size()));
}

}  // namespace kora::detail
