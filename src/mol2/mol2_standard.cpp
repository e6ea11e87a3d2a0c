#include "mol2/mol2_standard.hpp"

#include <algorithm>
#include <cmath>
#include <map>
#include <ostream>
#include <set>
#include <stdexcept>
#include <tuple>
#include <vector>

#include "kernel/sybyl_typer.hpp"
#include "kernel/text_cursor.hpp"
#include "kernel/text_format.hpp"
#include "kora/kernel/string_functions.hpp"
#include "kora/mol2/mol2_crysin.hpp"

namespace kora::detail {

namespace {

constexpr std::string_view sybyl_atom_types[] = {
    "C.3",   "C.2", "C.1", "C.ar",  "C.cat", "N.3",   "N.2",   "N.1", "N.ar", "N.am", "N.pl3",
    "N.4",   "O.3", "O.2", "O.co2", "O.spc", "O.t3p", "S.3",   "S.2", "S.O",  "S.O2", "P.3",
    "F",     "Cl",  "Br",  "I",     "H",     "H.spc", "H.t3p", "LP",  "Du",   "Du.C", "Any",
    "Hal",   "Het", "Hev", "Li",    "Na",    "Mg",    "Al",    "Si",  "K",    "Ca",   "Cr.th",
    "Cr.oh", "Mn",  "Fe",  "Co.oh", "Cu",    "Zn",    "Se",    "Mo",  "Sn"};

// Elements of atom types that are no SYBYL types (standard reading).
//
// Force fields name their types by an element's letters followed by a class: GAFF in lower
// case ("c3", "ca", "hc", "n3", "os"), AMBER and CHARMM in upper case ("CT", "CA", "HC",
// "OW", "N3", "NA"), ions in element case with a charge ("Na+", "Cl-", "Zn", "Mg2+"). So:
//   1. a few whole types whose letters mislead (AMBER and CHARMM ions) are looked up, and
//      decide whatever the name;
//   2. OPLS types ("opls_135") and types without leading letters say nothing;
//   3. leading letters in element case that are an element ("Na", "K", "Zn", "D") give it;
//   4. leading "cl", "CL", "br", "BR" (GAFF, AMBER, CGenFF "CLGR1") give chlorine, bromine;
//   5. else the first letter, in upper case, when it is an element other than deuterium:
//      "CA", "ca" and "cl"-less two-letter types are carbon and the like, never calcium.
// The atom name is read the same way (after leading digits, as in "1HB"), except that
// upper-case letters give a two-letter element only where the first letter alone is none
// ("ZN", "MG", "LI") or for the few names never used for the lighter element ("CL", "BR",
// "FE", "CU", "SE"): "CA", "NA", "HG", "CD" are carbon, nitrogen, hydrogen, carbon, as in
// proteins and porphyrins.
// The type's element stands when the name agrees with it: the name's element is the same
// (or hydrogen for deuterium), or none, or the name begins with the type's symbol in any case
// ("CA" for calcium type "C0"). Otherwise the name's element, when it has one, is taken: a
// CHARMM carbonyl carbon "CL" named "C13" is carbon, GLYCAM's "Os" named "O5" oxygen.

struct TypeElement {
  std::string_view type;
  std::string_view symbol;
};

constexpr TypeElement misleading_types[] = {
    {"C0", "Ca"},  {"IM", "Cl"},  {"IP", "Na"},  {"MG", "Mg"},  {"FE", "Fe"},  {"ZN", "Zn"},
    {"CU", "Cu"},  {"SOD", "Na"}, {"POT", "K"},  {"CAL", "Ca"}, {"CLA", "Cl"}, {"CES", "Cs"},
    {"LIT", "Li"}, {"RUB", "Rb"}, {"BAR", "Ba"}, {"CAD", "Cd"}};

// Upper-case name letters read as a two-letter element although the first letter alone is
// one.
constexpr std::string_view upper_case_names[] = {"CL", "BR", "FE", "CU", "SE"};

bool is_upper(char c) {
  return c >= 'A' && c <= 'Z';
}
bool is_lower(char c) {
  return c >= 'a' && c <= 'z';
}
char to_upper(char c) {
  return is_lower(c) ? static_cast<char>(c - 'a' + 'A') : c;
}
char to_lower(char c) {
  return is_upper(c) ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string_view leading_letters(std::string_view text) {
  std::size_t n = 0;
  while (n < text.size() && (is_upper(text[n]) || is_lower(text[n])))
    ++n;
  return text.substr(0, n);
}

// The element of one letter in any case; deuterium only from a lone "D".
Element first_letter_element(std::string_view letters) {
  char const symbol[2] = {to_upper(letters[0]), '\0'};
  Element const e(std::string_view(symbol, 1));
  return e.atomic_number() == 1 && symbol[0] == 'D' ? Element() : e;
}

// Two letters in element case ("CL" and "cl" give "Cl").
Element two_letter_element(std::string_view letters) {
  if (letters.size() < 2) return Element();
  char const symbol[2] = {to_upper(letters[0]), to_lower(letters[1])};
  return Element(std::string_view(symbol, 2));
}

bool starts_ignoring_case(std::string_view text, std::string_view prefix) {
  if (text.size() < prefix.size()) return false;
  for (std::size_t i = 0; i < prefix.size(); ++i) {
    if (to_upper(text[i]) != to_upper(prefix[i])) return false;
  }
  return true;
}

Element type_element(std::string_view type) {
  if (starts_ignoring_case(type, "opls_")) return Element();
  std::string_view const letters = leading_letters(type);
  if (letters.empty()) return Element();
  if (Element const whole(letters); whole.is_set()) return whole;
  if (starts_ignoring_case(letters, "cl") || starts_ignoring_case(letters, "br"))
    return two_letter_element(letters);
  return first_letter_element(letters);
}

Element name_element(std::string_view letters) {
  if (letters.empty()) return Element();
  if (letters == "D") return Element(letters);
  Element const one = first_letter_element(letters);
  Element const two = two_letter_element(letters);
  if (two.is_set()) {
    bool const element_case = is_upper(letters[0]) && is_lower(letters[1]);
    bool const listed = std::find(std::begin(upper_case_names), std::end(upper_case_names),
                                  letters.substr(0, 2)) != std::end(upper_case_names);
    if (element_case || !one.is_set() || listed) return two;
  }
  return one;
}

std::string_view name_letters(std::string_view name) {
  std::size_t k = 0;
  while (k < name.size() && name[k] >= '0' && name[k] <= '9')
    ++k;
  return leading_letters(name.substr(k));
}

// The element the Mol2 reader gives an atom of this type: that of the part before the first
// ".", none for "LP", "Du" and anything that is no element symbol.
Element element_of_type(std::string_view type) {
  return Element(type.substr(0, type.find('.')));
}

// The type written for an atom: the source's SYBYL type, else the typer's, else the element
// symbol (deuterium's "D"), whichever first reads back as the atom's element.
std::string const& atom_type(Atom const& atom, std::string const& typed) {
  static std::string const dummy = "Du";
  Element const element = atom.element();
  AtomDetails const* d = atom.details();
  if (d && is_sybyl_atom_type(d->atom_type) && element_of_type(d->atom_type) == element)
    return d->atom_type;
  if (element_of_type(typed) == element) return typed;
  return element.is_set() ? element.symbol() : dummy;
}

// Mol2 fields are words: blanks inside a name would shift every later field.
std::string word_of(std::string const& text, std::string_view fallback) {
  std::string word = text;
  for (char& c : word) {
    if (is_c_space(c)) c = '_';
  }
  if (word.empty()) word = fallback;
  return word;
}

// What makes atoms one substructure: the source's Mol2 substructure, else its residue, else
// the molecule it lies in.
struct SubstructureKey {
  int kind = 0;  // 0 Mol2 substructure, 1 residue, 2 molecule, 3 residue label
  int number = 0;
  std::string name;
  std::string chain;
  char insertion = ' ';

  auto operator<=>(SubstructureKey const&) const = default;
};

SubstructureKey key_of(Atom const& atom, int molecule) {
  AtomDetails const* d = atom.details();
  if (d && !d->substructure_name.empty())
    return {0, d->substructure_id, d->substructure_name, {}, ' '};
  if (d && !d->residue_name.empty())
    return {1, d->residue_number, d->residue_name, d->chain, d->insertion_code};
  // A protein atom whose reader kept only its residue label ("ALA12").
  if (ProteinAtom const* p = atom.protein_atom(); p && !p->residue_label().empty())
    return {3, 0, p->residue_label(), {}, ' '};
  return {2, molecule, {}, {}, ' '};
}

struct Substructure {
  int id = 0;
  std::string name;
  int root = 0;              // atom id of its first atom
  std::string residue_name;  // "" for a group
  std::string chain;
  int inter_bonds = 0;
};

Substructure substructure_of(SubstructureKey const& key, Atom const& atom, int root) {
  Substructure s;
  s.root = root;
  AtomDetails const* d = atom.details();
  if (d) {
    s.residue_name = d->residue_name;
    s.chain = d->chain;
  }
  switch (key.kind) {
    case 0:
      s.id = key.number;
      s.name = key.name;
      break;
    case 1:
      s.name = key.name + int_to_string(key.number);
      if (key.insertion != ' ') s.name += key.insertion;
      break;
    case 3:
      // The label is the residue name followed by its number.
      s.name = key.name;
      s.residue_name = key.name.substr(0, key.name.find_first_of("-0123456789"));
      break;
    default:
      s.name = "RES" + int_to_string(key.number + 1);
      s.residue_name.clear();
      break;
  }
  return s;
}

bool is_unit_cube(Cell const& cell) {
  auto const near = [](double a, double b) { return std::fabs(a - b) < 1e-9; };
  return near(cell.a(), 1.0) && near(cell.b(), 1.0) && near(cell.c(), 1.0) &&
         near(cell.alpha().degrees(), 90.0) && near(cell.beta().degrees(), 90.0) &&
         near(cell.gamma().degrees(), 90.0) && cell.spacegroup().order() <= 1;
}

// A value that prints as zero with four decimals is written as 0.0000, never -0.0000.
double tidy(double value) {
  return std::fabs(value) < 5e-5 ? 0.0 : value;
}

bool no_charges(std::string const& type) {
  return type.empty() || toupper(type) == "NO_CHARGES";
}

struct WrittenBond {
  int origin;
  int target;
  std::string_view code;
};

}  // namespace

bool is_sybyl_atom_type(std::string_view type) {
  return std::find(std::begin(sybyl_atom_types), std::end(sybyl_atom_types), type) !=
         std::end(sybyl_atom_types);
}

DatabaseEntryIdentifier mol2_entry_identifier(std::string_view name) {
  std::size_t length = name.size();
  if (length > static_cast<std::size_t>(DatabaseEntryIdentifier::maximum_length_)) {
    length = static_cast<std::size_t>(DatabaseEntryIdentifier::maximum_length_);
    // A UTF-8 character is not cut in two: back off its continuation bytes (10xxxxxx).
    while (length > 0 && (static_cast<unsigned char>(name[length]) & 0xC0) == 0x80)
      --length;
  }
  try {
    return DatabaseEntryIdentifier(std::string(name.substr(0, length)));
  } catch (std::invalid_argument const&) {
    return DatabaseEntryIdentifier("UNKNWN");
  }
}

Element mol2_standard_element(std::string_view type, std::string_view name) {
  if (is_sybyl_atom_type(type)) return element_of_type(type);
  for (TypeElement const& t : misleading_types) {
    if (t.type == type) return Element(t.symbol);
  }
  Element const from_type = type_element(type);
  std::string_view const letters = name_letters(name);
  Element const from_name = name_element(letters);
  if (!from_type.is_set()) return from_name;
  bool const agrees = !from_name.is_set() ||
                      from_name.atomic_number() == from_type.atomic_number() ||
                      starts_ignoring_case(letters, from_type.symbol());
  return agrees ? from_type : from_name;
}

std::string_view mol2_bond_code(BondType type, std::string_view typed, bool dummy_end) {
  switch (type) {
    case single_bond:
      return typed == "am" ? "am" : "1";
    case double_bond:
      return "2";
    case triple_bond:
      return "3";
    case aromatic_bond:
      return "ar";
    case quadruple_bond:
      return "4";
    case polymeric_bond:
      return "po";
    case delocalised_bond:
      return "de";
    case pi_bond:
      return "pi";
    default:
      return dummy_end ? "du" : "un";
  }
}

void print_mol2_standard(std::ostream& os, CrystalMaker const& maker, std::string const& name,
                         std::vector<SybylTypes> const* typed_before) {
  // Atoms and bonds, molecule after molecule, with their types.
  std::vector<THandle<Atom>> atoms;
  std::vector<std::string> types;
  std::vector<int> subst_of;  // substructure (position in `substructures`) of each atom
  std::vector<WrittenBond> bonds;
  std::vector<Substructure> substructures;
  std::map<SubstructureKey, int> known;
  bool mol2_ids = true;  // every substructure is a Mol2 one with an id of its own
  SubstructureKey last_key;
  int last_subst = -1;
  for (int k = 0; k < maker.nmolecules(); ++k) {
    MoleculeSubset subset(maker.molecule(k));
    subset.select_3d();
    if (subset.natoms() == 0) continue;
    auto const k_types = static_cast<std::size_t>(k);
    bool const typed_already =
        typed_before != nullptr && k_types < typed_before->size() &&
        static_cast<int>((*typed_before)[k_types].atoms.size()) == subset.natoms() &&
        static_cast<int>((*typed_before)[k_types].bonds.size()) == subset.nbonds();
    SybylTypes const fresh = typed_already ? SybylTypes() : sybyl_types(subset);
    SybylTypes const& typed = typed_already ? (*typed_before)[k_types] : fresh;
    int const offset = static_cast<int>(atoms.size());
    for (int i = 0; i < subset.natoms(); ++i) {
      THandle<Atom> const atom = subset.atom(i);
      types.push_back(atom_type(*atom, typed.atoms[static_cast<std::size_t>(i)]));
      SubstructureKey key = key_of(*atom, k);
      if (last_subst < 0 || !(key == last_key)) {
        auto const [it, added] = known.emplace(key, static_cast<int>(substructures.size()));
        if (added) {
          substructures.push_back(substructure_of(key, *atom, static_cast<int>(atoms.size()) + 1));
          mol2_ids = mol2_ids && key.kind == 0 && key.number > 0;
        }
        last_subst = it->second;
        last_key = std::move(key);
      }
      subst_of.push_back(last_subst);
      atoms.push_back(atom);
    }
    for (int j = 0; j < subset.nbonds(); ++j) {
      auto const [a, b] = subset.bond_atoms(j);
      bool const dummy = !subset.atom(a)->element().is_set() || !subset.atom(b)->element().is_set();
      bonds.push_back({offset + a + 1, offset + b + 1,
                       mol2_bond_code(subset.bond(j)->type(),
                                      typed.bonds[static_cast<std::size_t>(j)], dummy)});
    }
  }
  if (mol2_ids) {
    std::set<int> ids;
    for (Substructure const& s : substructures)
      mol2_ids = mol2_ids && ids.insert(s.id).second;
  }
  if (!mol2_ids) {
    for (std::size_t s = 0; s < substructures.size(); ++s)
      substructures[s].id = static_cast<int>(s) + 1;
  }
  for (WrittenBond const& bond : bonds) {
    int const s1 = subst_of[static_cast<std::size_t>(bond.origin - 1)];
    int const s2 = subst_of[static_cast<std::size_t>(bond.target - 1)];
    if (s1 == s2) continue;
    ++substructures[static_cast<std::size_t>(s1)].inter_bonds;
    ++substructures[static_cast<std::size_t>(s2)].inter_bonds;
  }

  StructureDetails const& details = maker.details();
  bool partial = false;
  bool residues = false;
  for (THandle<Atom> const& atom : atoms) {
    AtomDetails const* d = atom->details();
    partial = partial || (d && d->has_partial_charge);
  }
  for (Substructure const& s : substructures)
    residues = residues || !s.residue_name.empty();

  std::string out;
  out.reserve(256 + atoms.size() * 90 + bonds.size() * 26);
  out += "@<TRIPOS>MOLECULE\n";
  out += name;
  out += '\n';
  append_int(out, static_cast<long long>(atoms.size()), 6);
  append_int(out, static_cast<long long>(bonds.size()), 6);
  append_int(out, static_cast<long long>(substructures.size()), 6);
  out += "     0     0\n";
  if (!details.mol2_molecule_type.empty())
    out += word_of(details.mol2_molecule_type, "SMALL");
  else
    out += residues ? "BIOPOLYMER" : "SMALL";
  out += '\n';
  if (!partial)
    out += "NO_CHARGES";
  else
    out += no_charges(details.mol2_charge_type) ? std::string("USER_CHARGES")
                                                : word_of(details.mol2_charge_type, "");
  out += "\n\n@<TRIPOS>ATOM\n";
  for (std::size_t i = 0; i < atoms.size(); ++i) {
    Atom const& atom = *atoms[i];
    AtomDetails const* d = atom.details();
    Substructure const& s = substructures[static_cast<std::size_t>(subst_of[i])];
    Point const p = atom.site()->orthogonal();
    append_int(out, static_cast<long long>(i) + 1, 7);
    out += ' ';
    if (atom.label().empty()) {
      // An atom without a name is named by its element and id, as many readers name them.
      std::string const name = (atom.element().is_set() ? atom.element().symbol() : "Du") +
                               int_to_string(static_cast<int>(i) + 1);
      append_left(out, name, 8);
    } else {
      append_left(out, word_of(atom.label(), "Du"), 8);
    }
    for (int c = 0; c < 3; ++c) {
      out += ' ';
      append_fixed(out, tidy(p[c]), 4, 10);
    }
    out += ' ';
    append_left(out, types[i], 8);
    out += ' ';
    append_int(out, s.id, 5);
    out += ' ';
    append_left(out, word_of(s.name, "****"), 8);
    out += ' ';
    append_fixed(out, tidy(d && d->has_partial_charge ? d->partial_charge : 0.0), 4, 10);
    out += '\n';
  }
  bool charged = false;
  for (THandle<Atom> const& atom : atoms)
    charged = charged || atom->formal_charge() != 0;
  if (charged) {
    out += "@<TRIPOS>UNITY_ATOM_ATTR\n";
    for (std::size_t i = 0; i < atoms.size(); ++i) {
      int const charge = atoms[i]->formal_charge();
      if (charge == 0) continue;
      out += int_to_string(static_cast<int>(i) + 1);
      out += " 1\ncharge ";
      out += int_to_string(charge);
      out += '\n';
    }
  }
  // The BOND section is written also when empty: Open Babel drops a molecule without one.
  out += "@<TRIPOS>BOND\n";
  for (std::size_t b = 0; b < bonds.size(); ++b) {
    append_int(out, static_cast<long long>(b) + 1, 6);
    append_int(out, bonds[b].origin, 6);
    append_int(out, bonds[b].target, 6);
    out += ' ';
    append_right(out, bonds[b].code, 4);
    out += '\n';
  }
  if (!substructures.empty()) {
    out += "@<TRIPOS>SUBSTRUCTURE\n";
    for (Substructure const& s : substructures) {
      bool const residue = !s.residue_name.empty();
      append_int(out, s.id, 6);
      out += ' ';
      append_left(out, word_of(s.name, "****"), 8);
      out += ' ';
      append_int(out, s.root, 6);
      out += ' ';
      append_left(out, residue ? "RESIDUE" : "GROUP", 8);
      out += ' ';
      append_int(out, residue ? 1 : 0, 4);
      out += ' ';
      append_left(out, word_of(s.chain, "****"), 4);
      out += ' ';
      append_left(out, residue ? word_of(s.residue_name, "****") : std::string("****"), 4);
      out += ' ';
      append_int(out, s.inter_bonds, 5);
      out += '\n';
    }
  }
  Cell const& cell = maker.cell();
  if (details.has_cell && !is_unit_cube(cell)) {
    Mol2Crysin record(cell);
    if (record.convert_from_kora_exactly(cell.spacegroup())) {
      out += "@<TRIPOS>CRYSIN\n";
      for (double v :
           {record.a(), record.b(), record.c(), record.alpha(), record.beta(), record.gamma()}) {
        append_fixed(out, v, 4, 10);
        out += ' ';
      }
      append_int(out, record.spacegroup_number(), 5);
      append_int(out, record.setting(), 6);
      out += '\n';
    }
  }
  os.write(out.data(), static_cast<std::streamsize>(out.size()));
}

}  // namespace kora::detail
