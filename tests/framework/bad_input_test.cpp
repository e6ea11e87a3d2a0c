// What each reader does with bad input: empty and binary files, NUL bytes, a record cut
// short, a 100 MB line, absurd counts and foreign line ends. docs/bad-input.md tabulates
// these cases; each test here is one row of that table and checks every reader's cell.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <istream>
#include <random>
#include <sstream>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <vector>

#include "kora/mdl/mol_file.hpp"
#include "kora/mol2/mol2_file.hpp"
#include "kora/pdb/pdb_file.hpp"
#include "kora/shelx/res_file.hpp"

namespace {

using namespace kora;

// Water in each format. The second atom's line is the one the tests damage.
std::string const mol2_water =
    "@<TRIPOS>MOLECULE\n"
    "water\n"
    " 3 2 0 0 0\n"
    "SMALL\n"
    "NO_CHARGES\n"
    "\n"
    "@<TRIPOS>ATOM\n"
    "      1 O1          0.0000    0.0000    0.0000 O.3     1  HOH1        0.0000\n"
    "      2 H1          0.9572    0.0000    0.0000 H       1  HOH1        0.0000\n"
    "      3 H2         -0.2400    0.9266    0.0000 H       1  HOH1        0.0000\n"
    "@<TRIPOS>BOND\n"
    "     1     1     2    1\n"
    "     2     1     3    1\n";

std::string const mol_water =
    "water\n"
    "  kora    01012412003D\n"
    "\n"
    "  3  2  0  0  0  0  0  0  0  0999 V2000\n"
    "    0.0000    0.0000    0.0000 O   0  0  0  0  0  0  0  0  0  0  0  0\n"
    "    0.9572    0.0000    0.0000 H   0  0  0  0  0  0  0  0  0  0  0  0\n"
    "   -0.2400    0.9266    0.0000 H   0  0  0  0  0  0  0  0  0  0  0  0\n"
    "  1  2  1  0\n"
    "  1  3  1  0\n"
    "M  END\n"
    "$$$$\n";

std::string const pdb_water =
    "HEADER    WATER                                   01-JAN-24   1ABC\n"
    "HETATM    1  O   HOH A   1       0.000   0.000   0.000  1.00  0.00           O\n"
    "HETATM    2  H1  HOH A   1       0.957   0.000   0.000  1.00  0.00           H\n"
    "HETATM    3  H2  HOH A   1      -0.240   0.927   0.000  1.00  0.00           H\n"
    "END\n";

// In P-1 (LATT 1): the molecule is completed by the inversion centre.
std::string const res_water =
    "TITL water\n"
    "CELL 0.71073 10.0 10.0 10.0 90 90 90\n"
    "ZERR 4 0.001 0.001 0.001 0 0 0\n"
    "LATT 1\n"
    "SFAC O H\n"
    "UNIT 4 8\n"
    "FVAR 1.0\n"
    "O1 1 0.00000 0.00000 0.00000 11.00000 0.04\n"
    "H1 2 0.09572 0.00000 0.00000 11.00000 -1.2\n"
    "H2 2 -0.02400 0.09266 0.00000 11.00000 -1.2\n"
    "HKLF 4\n"
    "END\n";

// What reading gives: the atoms (element symbols, "?" for none) and bonds of the file
// object's molecule, or the class and message of the exception. Exceptions of other classes
// escape and fail the test.
template <class File>
std::string outcome(std::istream& in) {
  File file;
  try {
    file.read(in);
    THandle<Molecule> const molecule = file.molecule();
    std::string text = std::to_string(molecule->natoms()) + " atoms (";
    for (int i = 0; i < molecule->natoms(); ++i) {
      std::string const symbol = molecule->atom(i)->element().symbol();
      text += (i ? " " : "") + (symbol.empty() ? std::string("?") : symbol);
    }
    return text + "), " + std::to_string(molecule->nbonds()) + " bonds";
  } catch (std::invalid_argument const& e) {
    return std::string("invalid_argument: ") + e.what();
  } catch (std::runtime_error const& e) {
    return std::string("runtime_error: ") + e.what();
  }
}

template <class File>
std::string outcome(std::string const& text) {
  std::istringstream in(text);
  return outcome<File>(in);
}

// What the four readers make of their water samples after `damage`: Mol2, MOL, PDB, RES.
using Outcomes = std::vector<std::string>;
template <class Damage>
Outcomes outcomes(Damage damage) {
  return {outcome<Mol2File>(damage(mol2_water)), outcome<MolFile>(damage(mol_water)),
          outcome<PdbFile>(damage(pdb_water)), outcome<ResFile>(damage(res_water))};
}

Outcomes const whole = {"3 atoms (O H H), 2 bonds", "3 atoms (O H H), 2 bonds",
                        "3 atoms (O H H), 2 bonds", "5 atoms (O H H H H), 4 bonds"};

std::string replaced(std::string text, std::string const& from, std::string const& to) {
  std::size_t const at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

std::string with_line_ends(std::string const& text, std::string const& end) {
  std::string result;
  for (char c : text)
    result += c == '\n' ? end : std::string(1, c);
  return result;
}

// The text up to `keep` characters into the line that begins with `line`.
std::string cut_inside(std::string const& text, std::string const& line, std::size_t keep) {
  std::size_t const at = text.find(line);
  EXPECT_NE(at, std::string::npos) << line;
  return text.substr(0, at + keep);
}

TEST(BadInput, GoodSamplesReadWhole) {
  // The baseline the damaged samples are compared with. In RES, the inversion centre at the
  // oxygen adds an image of each hydrogen.
  EXPECT_EQ(outcomes([](std::string const& text) { return text; }), whole);
}

std::string const no_mol2 =
    "runtime_error: Mol2File::molecule: There is no data from which to construct an object";
std::string const no_cell = "runtime_error: ResFile::read(): No unit cell found.";

TEST(BadInput, EmptyFile) {
  EXPECT_EQ(outcomes([](std::string const&) { return std::string(); }),
            (Outcomes{no_mol2, "0 atoms (), 0 bonds", "0 atoms (), 0 bonds", no_cell}));
}

TEST(BadInput, BinaryFile) {
  // 64 KiB of pseudo-random bytes, the same on every run. The fourth line of noise, read as a
  // MOL counts line, announces an Stext block.
  std::minstd_rand bits(20240101);
  std::string noise(64 * 1024, '\0');
  for (char& c : noise)
    c = static_cast<char>(bits() & 0xff);
  EXPECT_EQ(outcomes([&](std::string const&) { return noise; }),
            (Outcomes{no_mol2, "runtime_error: Stext entries present, unable to process these",
                      "0 atoms (), 0 bonds", no_cell}));
}

TEST(BadInput, NulByteInAtomField) {
  std::string const nul(1, '\0');
  // In the element field of the second atom (for RES, its scattering-factor number). NUL is
  // an ordinary character: "H\0" is no element symbol.
  EXPECT_EQ(
      outcome<Mol2File>(replaced(mol2_water, "0.0000 H       1", "0.0000 H" + nul + "      1")),
      "3 atoms (O ? H), 2 bonds");
  EXPECT_EQ(outcome<MolFile>(replaced(mol_water, "0.0000 H   0", "0.0000 H" + nul + "  0")),
            "3 atoms (O ? H), 2 bonds");
  // A PDB atom without an element symbol takes its element from its name.
  EXPECT_EQ(outcome<PdbFile>(replaced(pdb_water, "0.00           H\nHETATM    3",
                                      "0.00           " + nul + "\nHETATM    3")),
            "3 atoms (O H H), 2 bonds");
  // A RES line whose second field is no number is not an atom: H1 and its image are gone.
  EXPECT_EQ(outcome<ResFile>(replaced(res_water, "H1 2", "H1 " + nul)), "3 atoms (O H H), 2 bonds");
}

TEST(BadInput, TruncatedRecord) {
  // The file ends 15 characters into the second atom's line.
  // Mol2 reads as many atom lines as announced: the cut one has no type and the missing one
  // is blank.
  EXPECT_EQ(outcome<Mol2File>(cut_inside(mol2_water, "      2 H1", 15)),
            "3 atoms (O ? ?), 0 bonds");
  // MOL and PDB keep the cut line as an atom without element and stop there.
  EXPECT_EQ(outcome<MolFile>(cut_inside(mol_water, "    0.9572", 15)), "2 atoms (O ?), 0 bonds");
  EXPECT_EQ(outcome<PdbFile>(cut_inside(pdb_water, "HETATM    2", 15)), "2 atoms (O ?), 0 bonds");
  // RES drops the cut line, which lacks coordinates.
  EXPECT_EQ(outcome<ResFile>(cut_inside(res_water, "H1 2", 15)), "1 atoms (O), 0 bonds");
}

// A stream of `head`, then `length` copies of `fill`, then `tail`, made in chunks as it is
// read: a 100 MB line without 100 MB of source text.
class LongLineBuffer : public std::streambuf {
 public:
  LongLineBuffer(std::string head, char fill, std::size_t length, std::string tail)
      : parts_{std::move(head), std::string(64 * 1024, fill), std::move(tail)},
        fill_left_(length) {}

 protected:
  int_type underflow() override {
    while (part_ < parts_.size()) {
      std::string& text = parts_[part_];
      std::size_t size = text.size();
      if (part_ == 1) {
        size = std::min(size, fill_left_);
        fill_left_ -= size;
        if (fill_left_ == 0) ++part_;
      } else {
        ++part_;
      }
      if (size > 0) {
        setg(text.data(), text.data(), text.data() + size);
        return traits_type::to_int_type(text[0]);
      }
    }
    return traits_type::eof();
  }

 private:
  std::vector<std::string> parts_;
  std::size_t part_ = 0;
  std::size_t fill_left_;
};

// `text` with a 100 MB line of 'x' inserted after its first occurrence of `after` (which
// ends with a line end), `prefix` opening the line.
template <class File>
std::string outcome_with_long_line(std::string const& text, std::string const& after,
                                   std::string const& prefix) {
  std::size_t const at = text.find(after) + after.size();
  EXPECT_NE(at, std::string::npos + after.size()) << after;
  LongLineBuffer buffer(text.substr(0, at) + prefix, 'x', std::size_t{100} << 20,
                        "\n" + text.substr(at));
  std::istream in(&buffer);
  return outcome<File>(in);
}

TEST(BadInput, HundredMegabyteLine) {
  // A line where each format allows free text: a comment before the Mol2 record, the MOL
  // header's comment line, a PDB REMARK, a RES REM instruction.
  EXPECT_EQ(
      (Outcomes{outcome_with_long_line<Mol2File>("\n" + mol2_water, "\n", "# "),
                outcome_with_long_line<MolFile>(replaced(mol_water, "3D\n\n", "3D\n"), "3D\n", ""),
                outcome_with_long_line<PdbFile>(pdb_water, "1ABC\n", "REMARK   1 "),
                outcome_with_long_line<ResFile>(res_water, "LATT 1\n", "REM ")}),
      whole);
}

TEST(BadInput, AbsurdCounts) {
  EXPECT_EQ(outcome<Mol2File>(replaced(mol2_water, " 3 2 0 0 0", " 999999999 2 0 0 0")),
            "runtime_error: Mol2Atom::read: the molecule announces 999999999 atoms, more than the "
            "10000000 a section may hold");
  // Smaller counts are trusted: the lines that follow are atoms, whatever they hold (here the
  // BOND section, now lost), and lines past the end of the file are blank atoms.
  std::string const announcing_5 = replaced(mol2_water, " 3 2 0 0 0", " 5 2 0 0 0");
  EXPECT_EQ(outcome<Mol2File>(announcing_5), "5 atoms (O H H ? ?), 0 bonds");
  EXPECT_EQ(outcome<Mol2File>(announcing_5.substr(0, announcing_5.find("@<TRIPOS>BOND"))),
            "5 atoms (O H H ? ?), 0 bonds");
  // But not a count far beyond what the file holds: a few hundred bytes must not become
  // millions of blank atoms.
  EXPECT_EQ(outcome<Mol2File>(replaced(mol2_water, " 3 2 0 0 0", " 9999999 2 0 0 0")),
            "runtime_error: Mol2Atom::read: the file ends 9999992 atoms short of the 9999999 the "
            "molecule announces");
  // V2000 counts are three columns wide: "999999999" reads as 999 atoms and 999 bonds.
  EXPECT_EQ(outcome<MolFile>(replaced(mol_water, "  3  2  0  0", "999999999  0")),
            "runtime_error: Atom block incomplete - not enough atom lines");
  EXPECT_EQ(outcome<MolFile>("water\n  kora    01012412003D\n\n"
                             "  0  0  0  0  0  0  0  0  0  0999 V3000\n"
                             "M  V30 BEGIN CTAB\n"
                             "M  V30 COUNTS 999999999 0 0 0 0\n"
                             "M  V30 BEGIN ATOM\n"
                             "M  V30 1 O 0 0 0 0\n"
                             "M  V30 END ATOM\n"
                             "M  V30 END CTAB\n"
                             "M  END\n"),
            "runtime_error: Atom block incomplete - not enough atom lines");
  // PDB counts are only the MASTER record's; a RES file's are the UNIT numbers.
  std::string zeros;
  for (int i = 0; i < 8; ++i)
    zeros += "    0";
  std::string const master = "MASTER    " + zeros + "99999" + "    0    0    0\n";
  EXPECT_EQ(outcome<PdbFile>(replaced(pdb_water, "END\n", master + "END\n")), whole[2]);
  EXPECT_EQ(outcome<ResFile>(replaced(res_water, "UNIT 4 8", "UNIT 999999999 999999999")),
            whole[3]);
}

TEST(BadInput, CrlfLineEnds) {
  EXPECT_EQ(outcomes([](std::string const& text) { return with_line_ends(text, "\r\n"); }), whole);
}

TEST(BadInput, LoneCrLineEnds) {
  EXPECT_EQ(outcomes([](std::string const& text) { return with_line_ends(text, "\r"); }), whole);
}

}  // namespace
