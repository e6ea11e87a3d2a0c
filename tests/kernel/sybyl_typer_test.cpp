#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "kora/kernel/molecule.hpp"

namespace {

using kora::Atom;
using kora::BondData;
using kora::BondType;
using kora::Element;
using kora::FileOrderedAtom3d;
using kora::make_handle;
using kora::Molecule3d;
using kora::Point;
using kora::Site;
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

struct BondRow {
  int atom1;
  int atom2;
  BondType type;
};

Molecule3d build(std::vector<AtomRow> const& atoms, std::vector<BondRow> const& bonds) {
  auto atom_list = make_handle<std::vector<THandle<Atom>>>();
  for (std::size_t i = 0; i < atoms.size(); ++i) {
    AtomRow const& row = atoms[i];
    THandle<Site> site;
    if (row.has_site) site = make_handle<Site>(row.position, row.position);
    auto atom = make_handle<FileOrderedAtom3d>(static_cast<int>(i), Element(row.symbol),
                                               row.symbol + std::to_string(i + 1), site);
    atom->set_formal_charge(row.charge);
    atom_list->push_back(atom);
  }
  auto bond_list = make_handle<std::vector<THandle<BondData>>>();
  for (BondRow const& b : bonds)
    bond_list->push_back(make_handle<BondData>(b.atom1, b.atom2, b.type));
  return Molecule3d(atom_list, bond_list);
}

// Atoms as element symbols with an optional charge ("N+", "O-"; "*" has no element) and,
// when coordinates are given, each followed by x y z.
std::vector<AtomRow> parse_atoms(std::string_view text, bool with_coordinates) {
  std::vector<AtomRow> atoms;
  std::vector<std::string> const w = words(text);
  for (std::size_t k = 0; k < w.size(); k += with_coordinates ? 4 : 1) {
    AtomRow row;
    row.symbol = w[k] == "*" ? "" : w[k];
    while (!row.symbol.empty() && (row.symbol.back() == '+' || row.symbol.back() == '-')) {
      row.charge += row.symbol.back() == '+' ? 1 : -1;
      row.symbol.pop_back();
    }
    if (with_coordinates) {
      row.has_site = true;
      row.position = Point(std::stod(w[k + 1]), std::stod(w[k + 2]), std::stod(w[k + 3]));
    }
    atoms.push_back(row);
  }
  return atoms;
}

// Bonds as "1-2" (single), "1=2", "1#2", "1:2" (aromatic), "1~2" (delocalised), "1?2"
// (unknown), with atoms numbered from 0.
std::vector<BondRow> parse_bonds(std::string_view text) {
  std::string_view const symbols = "?-=#:~";
  BondType const types[] = {kora::unknown_bond, kora::single_bond,   kora::double_bond,
                            kora::triple_bond,  kora::aromatic_bond, kora::delocalised_bond};
  std::vector<BondRow> bonds;
  for (std::string const& w : words(text)) {
    std::size_t const at = w.find_first_of(symbols);
    bonds.push_back(
        {std::stoi(w.substr(0, at)), std::stoi(w.substr(at + 1)), types[symbols.find(w[at])]});
  }
  return bonds;
}

// The atoms other than hydrogens, and the bonds among them.
std::pair<std::vector<AtomRow>, std::vector<BondRow>> heavy_part(
    std::vector<AtomRow> const& atoms, std::vector<BondRow> const& bonds) {
  std::vector<AtomRow> kept;
  std::vector<int> position(atoms.size(), -1);
  for (std::size_t i = 0; i < atoms.size(); ++i)
    if (atoms[i].symbol != "H") {
      position[i] = static_cast<int>(kept.size());
      kept.push_back(atoms[i]);
    }
  std::vector<BondRow> kept_bonds;
  for (BondRow const& b : bonds)
    if (position[b.atom1] >= 0 && position[b.atom2] >= 0)
      kept_bonds.push_back({position[b.atom1], position[b.atom2], b.type});
  return {kept, kept_bonds};
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
    {"acetate, aromatic bonds", "C C O O", "0-1 1:2 1:3", "C.3 C.2 O.co2 O.co2", "1 ar ar"},
    {"acetic acid", "C C O O", "0-1 1=2 1-3", "C.3 C.2 O.2 O.3", "1 2 1"},
    {"zinc acetate", "C C O O- Zn", "0-1 1=2 1-3 3-4", "C.3 C.2 O.co2 O.co2 Zn", "1 2 1 1"},
    {"N-methylacetamide", "C C O N C", "0-1 1=2 1-3 3-4", "C.3 C.2 O.2 N.am C.3", "1 2 am 1"},
    {"urea", "N C O N", "0-1 1=2 1-3", "N.am C.2 O.2 N.am", "am 2 am"},
    {"methylammonium", "C N H*6", "0-1 0-2 0-3 0-4 1-5 1-6 1-7", "C.3 N.4 H*6", "1*7"},
    {"ammonium", "N+", "", "N.4", ""},
    {"methylamine", "C N", "0-1", "C.3 N.3", "1"},
    {"aniline", "C*6 N", "0:1 1:2 2:3 3:4 4:5 5:0 0-6", "C.ar*6 N.pl3", "ar*6 1"},
    {"dimethyl sulfone", "C S O O C", "0-1 1=2 1=3 1-4", "C.3 S.O2 O.2 O.2 C.3", "1 2 2 1"},
    {"dimethyl sulfoxide", "C S O C", "0-1 1=2 1-3", "C.3 S.O O.2 C.3", "1 2 1"},
    {"methanesulfonamide", "C S O O N", "0-1 1=2 1=3 1-4", "C.3 S.O2 O.2 O.2 N.am", "1 2 2 am"},
    {"thioacetone", "C C S C", "0-1 1=2 1-3", "C.3 C.2 S.2 C.3", "1 2 1"},
    {"nitromethane, charges", "C N+ O O-", "0-1 1=2 1-3", "C.3 N.pl3 O.2 O.3", "1 2 1"},
    {"nitromethane, pentavalent", "C N O O", "0-1 1=2 1=3", "C.3 N.pl3 O.2 O.2", "1 2 2"},
    {"guanidinium", "N C N N+", "0-1 1-2 1=3", "N.pl3 C.cat N.pl3 N.pl3", "1 1 2"},
    {"guanidinium, aromatic bonds", "N C N N", "0:1 1:2 1:3", "N.pl3 C.cat N.pl3 N.pl3",
     "ar ar ar"},
    {"guanidine", "N C N N H*5", "0-1 1-2 1=3 0-4 0-5 2-6 2-7 3-8", "N.pl3 C.2 N.pl3 N.2 H*5",
     "1 1 2 1*5"},
    {"acetonitrile", "C C N", "0-1 1#2", "C.3 C.1 N.1", "1 3"},
    {"propene", "C C C", "0=1 1-2", "C.2 C.2 C.3", "2 1"},
    {"allene and carbon dioxide", "C C C O C O", "0=1 1=2 3=4 4=5", "C.2 C.1 C.2 O.2 C.1 O.2",
     "2*4"},
    {"dimethyl phosphate", "C O P O O- O C", "0-1 1-2 2=3 2-4 2-5 5-6",
     "C.3 O.3 P.3 O.2 O.3 O.3 C.3", "1*2 2 1*3"},
    {"dimethyl phosphate, delocalised", "C O P O O O C", "0-1 1-2 2~3 2~4 2-5 5-6",
     "C.3 O.3 P.3 O.co2 O.co2 O.3 C.3", "1 1 ar ar 1 1"},
    {"metal, dummy and deuterium", "Zn Cl Cl * C D D D", "0-1 0-2 3-4 4-5 4-6 4-7",
     "Zn Cl Cl Du C.3 H H H", "1 1 du 1*3"},
    {"chromium and cobalt", "Cr O*6 Cr O*4 Co Na Fe", "0-1 0-2 0-3 0-4 0-5 0-6 7-8 7-9 7-10 7-11",
     "Cr.oh O.3*6 Cr.th O.3*4 Co.oh Na Fe", "1*10"},
    {"unknown order, nothing to go on", "C C", "0?1", "C.3 C.3", "un"},
    {"unknown orders, explicit hydrogens", "C C H*4 C C N H*3",
     "0?1 0-2 0-3 1-4 1-5 6?7 7?8 6-9 6-10 6-11", "C.2 C.2 H*4 C.3 C.1 N.1 H*3", "2 1*4 1 3 1*3"},
};

TEST(SybylTyper, TypesFromBondOrders) {
  for (TypingCase const& c : connectivity_cases) {
    SCOPED_TRACE(c.name);
    Molecule3d const m = build(parse_atoms(c.atoms, false), parse_bonds(c.bonds));
    EXPECT_EQ(m.sybyl_atom_types(), words(c.atom_types));
    EXPECT_EQ(m.sybyl_bond_types(), words(c.bond_types));
  }
}

TEST(SybylTyper, SingleTypesAndBadIndexes) {
  Molecule3d const m = build(parse_atoms("C C O N C", false), parse_bonds("0-1 1=2 1-3 3-4"));
  EXPECT_EQ(m.atom_sybyl_type(3), "N.am");
  EXPECT_EQ(m.bond_sybyl_type(2), "am");
  EXPECT_THROW(m.atom_sybyl_type(-1), std::out_of_range);
  EXPECT_THROW(m.atom_sybyl_type(5), std::out_of_range);
  EXPECT_THROW(m.bond_sybyl_type(4), std::out_of_range);
  EXPECT_TRUE(Molecule3d().sybyl_atom_types().empty());
}

// Large inputs: a long fused Kekule acene (each ring turns aromatic only once the next is)
// and a long chain; both must finish quickly and type every carbon.
TEST(SybylTyper, LargeMolecules) {
  int const rings = 2000;
  // Top chain t0 x0 t1 x1 ... tn, bottom chain b0 y0 b1 ... bn, rungs t_i - b_i.
  AtomRow carbon;
  carbon.symbol = "C";
  std::vector<AtomRow> atoms(4 * rings + 2, carbon);
  auto const t = [](int i) { return 4 * i; };
  auto const b = [](int i) { return 4 * i + 1; };
  auto const x = [](int i) { return 4 * i + 2; };
  auto const y = [](int i) { return 4 * i + 3; };
  std::vector<BondRow> bonds;
  for (int i = 0; i < rings; ++i) {
    bonds.push_back({t(i), x(i), kora::double_bond});
    bonds.push_back({x(i), t(i + 1), kora::single_bond});
    bonds.push_back({b(i), y(i), kora::double_bond});
    bonds.push_back({y(i), b(i + 1), kora::single_bond});
    bonds.push_back({t(i), b(i), kora::single_bond});
  }
  bonds.push_back({t(rings), b(rings), kora::double_bond});
  std::vector<std::string> const types = build(atoms, bonds).sybyl_atom_types();
  EXPECT_EQ(std::count(types.begin(), types.end(), "C.ar"), 4 * rings + 2);

  std::vector<BondRow> chain;
  for (int i = 0; i + 1 < 200000; ++i)
    chain.push_back({i, i + 1, kora::single_bond});
  std::vector<std::string> const alkane =
      build(std::vector<AtomRow>(200000, carbon), chain).sybyl_atom_types();
  EXPECT_EQ(std::count(alkane.begin(), alkane.end(), "C.3"), 200000);
}

struct GeometryCase {
  char const* name;
  char const* atoms;  // symbol x y z ...
  char const* bonds;
  char const* heavy_types;
};

// Force-field coordinates (the nitrile length set to 1.16), most without hydrogens as in
// crystal structures. The orders given type as the heavy_types.
GeometryCase const geometry_cases[] = {
    {"benzene",
     "C 1.38 -0.22 0.01 C 0.51 -1.31 -0.01 C -0.87 -1.09 -0.01 C -1.37 0.21 -0.00 C -0.50 1.30 "
     "0.01 C 0.88 1.08 0.01 H 2.46 -0.39 0.01 H 0.90 -2.32 -0.01 H -1.55 -1.94 -0.03 H -2.45 0.38 "
     "-0.01 H -0.89 2.31 0.02 H 1.56 1.93 0.02",
     "0:1 1:2 2:3 3:4 4:5 0:5 0-6 1-7 2-8 3-9 4-10 5-11", "C.ar*6"},
    {"benzene, bonds too long to place double bonds",
     "C 1.43 0 0 C 0.715 1.238 0 C -0.715 1.238 0 C -1.43 0 0 C -0.715 -1.238 0 C 0.715 -1.238 0",
     "0:1 1:2 2:3 3:4 4:5 0:5", "C.ar*6"},
    {"acetic acid", "C 1.05 -0.06 -0.13 C 2.55 -0.00 -0.08 O 3.19 0.77 0.61 O 3.13 -0.91 -0.89",
     "0-1 1=2 1-3", "C.3 C.2 O.2 O.3"},
    {"acetate", "C 1.01 -0.05 0.06 C 2.52 -0.03 0.04 O 3.08 -1.02 0.60 O 3.04 0.97 -0.52",
     "0-1 1~2 1~3", "C.3 C.2 O.co2 O.co2"},
    {"acetonitrile", "C 1.02 -0.08 -0.05 C 2.54 -0.08 -0.05 N 3.70 -0.08 -0.05", "0-1 1#2",
     "C.3 C.1 N.1"},
    {"ethylene", "C 0.93 -0.06 0.01 C 2.27 -0.06 0.01", "0=1", "C.2 C.2"},
    {"N-methylacetamide",
     "C 1.14 -0.08 0.11 C 2.64 0.01 0.03 O 3.21 0.83 -0.69 N 3.28 -0.89 0.83 C 4.72 -0.97 0.91 "
     "H 0.69 0.67 -0.56 H 0.81 0.12 1.13 H 0.81 -1.07 -0.20 H 2.74 -1.53 1.40 H 5.20 -0.24 0.26 "
     "H 5.02 -1.98 0.61 H 5.02 -0.80 1.95",
     "0-1 1=2 1-3 3-4 0-5 0-6 0-7 3-8 4-9 4-10 4-11", "C.3 C.2 O.2 N.am C.3"},
    {"nitromethane", "C 1.07 0.05 0.06 N 2.56 0.07 0.06 O 3.14 -1.00 0.25 O 3.10 1.17 -0.13",
     "0-1 1=2 1=3", "C.3 N.pl3 O.2 O.2"},
    {"dimethyl sulfone",
     "C 1.17 0.00 -0.08 S 2.94 0.03 0.01 O 3.35 1.41 0.19 O 3.35 -1.00 0.94 C 3.44 -0.47 -1.62",
     "0-1 1=2 1=3 1-4", "C.3 S.O2 O.2 O.2 C.3"},
    {"guanidinium", "N 1.21 -0.01 -0.04 C 2.54 -0.01 -0.04 N 3.20 -1.16 0.09 N 3.20 1.13 -0.16",
     "0~1 1~2 1~3", "N.pl3 C.cat N.pl3 N.pl3"},
    {"naphthalene",
     "C 2.43 -0.70 -0.01 C 2.43 0.69 -0.00 C 1.22 1.39 0.01 C -0.00 0.71 0.01 C -1.23 1.39 -0.00 "
     "C -2.44 0.70 -0.01 C -2.44 -0.69 -0.01 C -1.23 -1.39 0.00 C -0.00 -0.71 0.00 C 1.22 -1.40 "
     "-0.00",
     "0:1 1:2 2:3 3:4 4:5 5:6 6:7 7:8 3:8 8:9 0:9", "C.ar*10"},
    {"4-methylimidazole",
     "C 2.23 -0.04 0.01 C 0.75 -0.07 0.00 C -0.10 -1.16 -0.01 N -1.36 -0.63 -0.00 C -1.24 0.73 "
     "0.01 N 0.02 1.10 0.01 H 2.65 -1.05 0.00 H 2.59 0.48 0.90 H 2.60 0.49 -0.88 H 0.08 -2.22 "
     "-0.01 H -2.23 -1.15 -0.00 H -2.09 1.39 0.01",
     "0-1 1=2 2-3 3-4 4=5 1-5 0-6 0-7 0-8 2-9 3-10 4-11", "C.3 C.2 C.2 N.pl3 C.2 N.2"},
    {"2-pyridone",
     "O 2.16 0.05 0.00 C 0.94 0.03 0.00 C 0.14 1.28 0.00 C -1.20 1.22 -0.00 C -1.88 -0.06 -0.00 "
     "C -1.16 -1.19 0.00 N 0.21 -1.14 0.00",
     "0=1 1-2 2=3 3-4 4=5 5-6 1-6", "O.2 C.2*5 N.am"},
    {"cyclohexane",
     "C -1.42 0.33 -0.22 C -0.99 -1.06 0.23 C 0.42 -1.39 -0.23 C 1.42 -0.33 0.23 C 0.99 1.07 "
     "-0.23 C -0.42 1.39 0.23",
     "0-1 1-2 2-3 3-4 4-5 0-5", "C.3*6"},
    {"acetophenone oxime",
     "C 1.33 0.74 -0.60 C 2.51 0.11 0.12 N 2.90 0.45 1.31 O 2.12 1.46 1.87 C 3.28 -0.96 -0.61 "
     "C 2.93 -1.38 -1.90 C 3.67 -2.37 -2.56 C 4.77 -2.94 -1.93 C 5.13 -2.54 -0.64 C 4.39 -1.56 "
     "0.01",
     "0-1 1=2 2-3 1-4 4:5 5:6 6:7 7:8 8:9 4:9", "C.3 C.2 N.2 O.3 C.ar*6"},
};

// With every bond order unknown, the molecules must type as with their orders, from angles
// and lengths, with their hydrogens (if any) and without them.
TEST(SybylTyper, TypesFromGeometry) {
  for (GeometryCase const& c : geometry_cases) {
    SCOPED_TRACE(c.name);
    std::vector<AtomRow> const atoms = parse_atoms(c.atoms, true);
    std::vector<BondRow> bonds = parse_bonds(c.bonds);
    std::vector<std::string> const expected = words(c.heavy_types);
    auto const [heavy_atoms, heavy_bonds] = heavy_part(atoms, bonds);
    Molecule3d const known = build(heavy_atoms, heavy_bonds);
    EXPECT_EQ(known.sybyl_atom_types(), expected) << "with orders";
    for (BondRow& b : bonds)
      b.type = kora::unknown_bond;
    auto const [unknown_atoms, unknown_bonds] = heavy_part(atoms, bonds);
    Molecule3d const unknown = build(unknown_atoms, unknown_bonds);
    EXPECT_EQ(unknown.sybyl_atom_types(), expected) << "unknown orders";
    EXPECT_EQ(unknown.sybyl_bond_types(), known.sybyl_bond_types()) << "unknown orders";
    std::vector<std::string> with_hydrogens = build(atoms, bonds).sybyl_atom_types();
    std::erase(with_hydrogens, "H");
    EXPECT_EQ(with_hydrogens, expected) << "unknown orders, with hydrogens";
  }
}

// ---------------------------------------------------------------------------------------
// Agreement with the types of real Mol2 files

std::filesystem::path corpus_dir() {
  if (char const* dir = std::getenv("KORA_CORPUS")) return dir;
  return KORA_DEFAULT_CORPUS_DIR;
}

std::string lower(std::string_view text) {
  std::string out(text);
  for (char& ch : out)
    if (ch >= 'A' && ch <= 'Z') ch = static_cast<char>(ch - 'A' + 'a');
  return out;
}

bool is_sybyl_type(std::string const& type) {
  static std::string const types = lower(
      " C.3 C.2 C.1 C.ar C.cat N.3 N.2 N.1 N.ar N.am N.pl3 N.4 O.3 O.2 O.co2 O.spc O.t3p S.3 S.2 "
      "S.O S.O2 P.3 H H.spc H.t3p LP Du Du.C Any Hal Het Hev F Cl Br I Li Na Mg Al Si K Ca Cr.th "
      "Cr.oh Mn Fe Co.oh Cu Zn Se Mo Sn ");
  return types.find(" " + lower(type) + " ") != std::string::npos;
}

struct Mol2Molecule {
  std::vector<AtomRow> atoms;
  std::vector<std::string> types;
  std::vector<BondRow> bonds;
  std::vector<std::string> bond_types;
};

// The atoms (element from the type's part before the dot; LP and Du have none) and bonds
// ("1", "2", "3", "ar", "am" as single, anything else unknown) of every molecule.
std::vector<Mol2Molecule> read_mol2(std::filesystem::path const& path) {
  std::ifstream in(path);
  std::vector<Mol2Molecule> molecules;
  std::string section;
  for (std::string line; std::getline(in, line);) {
    std::istringstream words_in(line);
    std::vector<std::string> const f{std::istream_iterator<std::string>(words_in), {}};
    if (f.empty() || f[0].starts_with("#")) continue;
    if (f[0].starts_with("@<TRIPOS>")) {
      section = f[0].substr(9);
      if (section == "MOLECULE") molecules.emplace_back();
      continue;
    }
    if (molecules.empty()) continue;
    Mol2Molecule& m = molecules.back();
    if (section == "ATOM" && f.size() >= 6) {
      std::string symbol = lower(f[5].substr(0, f[5].find('.')));
      symbol[0] = static_cast<char>(symbol[0] - 'a' + 'A');
      if (symbol == "Du" || symbol == "Lp") symbol.clear();
      m.atoms.push_back(
          {symbol, 0, true, Point(std::stod(f[2]), std::stod(f[3]), std::stod(f[4]))});
      m.types.push_back(f[5]);
    } else if (section == "BOND" && f.size() >= 4) {
      BondType type = kora::unknown_bond;
      if (f[3] == "1" || f[3] == "am") type = kora::single_bond;
      if (f[3] == "2") type = kora::double_bond;
      if (f[3] == "3") type = kora::triple_bond;
      if (f[3] == "ar") type = kora::aromatic_bond;
      int const a = std::stoi(f[1]) - 1;
      int const b = std::stoi(f[2]) - 1;
      if (a >= 0 && b >= 0 && a < static_cast<int>(m.atoms.size()) &&
          b < static_cast<int>(m.atoms.size()) && a != b) {
        m.bonds.push_back({a, b, type});
        m.bond_types.emplace_back(f[3]);
      }
    }
  }
  return molecules;
}

struct Agreement {
  long agree = 0;
  long total = 0;
  std::map<std::string, int> mismatches;  // "file -> ours"

