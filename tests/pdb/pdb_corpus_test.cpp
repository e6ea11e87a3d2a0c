// Real-world PDB files from the shared corpus ($KORA_CORPUS, else the build's default):
// every file reads, with the atoms of its ATOM and HETATM records, and the index finds the
// entries its HEADER lines open.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "kora/framework/flat_file_database.hpp"
#include "kora/pdb/pdb_database_reader.hpp"
#include "kora/pdb/pdb_file.hpp"

namespace {

namespace fs = std::filesystem;
using namespace kora;

using PdbDatabase = FlatFileDatabase<CrystalStructureDatabaseEntry, PdbDatabaseReader, PdbFile>;

fs::path corpus() {
  char const* env = std::getenv("KORA_CORPUS");
  return env ? fs::path(env) : fs::path(KORA_DEFAULT_CORPUS_DIR);
}

std::vector<fs::path> pdb_files() {
  std::vector<fs::path> files;
  std::error_code ec;
  for (auto const& item : fs::directory_iterator(corpus() / "pdb", ec)) {
    if (item.is_regular_file()) files.push_back(item.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

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

int atoms_of(PdbFile const& file) {
  int n = 0;
  for (THandle<Molecule> const& m : *file.molecules())
    n += m->natoms();
  return n;
}

TEST(PdbCorpus, EveryFileReadsWithTheAtomsOfItsRecords) {
  std::vector<fs::path> const files = pdb_files();
  if (files.empty()) GTEST_SKIP() << "no corpus at " << corpus();
  for (fs::path const& path : files) {
    SCOPED_TRACE(path.filename().string());
    PdbFile file;
    ASSERT_NO_THROW(file.read(path.string()));
    EXPECT_EQ(atoms_of(file), atom_records(path));
  }
}

TEST(PdbCorpus, IndexFindsTheEntriesOfHeaderLines) {
  if (pdb_files().empty()) GTEST_SKIP() << "no corpus at " << corpus();
  // Files with a HEADER line hold one entry named by its identifier code; the others
  // (no HEADER) none.
  std::map<std::string, std::string> const entries{
      {"biopython_2XHE.pdb", "2XHE"}, {"biopython_7DDO.pdb", "7DDO"},
      {"chemfiles_4hhb.pdb", "4HHB"}, {"gemmi_1orc.pdb", "1ORC"},
      {"gemmi_4oz7.pdb", "4OZ7"},     {"gemmi_5cvz_final.pdb", "XXXX"},
      {"gemmi_pdb1gdr.ent", "1GDR"},  {"mdanalysis_nmr_neopetrosiamide.pdb", "2JUY"},
      {"openbabel_1DRF.pdb", "1DRF"}, {"pymol_1hpv.pdb", "1HPV"},
      {"rdkit_1CRN.pdb", "1CRN"},     {"rdkit_4BNA.pdb", "4BNA"},
      {"rdkit_4TNA.pdb", "4TNA"}};
  for (fs::path const& path : pdb_files()) {
    std::string const name = path.filename().string();
    SCOPED_TRACE(name);
    PdbDatabase const db(path.string());
    auto const it = entries.find(name);
    if (it == entries.end()) {
      EXPECT_EQ(db.size(), 0);
      continue;
    }
    ASSERT_EQ(db.size(), 1);
    EXPECT_EQ(db.identifier(0).str(), it->second);
    THandle<CrystalMaker> const maker = db.entry(0)->crystal_maker();
    int atoms = 0;
    for (int i = 0; i < maker->nmolecules(); ++i)
      atoms += maker->molecule(i)->natoms();
    EXPECT_EQ(atoms, atom_records(path));
  }
}

TEST(PdbCorpus, CrambinGetsAboutOneBondPerAtomAndItsRings) {
  fs::path const path = corpus() / "pdb" / "rdkit_1CRN.pdb";
  if (!fs::exists(path)) GTEST_SKIP() << "no " << path;
  PdbFile const file(path.string());
  ASSERT_EQ(file.molecules()->size(), 1u);  // one chain; CONECT records add the disulfides
  Molecule const& m = *file.molecules()->front();
  double const ratio = double(m.nbonds()) / m.natoms();  // no hydrogens in this file
  EXPECT_GT(ratio, 1.0);
  EXPECT_LT(ratio, 1.1);
  int orders[10] = {};
  for (THandle<Bond> const& b : m.bonds())
    ++orders[b->type()];
  EXPECT_EQ(orders[aromatic_bond], 18);  // PHE 13, TYR 29, TYR 44
  EXPECT_GE(orders[double_bond], 46);    // a carbonyl per residue, and side-chain ones
  EXPECT_EQ(file.cell()->spacegroup().symbol(), "P21");
  EXPECT_EQ(
      PdbFile((corpus() / "pdb" / "openbabel_1DRF.pdb").string()).cell()->spacegroup().symbol(),
      "R3");  // "H 3"
}

// Every atom as its element and position in thousandths of an angstrom, sorted.
std::vector<std::tuple<long, long, long, std::string>> atom_keys(PdbFile const& file) {
  std::vector<std::tuple<long, long, long, std::string>> keys;
  THandle<Molecule> const m = file.molecule();
  for (THandle<Atom> const& atom : m->atoms()) {
    Point const& p = atom->site()->orthogonal();
    keys.emplace_back(std::lround(p.x() * 1000), std::lround(p.y() * 1000),
                      std::lround(p.z() * 1000), atom->element().symbol());
  }
  std::sort(keys.begin(), keys.end());
  return keys;
}

TEST(PdbCorpus, StandardWritingReadsBackWhole) {
  std::vector<fs::path> const files = pdb_files();
  if (files.empty()) GTEST_SKIP() << "no corpus at " << corpus();
  for (fs::path const& path : files) {
    SCOPED_TRACE(path.filename().string());
    PdbFile original;
    original.set_read_options(ReadOptions::standard_mode());
    ASSERT_NO_THROW(original.read(path.string()));
    std::ostringstream out;
    original.set_write_options(WriteOptions::standard_mode());
    ASSERT_NO_THROW(original.print(out));
    std::istringstream in(out.str());
    PdbFile back;
    back.set_read_options(ReadOptions::standard_mode());
    ASSERT_NO_THROW(back.read(in));
    EXPECT_EQ(atoms_of(back), atoms_of(original));
    EXPECT_TRUE(atom_keys(back) == atom_keys(original));
    // cell() gives a copy: keep the handles while their cells are used.
    THandle<Cell> const original_cell = original.cell();
    THandle<Cell> const back_cell = back.cell();
    Cell const& a = *original_cell;
    Cell const& b = *back_cell;
    EXPECT_NEAR(b.a(), a.a(), 1e-3);
    EXPECT_NEAR(b.b(), a.b(), 1e-3);
    EXPECT_NEAR(b.c(), a.c(), 1e-3);
    EXPECT_NEAR(b.alpha().radians(), a.alpha().radians(), 1e-4);
    EXPECT_NEAR(b.beta().radians(), a.beta().radians(), 1e-4);
    EXPECT_NEAR(b.gamma().radians(), a.gamma().radians(), 1e-4);
    EXPECT_TRUE(b.spacegroup() == a.spacegroup()) << a.spacegroup().symbol();
    EXPECT_EQ(back.details().has_cell, original.details().has_cell);
  }
}

PdbFile read_standard(fs::path const& path) {
  PdbFile file;
  file.set_read_options(ReadOptions::standard_mode());
  file.read(path.string());
  return file;
}

// The atom's name: its label less its alternate-location letter.
std::string name_of(Atom const& atom) {
  std::string name = atom.label();
  if (atom.details()->alt_loc != ' ') name.pop_back();
  return name;
}

TEST(PdbCorpus, StandardReadingOfOldColumnsNmrModelsAlternateLocationsAndResidues) {
  if (pdb_files().empty()) GTEST_SKIP() << "no corpus at " << corpus();
  // Line numbers in columns 73-80 are no charges.
  PdbFile const hpv = read_standard(corpus() / "pdb" / "pymol_1hpv.pdb");
  for (THandle<Molecule> const& m : *hpv.molecules())
    for (THandle<Atom> const& a : m->atoms())
      ASSERT_EQ(a->formal_charge(), 0) << a->details()->serial;

  // The disulfides of the CONECT records after the last model hold in each of the 24.
  std::map<int, int> disulfides;
  PdbFile const nmr = read_standard(corpus() / "pdb" / "mdanalysis_nmr_neopetrosiamide.pdb");
  for (THandle<Molecule> const& m : *nmr.molecules()) {
    for (THandle<Bond> const& b : m->bonds())
      disulfides[b->atom1()->details()->model] +=
          b->atom1()->element().symbol() == "S" && b->atom2()->element().symbol() == "S";
  }
  ASSERT_EQ(disulfides.size(), 24u);
  for (auto const& [model, count] : disulfides)
    EXPECT_EQ(count, 3) << model;

  // One location per residue: the atom counts gemmi keeps.
  EXPECT_EQ(atoms_of(read_standard(corpus() / "pdb" / "gemmi_1orc.pdb")), 553);
  EXPECT_EQ(atoms_of(read_standard(corpus() / "pdb" / "biopython_7DDO.pdb")), 6461);

  // ANISOU for nearly every atom.
  int anisotropic = 0;
  PdbFile const anisou = read_standard(corpus() / "pdb" / "biopython_2XHE.pdb");
  for (THandle<Molecule> const& m : *anisou.molecules()) {
    for (THandle<Atom> const& a : m->atoms()) {
      THandle<AtomicDisplacementParameters> const u = a->site()->atomic_displacement_parameters();
      ASSERT_TRUE(u);
      anisotropic += u->type() == AtomicDisplacementParameters::anisotropic;
    }
  }
  EXPECT_EQ(anisotropic, 6267);

  // Every backbone carbonyl of a standard residue is double, consecutive residues of one
  // name too.
  fs::path const big = corpus() / "bench" / "bench_openbabel_3G61.pdb";
  if (!fs::exists(big)) return;
  int carbonyls = 0;
  int doubles = 0;
  PdbFile const protein = read_standard(big);
  for (THandle<Molecule> const& m : *protein.molecules()) {
    for (THandle<Bond> const& b : m->bonds()) {
      Atom const& x = *b->atom1();
      Atom const& y = *b->atom2();
      if (!x.protein_atom() || x.protein_atom()->residue_kind() == 0) continue;
      std::string const names = name_of(x) + name_of(y);
      if ((names != "CO" && names != "OC") ||
          x.details()->residue_number != y.details()->residue_number) {
        continue;
      }
      ++carbonyls;
      doubles += b->type() == double_bond;
    }
  }
  EXPECT_EQ(carbonyls, 2364);
  EXPECT_EQ(doubles, carbonyls);
}

TEST(PdbCorpus, StandardIndexTakesFramesSeparatedByEnd) {
  fs::path const path = corpus() / "pdb" / "chemfiles_water_100frames.pdb";
  if (!fs::exists(path)) GTEST_SKIP() << "no " << path;
  PdbDatabase db(path.string(), ReadOptions::standard_mode());
  db.set_read_options(ReadOptions::standard_mode());
  ASSERT_EQ(db.size(), 100);
  EXPECT_EQ(db.identifier(99).str(), "ENTRY100");
  for (int i : {0, 1, 99}) {
    THandle<CrystalMaker> const maker = db.entry(i)->crystal_maker();
    int atoms = 0;
    for (int k = 0; k < maker->nmolecules(); ++k)
      atoms += maker->molecule(k)->natoms();
    EXPECT_EQ(atoms, 297) << i;
  }
}

}  // namespace
