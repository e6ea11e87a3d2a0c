// RES reading: line rules, messages, occupancies and riding U, lattices, molecules completed
// by symmetry, and what standard reading does apart: the model ends at HKLF, parts bond apart.

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <tuple>
#include <vector>

#include "res_test_support.hpp"

namespace {

using namespace kora;
using namespace kora::test;

THandle<Atom> atom_named(ResFile const& file, std::string const& name) {
  for (THandle<Atom> const& a : atoms_of(file))
    if (a->label() == name) return a;
  return {};
}

constexpr char const* header = "TITL test\nCELL 0.71073 10 11 12 90 90 90\n";

TEST(ResFile, LineRulesAndKeywords) {
  ResFile const file = read_res(
      "TITL my title\n"
      "CELL 0.71073 10.123(4) 11 12 90 100.5(2) 90\n"
      "ZERR 4 0.0025 0.0195 0.001 0 0.03 0\n"
      "rem a remark\n"
      "LATT -1\n"
      "sfac c cl\n"
      "FVAR 1.0 0.7\n"
      "C1 1 0.1 0.2 0.3 ! a comment: five fields\n"
      "CL1 2 0.2 0.2 0.3 11 0.04\n"
      "XYZW 0 0.1 0.2 0.3\n"
      "AFIX 43 1 0.1 0.2 0.3\n"
      "Q12 0 0.5 0.6 0.7\n"
      "ENDX\n"
      "C9 1 0.9 0.9 0.9\n");
  std::string elements;
  for (THandle<Atom> const& atom : atoms_of(file))
    elements += atom->label() + ":" + atom->element().symbol() + " ";
  EXPECT_EQ(elements, "C1:C CL1:Cl Q12:C ");
  Cell const cell = *file.cell();
  EXPECT_EQ(cell.lengths()[0].value(), 10.123);
  EXPECT_EQ(cell.lengths()[0].uncertainty().to_string(), "0.003");  // ZERR 0.0025, rounded
  EXPECT_EQ(cell.angles()[1].uncertainty().to_string(), "0.03");
  EXPECT_EQ(cell.spacegroup().order(), 1);  // LATT -1 and no SYMM: P1
}

TEST(ResFile, ErrorMessages) {
  std::string const h = header;
  for (auto const& [text, message] : std::vector<std::pair<std::string, std::string>>{
           {h + "CELL 0.71 1 1 1 90 90 90\n", "CELL keyword occurred more than once."},
           {"C1 1 0.1 0.2 0.3\n", "Atom line found before CELL keyword."},
           {h + "SFAC C\nC1 1 0.1 0.2 0.3 11 0.05 =", "Continuation line missing."},
           {"TITL x\nCELL 0.71 10 11 12 90 90\nSFAC C\nC1 1 0.1 0.2 0.3\n",
            "No unit cell found."}})  // a CELL line one value short
    EXPECT_EQ(res_error_of(text), "ResFile::read(): " + message) << text;
  // LATT 0 and LATT 9 are ignored, so a later accepted LATT is no error.
  EXPECT_EQ(res_error_of(h + "LATT 0\nLATT 9\nLATT 2\n"), "no error");
}

TEST(ResFile, OccupanciesRidingHydrogensAndContinuations) {
  ResFile const file = read_res(std::string(header) +
                                "LATT -1\nSFAC C H\nFVAR 1.0 0.6\n"
                                "C1 1 0.5 0.5 0.5 10.5 0.04\n"  // on nothing special in P1
                                "H1 2 0.1 0.2 0.3 21.0 -1.2\n"  // riding on C1, occupancy fv 2
                                "C2 1 0.3 0.3 0.3 11.0 0.02 0.03 =\n"
                                "   0.04 0.001 0.002 0.003\n"
                                "H2 2 0.35 0.3 0.3 11.0 -1.5\n");
  EXPECT_DOUBLE_EQ(atom_named(file, "C1")->site()->occupancy().value(), 0.5);
  THandle<Site> const h1 = atom_named(file, "H1")->site();
  EXPECT_NEAR(h1->atomic_displacement_parameters()->u_iso().value(), 0.048, 1e-12);
  EXPECT_NEAR(h1->occupancy().value(), 0.6, 1e-12);
  auto const u = atom_named(file, "C2")->site()->atomic_displacement_parameters();
  EXPECT_EQ(u->type(), AtomicDisplacementParameters::anisotropic);
  EXPECT_DOUBLE_EQ(u->u(2, 2), 0.04);
  EXPECT_DOUBLE_EQ(u->u(1, 2), 0.001);  // file order U23 U13 U12
  EXPECT_DOUBLE_EQ(u->u(0, 1), 0.003);
  EXPECT_NEAR(atom_named(file, "H2")->site()->atomic_displacement_parameters()->u_iso().value(),
              1.5 * 0.03, 1e-12);
}

TEST(ResFile, CentringAndInversionForEveryLattice) {
  // Lattice number: the order of the group from x,y,z alone.
  for (auto [lattice, order] : std::vector<std::pair<int, int>>{
           {1, 2}, {-1, 1}, {2, 4}, {3, 6}, {-3, 3}, {4, 8}, {5, 4}, {6, 4}, {7, 4}, {-7, 2}}) {
    Spacegroup const g =
        read_res(std::string(header) + "LATT " + std::to_string(lattice) + "\nSYMM X,Y,Z\n")
            .cell()
            ->spacegroup();
    EXPECT_EQ(g.order(), order) << lattice;
    EXPECT_EQ(g.inversion_at_origin(), lattice > 0) << lattice;
  }
}

// Symmetry completes molecules only when the operators keep the cell's distances and form a
// group (up to whole cells): P4 on a square cell grows a ring of four images of C1 (the
// diagonal pairs bonded too, 1.5 A apart). On a cell whose a and b differ (a damaged file,
// say) the operators would map bonds onto non-bonds, and a mistyped translation once grew a
// polymer of 30,000 atoms from a fuzzer's input: then the atoms are taken as given.
TEST(ResFile, OperatorsMustKeepTheCellAndFormAGroup) {
  for (auto const& [cell, half_turn, atoms, bonds] :
       std::vector<std::tuple<char const*, char const*, int, int>>{
           {"5 5 7", "-X,-Y,1+Z", 4, 6},
           {"5 6 7", "-X,-Y,Z", 1, 0},
           {"5 5 7", "-X,-Y,1/3+Z", 1, 0}}) {
    ResFile const file =
        read_res(std::string("CELL 0.71073 ") + cell + " 90 90 90\nLATT -1\nSYMM -Y,X,Z\nSYMM " +
                 half_turn + "\nSYMM Y,-X,Z\nSFAC C\nC1 1 0.15 0.0 0.0 11 0.03\n");
    ASSERT_EQ(file.molecules()->size(), 1u) << cell << " " << half_turn;
    EXPECT_EQ((*file.molecules())[0]->natoms(), atoms) << cell << " " << half_turn;
    EXPECT_EQ((*file.molecules())[0]->nbonds(), bonds) << cell << " " << half_turn;
  }
}

// Fuzzers' findings, rewritten: atoms crowded around special positions of Fm-3m, or at
// general positions of a cell far too small for them, each within bonding distance of
// hundreds of images. Growing molecules from them once took seconds under the sanitizers and
// gave polymers of 130,000 bonds; such a crystal is not grown, and the atoms as given are
// bonded among themselves. Eighty atoms in a cell of 160 cubic angstroms once took 0.4 s and
// 110 MB, as every image was kept before repeats were dropped; a translation by 1e61 cells
// once overflowed. All of them read in some milliseconds: the limit is far above that, so
// that only a search that grows with the square of the images (or worse) fails it, not a
// loaded machine.
TEST(ResFile, CrowdedImagesAreNotGrown) {
  std::chrono::duration<double> seconds{0};
  for (auto const& [name, classic, standard] :
       std::vector<std::tuple<char const*, int, int>>{{"res_crowded_images.res", 7, 8},
                                                      {"res_crowded_general_positions.res", 5, 5},
                                                      {"res_many_atoms_small_cell.res", 80, 80},
                                                      {"res_far_translation.res", 2, 2}}) {
    for (bool standard_mode : {false, true}) {
      ResFile file;
      file.set_read_options(standard_mode ? ReadOptions::standard_mode() : ReadOptions());
      auto const start = std::chrono::steady_clock::now();
      file.read(std::string(KORA_TEST_DATA_DIR) + "/regressions/" + name);
      seconds += std::chrono::steady_clock::now() - start;
      int atoms = 0;
      for (THandle<Molecule> const& molecule : *file.molecules())
        atoms += molecule->natoms();
      EXPECT_EQ(atoms, standard_mode ? standard : classic) << name;
    }
  }
  EXPECT_LT(seconds.count(), 1.5);
}

constexpr char const* p1_header =
    "TITL t\nCELL 0.71073 10 10 10 90 90 90\nZERR 1 0 0 0 0 0 0\nLATT -1\nSFAC C H\n";

// Standard reading ends the model at HKLF: whatever follows (reflections of HKLF -1, stray
// lines) makes no atoms. Classic reading goes on to END.
TEST(ResStandardRead, ModelEndsAtHklf) {
  for (auto const& [tail, classic, standard] : std::vector<std::tuple<char const*, int, int>>{
           {"HKLF 4\nC2 1 0.5 0.5 0.5\nEND\n", 2, 1},
           {"HKLF -1\n   1   0   0  123.4   5.6\nC2 1 0.5 0.5 0.5\n", 2, 1}}) {
    std::string const text = std::string(p1_header) + "C1 1 0.1 0.1 0.1\n" + tail;
    EXPECT_EQ(int(read_res(text, false).asymmetric_unit()->size()), classic) << tail;
    EXPECT_EQ(int(read_res(text, true).asymmetric_unit()->size()), standard) << tail;
  }
}

// Atoms of different non-zero parts never bond; part 0 bonds to every part; a negative part
// does not bond to symmetry images. Classic reading ignores parts.
TEST(ResStandardRead, DisorderPartsBondApart) {
  // C1 at (0.05, 0, 0), C2 at (x2, 0, 0). On an inversion centre (LATT 1) C1 bonds to its own
  // image at (-0.05, 0, 0) unless its part is negative; C2 is then far away.
  for (auto const& [lattice, part1, part2, x2, molecules, atoms, classic_molecules, classic_atoms] :
       std::vector<std::tuple<char const*, int, int, double, int, int, int, int>>{
           {"LATT -1", 1, 1, 0.2, 1, 2, 1, 2},
           {"LATT -1", 1, 2, 0.2, 2, 2, 1, 2},
           {"LATT -1", -1, 2, 0.2, 2, 2, 1, 2},
           {"LATT 1", 1, 0, 0.5, 2, 3, 2, 3},
           {"LATT 1", -1, 0, 0.5, 2, 2, 2, 3}}) {
    std::string const text = std::string("TITL t\nCELL 0.71073 10 10 10 90 90 90\n") + lattice +
                             "\nSFAC C H\nPART " + std::to_string(part1) +
                             "\nC1 1 0.05 0 0\nPART " + std::to_string(part2) + "\nC2 1 " +
                             std::to_string(x2) + " 0 0\nPART 0\nHKLF 4\nEND\n";
    ResFile const standard = read_res(text, true);
    ResFile const classic = read_res(text, false);
    EXPECT_EQ(int(standard.molecules()->size()), molecules) << text;
    EXPECT_EQ(int(atoms_of(standard).size()), atoms) << text;
    EXPECT_EQ(int(classic.molecules()->size()), classic_molecules) << text;
    EXPECT_EQ(int(atoms_of(classic).size()), classic_atoms) << text;
  }
}

}  // namespace
