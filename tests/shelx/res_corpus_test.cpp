// Real-world RES and INS files from the shared corpus ($KORA_CORPUS, else the build's
// default), one harness: every file reads with an atom for each atom line and a space group,
// and written in standard mode reads back with the same atoms, cell and operators in both
// reading modes.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "kora/kernel/string_functions.hpp"
#include "res_test_support.hpp"

namespace {

namespace fs = std::filesystem;
using namespace kora;
using namespace kora::test;

// Atom lines of a RES file counted independently: lines after CELL (up to END) whose second
// field is an SFAC number, that are not instructions.
int atom_lines(fs::path const& path) {
  static std::istringstream keywords(
      "REM AFIX HFIX PART FVAR SFAC UNIT CELL ZERR LATT SYMM DFIX SADI DANG FLAT SIMU DELU RIGU "
      "ISOR EADP EXYZ SAME CONN HTAB WGHT L.S. PLAN LIST FMAP ACTA TEMP OMIT SHEL SIZE MPLA CONF "
      "BOND TWIN BASF HKLF RESI MOVE EQIV TITL SUMP FREE BUMP CHIV EXTI MERG GRID MORE STIR SPEC "
      "ANIS BLOC DAMP DEFS SWAT TREF TIME LAUE DISP NCSY");
  static std::vector<std::string> const skip{std::istream_iterator<std::string>(keywords), {}};
  std::ifstream in(path, std::ios::binary);
  int count = 0;
  bool in_continuation = false;
  for (std::string line; std::getline(in, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (in_continuation) {
      in_continuation = false;
      continue;
    }
    std::string const upper = kora::toupper(line.substr(0, line.find('!')));
    if (upper.rfind("END", 0) == 0) break;
    std::istringstream fields(upper);
    std::string name, number, x, y, z;
    if (!(fields >> name >> number >> x >> y >> z)) continue;
    if (!std::isalpha(static_cast<unsigned char>(name[0]))) continue;
    if (std::any_of(skip.begin(), skip.end(),
                    [&](std::string const& k) { return name.rfind(k, 0) == 0; }) ||
        number.find('.') != std::string::npos)
      continue;
    char* end = nullptr;
    std::strtol(number.c_str(), &end, 10);
    if (*end != '\0' || std::strtod(x.c_str(), &end) == HUGE_VAL) continue;
    ++count;
    in_continuation = upper.find_last_not_of(" \t") != std::string::npos &&
                      upper[upper.find_last_not_of(" \t")] == '=';
  }
  return count;
}

int file_order(THandle<Atom> const& atom) {
  return handle_dynamic_cast<FileOrderedAtom3d>(atom)->file_order();
}

// Each atom of `expected` has one of `actual` with its element, fractional position (1e-5) and
// occupancy (1e-4).
void expect_same_atoms(std::vector<THandle<Atom>> const& expected,
                       std::vector<THandle<Atom>> const& actual, std::string const& what) {
  EXPECT_EQ(expected.size(), actual.size()) << what;
  std::vector<bool> used(actual.size(), false);
  for (THandle<Atom> const& atom : expected) {
    Site const& s = *atom->site();
    bool found = false;
    for (std::size_t j = 0; j < actual.size() && !found; ++j) {
      Site const& t = *actual[j]->site();
      if (used[j] || actual[j]->element() != atom->element()) continue;
      bool same = std::fabs(s.occupancy().value() - t.occupancy().value()) <= 1e-4;
      for (std::size_t k = 0; k < 3; ++k)
        same = same && std::fabs(s.fractional()[k] - t.fractional()[k]) <= 1e-5;
      if (same) used[j] = found = true;
    }
    EXPECT_TRUE(found) << what << ": " << atom->label();
  }
}

// A file written as read gives back every atom line; a structure written from its entry (as
// the tool does) every atom its molecules hold, each where the file had it (atoms that
// completing the molecules merged with a symmetry copy are in the model once).
TEST(ResCorpus, EveryFileReadsAndWritesBack) {
  fs::path const dir = res_corpus() / "res";
  if (!fs::is_directory(dir)) GTEST_SKIP() << "no corpus at " << dir;
  int files = 0;
  for (auto const& item : fs::directory_iterator(dir)) {
    ++files;
    std::string const path = item.path().string();
    SCOPED_TRACE(path);
    if (fs::file_size(item.path()) == 0) continue;  // no cell: the index tests read it
    ResFile classic;
    ASSERT_NO_THROW(classic = ResFile(path));
    EXPECT_GT(classic.cell()->spacegroup().number(), 0);
    EXPECT_EQ(int(classic.asymmetric_unit()->size()), atom_lines(item.path()));

    ResFile original;
    original.set_read_options(ReadOptions::standard_mode());
    original.read(path);
    original.set_write_options(WriteOptions::standard_mode());
    std::ostringstream direct;
    original.print(direct);
    std::string const written = direct.str();
    for (bool standard : {true, false}) {
      Cell const a = *original.cell();
      Cell const b = *read_res(written, standard).cell();
      for (std::size_t k = 0; k < 3; ++k) {
        EXPECT_NEAR(a.lengths()[k].value(), b.lengths()[k].value(), 1e-4);
        EXPECT_NEAR(a.angles()[k].value(), b.angles()[k].value(), 1e-4);
      }
      auto const& x = a.spacegroup().operators();
      auto const& y = b.spacegroup().operators();
      EXPECT_EQ(x.size(), y.size());
      for (CrystalSymmetryOperator const& op : x) {
        EXPECT_TRUE(std::any_of(y.begin(), y.end(), [&](auto const& o) {
          return equals(op, o, 1e-6);
        })) << op.to_string();
      }
    }
    expect_same_atoms(*original.asymmetric_unit(), *read_res(written, true).asymmetric_unit(),
                      path);

    std::set<int> represented;
    for (THandle<Molecule> const& m : *original.molecules())
      for (THandle<Atom> const& a : m->atoms())
        represented.insert(file_order(a));
    std::vector<THandle<Atom>> expected;
    for (THandle<Atom> const& a : *original.asymmetric_unit())
      if (represented.count(file_order(a))) expected.push_back(a);
    expect_same_atoms(expected,
                      *read_res(write_standard(*original.database_entry()), true).asymmetric_unit(),
                      path + " (entry)");
  }
  EXPECT_GT(files, 30);
}

}  // namespace