  void count(std::string const& expected, std::string const& ours) {
    ++total;
    if (lower(expected) == lower(ours))
      ++agree;
    else
      ++mismatches[expected + " -> " + ours];
  }
  double percent() const { return total ? 100.0 * double(agree) / double(total) : 100.0; }
  // The figures and the most frequent disagreements.
  void report(std::string const& what) const {
    std::cout << what << ": " << agree << " of " << total << " agree (" << percent() << "%)\n";
    std::vector<std::pair<int, std::string>> top;
    for (auto const& [k, v] : mismatches)
      top.emplace_back(v, k);
    std::sort(top.rbegin(), top.rend());
    for (std::size_t k = 0; k < top.size() && k < 8; ++k)
      std::cout << "    " << top[k].first << "  " << top[k].second << "\n";
  }
};

// Compares the types of every atom that has an element (all but LP and Du), or of the
// heavy atoms only, and with every atom kept the types of the bonds.
void compare(Mol2Molecule const& m, std::vector<BondRow> const& bonds, bool with_hydrogens,
             Agreement& atom_agreement, Agreement* bond_agreement = nullptr) {
  auto const [atoms, kept] =
      with_hydrogens ? std::pair(m.atoms, bonds) : heavy_part(m.atoms, bonds);
  std::vector<std::string> expected;
  for (std::size_t i = 0; i < m.atoms.size(); ++i)
    if (with_hydrogens || m.atoms[i].symbol != "H") expected.push_back(m.types[i]);
  Molecule3d const molecule = build(atoms, kept);
  std::vector<std::string> const types = molecule.sybyl_atom_types();
  for (std::size_t i = 0; i < atoms.size(); ++i)
    if (!atoms[i].symbol.empty()) atom_agreement.count(expected[i], types[i]);
  if (!bond_agreement || !with_hydrogens) return;
  std::vector<std::string> const bond_types = molecule.sybyl_bond_types();
  for (std::size_t b = 0; b < kept.size(); ++b)
    bond_agreement->count(m.bond_types[b], bond_types[b]);
}

// Every Mol2 file of the corpus that uses SYBYL types, typed from its bond orders, and
// again from its coordinates alone (bond orders dropped, then hydrogens dropped as well).
TEST(SybylTyper, AgreesWithCorpusMol2Files) {
  std::filesystem::path const dir = corpus_dir();
  if (!std::filesystem::is_directory(dir / "mol2")) GTEST_SKIP() << "no corpus at " << dir;
  std::vector<std::filesystem::path> files;
  for (auto const& sub : {dir / "mol2", dir / "bench"})
    if (std::filesystem::is_directory(sub))
      for (auto const& entry : std::filesystem::directory_iterator(sub))
        if (entry.path().extension() == ".mol2") files.push_back(entry.path());
  std::sort(files.begin(), files.end());

  Agreement orders, geometry, heavy_geometry, bond_orders, bond_geometry;
  for (std::filesystem::path const& file : files) {
    std::vector<Mol2Molecule> const molecules = read_mol2(file);
    bool sybyl = !molecules.empty();
    for (Mol2Molecule const& m : molecules)
      sybyl = sybyl && std::all_of(m.types.begin(), m.types.end(), is_sybyl_type);
    if (!sybyl) continue;
    for (Mol2Molecule const& m : molecules) {
      compare(m, m.bonds, true, orders, &bond_orders);
      std::vector<BondRow> unknown = m.bonds;
      for (BondRow& b : unknown)
        b.type = kora::unknown_bond;
      compare(m, unknown, true, geometry, &bond_geometry);
      compare(m, unknown, false, heavy_geometry);
    }
  }
  ASSERT_GT(orders.total, 0);
  orders.report("all files, atom types from bond orders");
  geometry.report("all files, atom types from coordinates");
  heavy_geometry.report("all files, heavy-atom types from coordinates without hydrogens");
  bond_orders.report("all files, bond types from bond orders");
  bond_geometry.report("all files, bond types from coordinates");
  EXPECT_GE(orders.percent(), 99.85);
  EXPECT_GE(geometry.percent(), 99.5);
  EXPECT_GE(heavy_geometry.percent(), 97.95);
  EXPECT_GE(bond_orders.percent(), 99.85);
  EXPECT_GE(bond_geometry.percent(), 98.8);
}

}  // namespace
