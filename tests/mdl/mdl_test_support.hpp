#pragma once

// Builders of MOL text, scratch files and the corpus folders shared by the MOL/SD and Mol2
// tests.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

#include "kora/mdl/mol_file.hpp"

namespace kora::test {

inline void read_mol(MolFile& file, std::string const& text) {
  std::istringstream in(text);
  file.read(in);
}

// The message of the error of class E that f throws; "(no error)" when it throws none.
template <class E, class F>
std::string message_of(F&& f) {
  try {
    f();
  } catch (E const& e) {
    return e.what();
  }
  return "(no error)";
}

// A V2000 atom line: coordinates, symbol, mass difference and charge code in their columns.
inline std::string atom_line(double x, double y, double z, char const* symbol, int mass = 0,
                             int charge = 0) {
  char line[96];
  std::snprintf(line, sizeof line, "%10.4f%10.4f%10.4f %-3s%2d%3d  0  0  0\n", x, y, z, symbol,
                mass, charge);
  return line;
}

// A V2000 counts line: the numbers of atoms and bonds, and the version stamp.
inline std::string counts(int atoms, int bonds) {
  char line[64];
  std::snprintf(line, sizeof line, "%3d%3d  0  0  0  0  0  0  0  0999 V2000\n", atoms, bonds);
  return line;
}

// Header lines 1 to 3, with the dimensional code in columns 21-22 of line 2.
inline std::string header(char const* name = "name", char const* dimension = "2D") {
  return std::string(name) + "\n  KORATEST0101241200" + dimension + "\n\n";
}

// A V3000 record whose root table is `ctab`, followed by `after` before "M  END". Its counts
// line has "V3000" one column late: the stamp is looked for anywhere on the line.
inline std::string v3000_record(std::string const& ctab, char const* dimension = "2D",
                                std::string const& after = "") {
  return header("v3", dimension) + "  0  0  0     0  0            999  V3000\n" +
         "M  V30 BEGIN CTAB\n" + ctab + "M  V30 END CTAB\n" + after + "M  END\n";
}

// The V3000 table of one atom line.
inline std::string v3000_atom(std::string const& atom) {
  return "M  V30 COUNTS 1 0 0 0 0\nM  V30 BEGIN ATOM\nM  V30 " + atom + "\nM  V30 END ATOM\n";
}

// A chain of `atoms` carbon atoms named `name`: header, counts line (stamped V2000, or in
// the older form without the stamp), atom and bond lines, and "M  END" unless left out.
inline std::string block(std::string const& name, int atoms, bool stamped = true, bool end = true) {
  std::string text = header(name.c_str(), "3D") + counts(atoms, atoms - 1);
  if (!stamped) text.replace(text.size() - 10, 9, "  0  0  1");
  for (int i = 0; i < atoms; ++i)
    text += atom_line(1.5 * i, 0, 0, "C");
  char bond[32];
  for (int i = 1; i < atoms; ++i) {
    std::snprintf(bond, sizeof bond, "%3d%3d  1  0\n", i, i + 1);
    text += bond;
  }
  return end ? text + "M  END\n" : text;
}

// The atoms of all molecules of an entry.
inline int atoms_of(CrystalStructureDatabaseEntry const& entry) {
  THandle<CrystalMaker> const maker = entry.crystal_maker();
  int atoms = 0;
  for (int m = 0; m < maker->nmolecules(); ++m)
    atoms += maker->molecule(m)->natoms();
  return atoms;
}

// A folder of the real-world corpus: $KORA_CORPUS, or the shared corpus beside the project.
inline std::filesystem::path corpus(char const* folder) {
  char const* env = std::getenv("KORA_CORPUS");
  return (env ? std::filesystem::path(env) : std::filesystem::path(KORA_DEFAULT_CORPUS_DIR)) /
         folder;
}

// A file that lives as long as the object.
class ScratchFile {
 public:
  explicit ScratchFile(std::string const& text, char const* extension = ".sdf") {
    static int count = 0;
    path_ = std::filesystem::temp_directory_path() /
            ("kora_mdl_" + std::to_string(::getpid()) + "_" + std::to_string(++count) + extension);
    std::ofstream(path_, std::ios::binary) << text;
  }
  ~ScratchFile() {
    std::error_code ec;
    std::filesystem::remove(path_, ec);
  }
  ScratchFile(ScratchFile const&) = delete;
  ScratchFile& operator=(ScratchFile const&) = delete;
  std::string path() const { return path_.string(); }

 private:
  std::filesystem::path path_;
};

}  // namespace kora::test
