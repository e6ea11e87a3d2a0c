// What each reader does with bad input. Each test is one row of the table in
// docs/bad-input.md and checks every reader's cell.

#include <gtest/gtest.h>

#include "sample_files.hpp"

namespace {

using namespace kora;
using namespace kora::test;

// Chains C1-C2-O3 (in RES, methanol's C1 and O1); the tests damage the second atom's line.
std::string const mol2_sample = mol2_entries(1);
std::string const mol_sample = sd_entries(1);
std::string const pdb_sample = pdb_entries(1);
std::string const res_sample = res_text();

// What reading gives: the atoms (element symbols, "?" for none) and bonds of the file
// object's molecule, or the message of the runtime_error. Other exceptions fail the test.
template <class File>
std::string outcome(std::string const& text) {
  std::istringstream in(text);
  File file;
  try {
    file.read(in);
    THandle<Molecule> const molecule = file.molecule();
    std::string atoms;
    for (int i = 0; i < molecule->natoms(); ++i) {
      std::string const symbol = molecule->atom(i)->element().symbol();
      atoms += (i ? " " : "") + (symbol.empty() ? std::string("?") : symbol);
    }
    return std::to_string(molecule->natoms()) + " atoms (" + atoms + "), " +
           std::to_string(molecule->nbonds()) + " bonds";
  } catch (std::runtime_error const& e) {
    return std::string("runtime_error: ") + e.what();
  }
}

// What the four readers make of their texts: Mol2, MOL, PDB, RES.
using Outcomes = std::vector<std::string>;
Outcomes outcomes(std::string const& mol2, std::string const& mol, std::string const& pdb,
                  std::string const& res) {
  return {outcome<Mol2File>(mol2), outcome<MolFile>(mol), outcome<PdbFile>(pdb),
          outcome<ResFile>(res)};
}

template <class Damage>
Outcomes outcomes(Damage damage) {
  return outcomes(damage(mol2_sample), damage(mol_sample), damage(pdb_sample), damage(res_sample));
}

std::string const chain = "3 atoms (C C O), 2 bonds";
Outcomes const whole = {chain, chain, chain, "2 atoms (C O), 1 bonds"};

std::string replaced(std::string text, std::string const& from, std::string const& to) {
  std::size_t const at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

// The text with each line end replaced by `end`.
std::string with_line_ends(std::string const& text, std::string const& end) {
  std::string result;
  for (char c : text)
    result += c == '\n' ? end : std::string(1, c);
  return result;
}

// The text up to `keep` characters into the line that begins with `line`.
std::string cut_inside(std::string const& text, std::string const& line, std::size_t keep) {
  return text.substr(0, text.find(line) + keep);
}

std::string const no_mol2 =
    "runtime_error: Mol2File::molecule: There is no data from which to construct an object";
std::string const no_cell = "runtime_error: ResFile::read(): No unit cell found.";

TEST(BadInput, EmptyFile) {
  EXPECT_EQ(outcomes([](std::string const&) { return std::string(); }),
            (Outcomes{no_mol2, "0 atoms (), 0 bonds", "0 atoms (), 0 bonds", no_cell}));
}

TEST(BadInput, NulByteInAtomField) {
  std::string const nul(1, '\0');
  // In the element field (RES: the scattering-factor number). "C\0" is no element symbol; a
  // PDB atom without one takes it from its name; a RES line without the number is no atom.
  EXPECT_EQ(outcomes(replaced(mol2_sample, "0.1000 0.0000 C.3", "0.1000 0.0000 C" + nul),
                     replaced(mol_sample, "0.1000    0.0000 C ", "0.1000    0.0000 C" + nul),
                     replaced(pdb_sample, "0.00           C\nHETATM    3",
                              "0.00           " + nul + "\nHETATM    3"),
                     replaced(res_sample, "O1   3", "O1   " + nul)),
            (Outcomes{"3 atoms (C ? O), 2 bonds", "3 atoms (C ? O), 2 bonds", chain,
                      "1 atoms (C), 0 bonds"}));
}

TEST(BadInput, TruncatedRecord) {
  // 15 characters into the line. Mol2 reads the announced atoms (the cut one and the missing
  // one blank), MOL and PDB keep the cut one without element, RES drops it.
  EXPECT_EQ(outcomes(cut_inside(mol2_sample, "2 C2", 15), cut_inside(mol_sample, "    1.5000", 15),
                     cut_inside(pdb_sample, "HETATM    2", 15), cut_inside(res_sample, "O1", 15)),
            (Outcomes{"3 atoms (C ? ?), 0 bonds", "2 atoms (C ?), 0 bonds",
                      "2 atoms (C ?), 0 bonds", "1 atoms (C), 0 bonds"}));
}

TEST(BadInput, HundredMegabyteLine) {
  // A line where each format allows free text: a comment before the Mol2 record, the MOL
  // header's comment line, a PDB REMARK, a RES REM instruction.
  std::string const line = std::string(std::size_t{100} << 20, 'x') + "\n";
  EXPECT_EQ(outcomes("# " + line + mol2_sample, replaced(mol_sample, "3D\n\n", "3D\n" + line),
                     replaced(pdb_sample, "E000\n", "E000\nREMARK   1 " + line),
                     replaced(res_sample, "LATT 1\n", "LATT 1\nREM " + line)),
            whole);
}

TEST(BadInput, AbsurdCounts) {
  auto const mol2_counting = [](char const* atoms) {
    return outcome<Mol2File>(
        replaced(mol2_sample, "\n3 2 1\n", "\n" + std::string(atoms) + " 2 1\n"));
  };
  EXPECT_EQ(mol2_counting("999999999"),
            "runtime_error: Mol2Atom::read: the molecule announces 999999999 atoms, more than the "
            "10000000 a section may hold");
  // Smaller counts are trusted: the lines that follow (here the BOND section) are atoms, and
  // lines past the end are blank atoms; but not millions of them.
  EXPECT_EQ(mol2_counting("7"), "7 atoms (C C O ? ? ? ?), 0 bonds");
  EXPECT_EQ(mol2_counting("9999999"),
            "runtime_error: Mol2Atom::read: the file ends 9999992 atoms short of the 9999999 the "
            "molecule announces");
  // PDB counts are only the MASTER record's; a RES file's are the UNIT numbers.
  std::string const master =
      "MASTER        0    0    0    0    0    0    0    099999    0    0    0\n";
  EXPECT_EQ(outcome<PdbFile>(replaced(pdb_sample, "END\n", master + "END\n")), whole[2]);
  EXPECT_EQ(outcome<ResFile>(replaced(res_sample, "UNIT 4 16 4", "UNIT 999999999 16 999999999")),
            whole[3]);
}

TEST(BadInput, CrlfLineEnds) {
  EXPECT_EQ(outcomes([](std::string const& t) { return with_line_ends(t, "\r\n"); }), whole);
}

TEST(BadInput, LoneCrLineEnds) {
  EXPECT_EQ(outcomes([](std::string const& t) { return with_line_ends(t, "\r"); }), whole);
}

}  // namespace
