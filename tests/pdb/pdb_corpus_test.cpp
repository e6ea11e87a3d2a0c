// Real-world PDB files from the shared corpus ($KORA_CORPUS, else the build's default), one
// harness: every file reads in both modes with the atoms of its ATOM and HETATM records, the
// index finds the entries its HEADER lines open, standard writing reads back whole, and the
// files with something particular give what is known of them.

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "../framework/sample_files.hpp"
#include "pdb_test_support.hpp"

namespace {

namespace fs = std::filesystem;
using namespace kora;
using namespace kora::test;

// The ATOM and HETATM records before the first END record, counted with a plain line scan
// (the corpus has LF and CR LF line ends): the record name ends at the first blank or tab.
int atom_records(fs::path const& path) {
  std::ifstream in(path, std::ios::binary);
  int count = 0;
  for (std::string line; std::getline(in, line);) {
    std::string const name = line.substr(0, line.find_first_of(" \t\r"));
    if (name == "END") break;
    count += name == "ATOM" || name == "HETATM";
  }
  return count;
}

int atom_count(PdbFile const& file) {
  return static_cast<int>(atoms_of(file).size());
}

int atom_count(CrystalMaker const& maker) {
  int atoms = 0;
  for (int i = 0; i < maker.nmolecules(); ++i)
    atoms += maker.molecule(i)->natoms();
  return atoms;
}

PdbFile read_file(fs::path const& path, bool standard) {
  PdbFile file;
  if (standard) file.set_read_options(ReadOptions::standard_mode());
  file.read(path.string());
  return file;
}

// Every atom as its position in thousandths of an angstrom, element, name, chain, residue
// number, insertion code and charge, sorted. (Residue names are cut to three characters.)
using AtomKey = std::tuple<long, long, long, std::string, std::string, int>;
std::vector<AtomKey> atom_keys(PdbFile const& file) {
  std::vector<AtomKey> keys;
  THandle<Molecule> const molecule = file.molecule();
  for (THandle<Atom> const& atom : molecule->atoms()) {
    Point const& p = atom->site()->orthogonal();
    AtomDetails const& d = *atom->details();
    keys.emplace_back(std::lround(p.x() * 1000), std::lround(p.y() * 1000),
                      std::lround(p.z() * 1000), atom->element().symbol() + " " + atom->label(),
                      d.chain + std::to_string(d.residue_number) + d.insertion_code,
                      atom->formal_charge());
  }
  std::sort(keys.begin(), keys.end());
  return keys;
}

TEST(PdbCorpus, EveryFileReadsIndexesAndWritesBack) {
  std::vector<fs::path> files;
  std::error_code ec;
  for (auto const& item : fs::directory_iterator(corpus() / "pdb", ec))
    if (item.is_regular_file()) files.push_back(item.path());
  if (files.empty()) GTEST_SKIP() << "no corpus at " << corpus();
  // Files with a HEADER line hold one entry named by its identifier code; the others none.
  std::map<std::string, std::string> const entries{
      {"biopython_2XHE.pdb", "2XHE"}, {"biopython_7DDO.pdb", "7DDO"},
      {"chemfiles_4hhb.pdb", "4HHB"}, {"gemmi_1orc.pdb", "1ORC"},
      {"gemmi_4oz7.pdb", "4OZ7"},     {"gemmi_5cvz_final.pdb", "XXXX"},
      {"gemmi_pdb1gdr.ent", "1GDR"},  {"mdanalysis_nmr_neopetrosiamide.pdb", "2JUY"},
      {"openbabel_1DRF.pdb", "1DRF"}, {"pymol_1hpv.pdb", "1HPV"},
      {"rdkit_1CRN.pdb", "1CRN"},     {"rdkit_4BNA.pdb", "4BNA"},
      {"rdkit_4TNA.pdb", "4TNA"}};
  for (fs::path const& path : files) {
    std::string const name = path.filename().string();
    SCOPED_TRACE(name);
    int const records = atom_records(path);
    PdbFile classic;
    ASSERT_NO_THROW(classic = read_file(path, false));
    EXPECT_EQ(atom_count(classic), records);

    PdbDatabase const db(path.string());
    auto const it = entries.find(name);
    ASSERT_EQ(db.size(), it == entries.end() ? 0 : 1);
    if (it != entries.end()) {
      EXPECT_EQ(db.identifier(0).str(), it->second);
      EXPECT_EQ(atom_count(*db.entry(0)->crystal_maker()), records);
    }

    PdbFile original;
    ASSERT_NO_THROW(original = read_file(path, true));
    original.set_write_options(WriteOptions::standard_mode());
    std::ostringstream out;
    ASSERT_NO_THROW(original.print(out));
    PdbFile back;
    ASSERT_NO_THROW(back = read_pdb(out.str(), true));
    EXPECT_EQ(atom_count(back), atom_count(original));
    EXPECT_TRUE(atom_keys(back) == atom_keys(original));
    THandle<Cell> const a = original.cell();  // copies: kept while they are used
    THandle<Cell> const b = back.cell();
    for (std::size_t k = 0; k < 3; ++k) {
      EXPECT_NEAR(b->lengths()[k].value(), a->lengths()[k].value(), 1e-3);
      EXPECT_NEAR(b->angles()[k].value(), a->angles()[k].value(), 5e-3);  // degrees
    }
    EXPECT_TRUE(b->spacegroup() == a->spacegroup()) << a->spacegroup().symbol();
    EXPECT_EQ(back.details().has_cell, original.details().has_cell);
  }
}

// The atom's name: its label less its alternate-location letter.
std::string name_of(Atom const& atom) {
  std::string name = atom.label();
  if (atom.details()->alt_loc != ' ') name.pop_back();
  return name;
}

TEST(PdbCorpus, ParticularFiles) {
  fs::path const dir = corpus() / "pdb";
  if (!fs::exists(dir / "rdkit_1CRN.pdb")) GTEST_SKIP() << "no corpus at " << dir;
  // Crambin: one chain, CONECT records add the disulfides, no hydrogens.
  PdbFile const crambin = read_file(dir / "rdkit_1CRN.pdb", false);
  // 327 atoms: a tree of 326 bonds and a ring closure for 3 disulfides and 5 PRO, 1 PHE and 2 TYR
  EXPECT_EQ(bonds_of(crambin).size(), 337u);
  EXPECT_EQ(bonds_of(crambin, aromatic_bond).size(), 18u);  // PHE 13, TYR 29, TYR 44
  EXPECT_GE(bonds_of(crambin, double_bond).size(), 46u);    // carbonyls and side chains
  EXPECT_EQ(crambin.cell()->spacegroup().symbol(), "P21");

  // Standard reading: line numbers in columns 73-80 are no charges.
  for (THandle<Atom> const& a : atoms_of(read_file(dir / "pymol_1hpv.pdb", true)))
    ASSERT_EQ(a->formal_charge(), 0) << a->details()->serial;
  // The disulfides of the CONECT records after the last model hold in each of the 24.
  std::map<int, int> disulfides;
  PdbFile const nmr = read_file(dir / "mdanalysis_nmr_neopetrosiamide.pdb", true);
  for (THandle<Molecule> const& mol : *nmr.molecules()) {
    for (THandle<Bond> const& b : mol->bonds())
      disulfides[b->atom1()->details()->model] +=
          b->atom1()->element().symbol() == "S" && b->atom2()->element().symbol() == "S";
  }
  ASSERT_EQ(disulfides.size(), 24u);
  for (auto const& [model, count] : disulfides)
    EXPECT_EQ(count, 3) << model;
  // One location per residue: the atom counts gemmi keeps.
  EXPECT_EQ(atom_count(read_file(dir / "gemmi_1orc.pdb", true)), 553);
  EXPECT_EQ(atom_count(read_file(dir / "biopython_7DDO.pdb", true)), 6461);
  // ANISOU for nearly every atom.
  int anisotropic = 0;
  for (THandle<Atom> const& a : atoms_of(read_file(dir / "biopython_2XHE.pdb", true))) {
    THandle<AtomicDisplacementParameters> const u = a->site()->atomic_displacement_parameters();
    ASSERT_TRUE(u);
    anisotropic += u->type() == AtomicDisplacementParameters::anisotropic;
  }
  EXPECT_EQ(anisotropic, 6267);
  // The standard index takes frames separated by END.
  PdbDatabase frames((dir / "chemfiles_water_100frames.pdb").string(),
                     ReadOptions::standard_mode());
  frames.set_read_options(ReadOptions::standard_mode());
  ASSERT_EQ(frames.size(), 100);
  EXPECT_EQ(frames.identifier(99).str(), "ENTRY100");
  for (int i : {0, 1, 99})
    EXPECT_EQ(atom_count(*frames.entry(i)->crystal_maker()), 297) << i;

  // Every backbone carbonyl of a standard residue is double, consecutive residues of one
  // name too.
  fs::path const big = corpus() / "bench" / "bench_openbabel_3G61.pdb";
  if (!fs::exists(big)) return;
  int carbonyls = 0, doubles = 0;
  PdbFile const protein = read_file(big, true);
  for (THandle<Molecule> const& mol : *protein.molecules()) {
    for (THandle<Bond> const& b : mol->bonds()) {
      Atom const& x = *b->atom1();
      Atom const& y = *b->atom2();
      if (!x.protein_atom() || x.protein_atom()->residue_kind() == 0) continue;
      std::string const names = name_of(x) + name_of(y);
      if ((names != "CO" && names != "OC") ||
          x.details()->residue_number != y.details()->residue_number)
        continue;
      ++carbonyls;
      doubles += b->type() == double_bond;
    }
  }
  EXPECT_EQ(carbonyls, 2364);
  EXPECT_EQ(doubles, carbonyls);
}

}  // namespace
