#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "kora/kernel/molecule.hpp"
#include "kora/kernel/string_functions.hpp"

namespace {

using kora::Atom;
using kora::BondData;
using kora::BondType;
using kora::Element;
using kora::Molecule3d;
using kora::Point;
using kora::THandle;

// Blank-separated words; "X*n" stands for n copies of X.
std::vector<std::string> words(std::string_view text) {
  std::vector<std::string> out;
  std::istringstream in{std::string(text)};
  for (std::string w; in >> w;) {
    std::size_t const star = w.find('*', 1);
    int const count = star == std::string::npos ? 1 : std::stoi(w.substr(star + 1));
    for (int k = 0; k < count; ++k)
      out.push_back(w.substr(0, star));
  }
  return out;
}

struct AtomRow {
  std::string symbol;  // "" for an atom without an element
  int charge = 0;
  bool has_site = false;
  Point position;
};

Molecule3d build(std::vector<AtomRow> const& atoms, std::vector<BondData> const& bonds) {
  std::vector<THandle<Atom>> atom_list;
  for (std::size_t i = 0; i < atoms.size(); ++i) {
    AtomRow const& row = atoms[i];
    THandle<kora::Site> site;
    if (row.has_site) site = kora::make_handle<kora::Site>(row.position, row.position);
    atom_list.push_back(kora::make_handle<kora::FileOrderedAtom3d>(
        static_cast<int>(i), Element(row.symbol), row.symbol + std::to_string(i + 1), site));
    atom_list.back()->set_formal_charge(row.charge);
  }
  return Molecule3d(atom_list, bonds);
}

// The molecule without its hydrogens.
Molecule3d heavy(Molecule3d m) {
  m.remove_atoms([](THandle<Atom> const& a) { return a->element() == Element("H"); });
  return m;
}

// Atoms as element symbols with an optional charge ("N+", "O-"; "*" has no element).
std::vector<AtomRow> parse_atoms(std::string_view text) {
  std::vector<AtomRow> atoms;
  for (std::string const& w : words(text)) {
    AtomRow row;
    row.symbol = w == "*" ? "" : w;
    while (!row.symbol.empty() && (row.symbol.back() == '+' || row.symbol.back() == '-')) {
      row.charge += row.symbol.back() == '+' ? 1 : -1;
      row.symbol.pop_back();
    }
    atoms.push_back(row);
  }
  return atoms;
}

// Bonds as "1-2" (single), "1=2", "1#2", "1:2" (aromatic), "1~2" (delocalised), "1?2"
// (unknown), with atoms numbered from 0.
std::vector<BondData> parse_bonds(std::string_view text) {
  std::string_view const symbols = "?-=#:~";
  BondType const types[] = {kora::unknown_bond, kora::single_bond,   kora::double_bond,
                            kora::triple_bond,  kora::aromatic_bond, kora::delocalised_bond};
  std::vector<BondData> bonds;
  for (std::string const& w : words(text)) {
    std::size_t const at = w.find_first_of(symbols);
    bonds.emplace_back(std::stoi(w.substr(0, at)), std::stoi(w.substr(at + 1)),
                       types[symbols.find(w[at])]);
  }
  return bonds;
}

struct TypingCase {
  char const* name;
  char const* atoms;
  char const* bonds;
  char const* atom_types;
  char const* bond_types;
};

// Molecules without positions, typed from elements, charges and bond orders alone.
TypingCase const connectivity_cases[] = {
    {"benzene", "C*6 H*6", "0:1 1:2 2:3 3:4 4:5 5:0 0-6 1-7 2-8 3-9 4-10 5-11", "C.ar*6 H*6",
     "ar*6 1*6"},
    {"naphthalene, Kekule, fusion bond single", "C*10",
     "0=1 1-2 2=3 3-4 4-9 9-0 4=5 5-6 6=7 7-8 8=9", "C.ar*10", "ar*11"},
    {"pyridine, Kekule", "C*5 N", "0=1 1-2 2=3 3-4 4=5 5-0", "C.ar*5 N.ar", "ar*6"},
    {"2-pyridone", "O C*5 N", "0=1 1-2 2=3 3-4 4=5 5-6 6-1", "O.2 C.2*5 N.am", "2 1 2 1 2 1 am"},
    {"pyridinium", "C*5 N H*6", "0:1 1:2 2:3 3:4 4:5 5:0 0-6 1-7 2-8 3-9 4-10 5-11",
     "C.ar*5 N.ar H*6", "ar*6 1*6"},
    {"pyrrole", "C*4 N H*5", "0:1 1:2 2:3 3:4 4:0 0-5 1-6 2-7 3-8 4-9", "C.ar*4 N.pl3 H*5",
     "ar*5 1*5"},
    {"thiophene, Kekule", "C*4 S", "0=1 1-2 2=3 3-4 4-0", "C.2*4 S.3", "2 1 2 1 1"},
    {"thiophene, aromatic", "C*4 S", "0:1 1:2 2:3 3:4 4:0", "C.ar*4 S.2", "ar*5"},
    {"acetate", "C C O O H*3", "0-1 1=2 1-3 0-4 0-5 0-6", "C.3 C.2 O.co2 O.co2 H*3", "1 2 1 1*3"},
    {"acetate, charged", "C C O O-", "0-1 1=2 1-3", "C.3 C.2 O.co2 O.co2", "1 2 1"},
    {"acetic acid", "C C O O", "0-1 1=2 1-3", "C.3 C.2 O.2 O.3", "1 2 1"},
    {"urea", "N C O N", "0-1 1=2 1-3", "N.am C.2 O.2 N.am", "am 2 am"},
    {"ammonium", "N+", "", "N.4", ""},
    {"aniline", "C*6 N", "0:1 1:2 2:3 3:4 4:5 5:0 0-6", "C.ar*6 N.pl3", "ar*6 1"},
    {"dimethyl sulfoxide", "C S O C", "0-1 1=2 1-3", "C.3 S.O O.2 C.3", "1 2 1"},
    {"nitromethane, charges", "C N+ O O-", "0-1 1=2 1-3", "C.3 N.pl3 O.2 O.3", "1 2 1"},
    {"guanidinium", "N C N N+", "0-1 1-2 1=3", "N.pl3 C.cat N.pl3 N.pl3", "1 1 2"},
    {"guanidine", "N C N N H*5", "0-1 1-2 1=3 0-4 0-5 2-6 2-7 3-8", "N.pl3 C.2 N.pl3 N.2 H*5",
     "1 1 2 1*5"},
    {"acetonitrile", "C C N", "0-1 1#2", "C.3 C.1 N.1", "1 3"},
    {"dimethyl phosphate", "C O P O O- O C", "0-1 1-2 2=3 2-4 2-5 5-6",
     "C.3 O.3 P.3 O.2 O.3 O.3 C.3", "1*2 2 1*3"},
    {"metal, dummy and deuterium", "Zn Cl Cl * C D D D", "0-1 0-2 3-4 4-5 4-6 4-7",
     "Zn Cl Cl Du C.3 H H H", "1 1 du 1*3"},
    {"unknown order, nothing to go on", "C C", "0?1", "C.3 C.3", "un"},
    {"unknown orders, explicit hydrogens", "C C H*4 C C N H*3",
     "0?1 0-2 0-3 1-4 1-5 6?7 7?8 6-9 6-10 6-11", "C.2 C.2 H*4 C.3 C.1 N.1 H*3", "2 1*4 1 3 1*3"},
};

TEST(SybylTyper, TypesFromBondOrders) {
  for (TypingCase const& c : connectivity_cases) {
    SCOPED_TRACE(c.name);
    Molecule3d const m = build(parse_atoms(c.atoms), parse_bonds(c.bonds));
    EXPECT_EQ(m.sybyl_atom_types(), words(c.atom_types));
    EXPECT_EQ(m.sybyl_bond_types(), words(c.bond_types));
  }
  Molecule3d const m = build(parse_atoms("C C O N C"), parse_bonds("0-1 1=2 1-3 3-4"));
  EXPECT_EQ(m.atom_sybyl_type(3), "N.am");
  EXPECT_EQ(m.bond_sybyl_type(2), "am");
  EXPECT_THROW(m.atom_sybyl_type(-1), std::out_of_range);
  EXPECT_THROW(m.atom_sybyl_type(5), std::out_of_range);
  EXPECT_THROW(m.bond_sybyl_type(4), std::out_of_range);
  EXPECT_TRUE(Molecule3d().sybyl_atom_types().empty());
}

struct Mol2Molecule {
  std::vector<AtomRow> atoms;
  std::vector<BondData> bonds;
  std::vector<std::string> atom_types, bond_types;
};

// The molecules of a Mol2 file: the element of an atom from its type's part before the dot
// (LP and Du have none), a bond "1", "2", "3", "ar" or "am" (as single), else of unknown order.
std::vector<Mol2Molecule> read_mol2(std::filesystem::path const& path) {
  std::map<std::string, BondType> const orders{{"1", kora::single_bond},
                                               {"am", kora::single_bond},
                                               {"2", kora::double_bond},
                                               {"3", kora::triple_bond},
                                               {"ar", kora::aromatic_bond}};
  std::ifstream in(path);
  std::vector<Mol2Molecule> molecules;
  std::string section;
  std::vector<std::string> f;
  for (std::string line; std::getline(in, line);) {
    if (kora::split(line, f, " \t\r") == 0 || f[0].starts_with("#")) continue;
    if (f[0].starts_with("@<TRIPOS>")) {
      section = f[0].substr(9);
      if (section == "MOLECULE") molecules.emplace_back();
      continue;
    }
    if (molecules.empty()) continue;
    Mol2Molecule& m = molecules.back();
    int const natoms = static_cast<int>(m.atoms.size());
    if (section == "ATOM" && f.size() >= 6) {
      std::string symbol = f[5].substr(0, f[5].find('.'));
      kora::lower_element_case(symbol);
      if (symbol == "Du" || symbol == "Lp") symbol.clear();
      m.atoms.push_back(
          {symbol, 0, true, Point(std::stod(f[2]), std::stod(f[3]), std::stod(f[4]))});
      m.atom_types.push_back(f[5]);
    } else if (section == "BOND" && f.size() >= 4) {
      int const a = std::stoi(f[1]) - 1;
      int const b = std::stoi(f[2]) - 1;
      if (a < 0 || b < 0 || a >= natoms || b >= natoms || a == b) continue;
      auto const order = orders.find(f[3]);
      m.bonds.emplace_back(a, b, order == orders.end() ? kora::unknown_bond : order->second);
      m.bond_types.push_back(f[3]);
    }
  }
  return molecules;
}

struct Agreement {
  Agreement(char const* w, double minimum) : what(w), minimum_percent(minimum) {}
  char const* what;
  double minimum_percent;
  long agree = 0;
  long total = 0;
  std::map<std::string, int> mismatches;  // "file -> ours"

  void count(std::string const& expected, std::string const& ours) {
    ++total;
    if (kora::toupper(expected) == kora::toupper(ours))
      ++agree;
    else
      ++mismatches[expected + " -> " + ours];
  }
  double percent() const { return total ? 100.0 * double(agree) / double(total) : 100.0; }
  std::string mismatch_list() const {
    std::ostringstream out;
    for (auto const& [k, v] : mismatches)
      out << "    " << v << "  " << k << "\n";
    return out.str();
  }
};

// Compares the types of every atom that has an element (all but LP and Du), or of the heavy
// atoms only, and with bond_agreement the types of the bonds.
void compare(Mol2Molecule const& m, std::vector<BondData> const& bonds, bool with_hydrogens,
             Agreement& atom_agreement, Agreement* bond_agreement = nullptr) {
  Molecule3d const all = build(m.atoms, bonds);
  Molecule3d const molecule = with_hydrogens ? all : heavy(all);
  std::vector<std::string> const types = molecule.sybyl_atom_types();
  for (std::size_t i = 0, k = 0; i < m.atoms.size(); ++i) {
    if (!with_hydrogens && m.atoms[i].symbol == "H") continue;
    if (!m.atoms[i].symbol.empty()) atom_agreement.count(m.atom_types[i], types[k]);
    ++k;
  }
  if (!bond_agreement) return;
  std::vector<std::string> const bond_types = molecule.sybyl_bond_types();
  for (std::size_t b = 0; b < bonds.size(); ++b)
    bond_agreement->count(m.bond_types[b], bond_types[b]);
}

// Large molecules type whole and in time: a Kekule acene of 2,000 rings (top chain t x t x
// ..., bottom chain b y b y ..., rungs t-b) is aromatic throughout, and a 200,000-atom chain
// is all C.3. Ring perception or typing that grew faster than the molecule would stall here.
TEST(SybylTyper, LargeMolecules) {
  int const rings = 2000;
  AtomRow carbon;
  carbon.symbol = "C";
  std::vector<AtomRow> const acene(4 * rings + 2, carbon);
  std::vector<BondData> bonds;
  for (int i = 0; i < rings; ++i) {
    int const t = 4 * i, b = t + 1, x = t + 2, y = t + 3;
    bonds.insert(bonds.end(), {{t, x, kora::double_bond},
                               {x, t + 4, kora::single_bond},
                               {b, y, kora::double_bond},
                               {y, b + 4, kora::single_bond},
                               {t, b, kora::single_bond}});
  }
  bonds.emplace_back(4 * rings, 4 * rings + 1, kora::double_bond);
  std::vector<std::string> const types = build(acene, bonds).sybyl_atom_types();
  EXPECT_EQ(std::count(types.begin(), types.end(), "C.ar"), 4 * rings + 2);
  std::vector<BondData> chain;
  for (int i = 0; i + 1 < 200000; ++i)
    chain.emplace_back(i, i + 1, kora::single_bond);
  std::vector<std::string> const alkane =
      build(std::vector<AtomRow>(200000, carbon), chain).sybyl_atom_types();
  EXPECT_EQ(std::count(alkane.begin(), alkane.end(), "C.3"), 200000);
}

// Every Mol2 file of the corpus that uses SYBYL types only, typed from its bond orders, and
// again from its coordinates alone (bond orders dropped, then hydrogens dropped as well).
TEST(SybylTyper, AgreesWithCorpusMol2Files) {
  char const* env = std::getenv("KORA_CORPUS");
  std::filesystem::path const dir = env ? env : KORA_DEFAULT_CORPUS_DIR;
  if (!std::filesystem::is_directory(dir / "mol2")) GTEST_SKIP() << "no corpus at " << dir;
  std::string const known_types = kora::toupper(
      " C.3 C.2 C.1 C.ar C.cat N.3 N.2 N.1 N.ar N.am N.pl3 N.4 O.3 O.2 O.co2 O.spc O.t3p S.3 S.2 "
      "S.O S.O2 P.3 H H.spc H.t3p LP Du Du.C Any Hal Het Hev F Cl Br I Li Na Mg Al Si K Ca Cr.th "
      "Cr.oh Mn Fe Co.oh Cu Zn Se Mo Sn ");
  Agreement orders{"atom types from bond orders", 99.85};
  Agreement geometry{"atom types from coordinates", 99.5};
  Agreement heavy_geometry{"heavy-atom types from coordinates without hydrogens", 97.95};
  Agreement bond_orders{"bond types from bond orders", 99.85};
  Agreement bond_geometry{"bond types from coordinates", 98.8};
  for (auto const& sub : {dir / "mol2", dir / "bench"}) {
    if (!std::filesystem::is_directory(sub)) continue;
    for (auto const& entry : std::filesystem::directory_iterator(sub)) {
      if (entry.path().extension() != ".mol2") continue;
      std::vector<Mol2Molecule> const molecules = read_mol2(entry.path());
      bool sybyl = !molecules.empty();
      for (Mol2Molecule const& m : molecules)
        for (std::string const& type : m.atom_types)
          sybyl = sybyl && known_types.find(" " + kora::toupper(type) + " ") != std::string::npos;
      if (!sybyl) continue;
      for (Mol2Molecule const& m : molecules) {
        compare(m, m.bonds, true, orders, &bond_orders);
        std::vector<BondData> unknown = m.bonds;
        for (BondData& b : unknown)
          b.set_type(kora::unknown_bond);
        compare(m, unknown, true, geometry, &bond_geometry);
        compare(m, unknown, false, heavy_geometry);
      }
    }
  }
  ASSERT_GT(orders.total, 0);
  for (Agreement const* a : {&orders, &geometry, &heavy_geometry, &bond_orders, &bond_geometry}) {
    std::cout << a->what << ": " << a->agree << " of " << a->total << " agree\n";
    EXPECT_GE(a->percent(), a->minimum_percent) << a->what << "\n" << a->mismatch_list();
  }
}

}  // namespace
