#pragma once

// Small multi-entry files of every format, the database each format makes of them, and
// scratch files that are removed afterwards.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "kora/framework/file_format.hpp"
#include "kora/framework/flat_file_database.hpp"
#include "kora/mdl/mol_file.hpp"
#include "kora/mdl/mol_file_file_format.hpp"
#include "kora/mdl/sdfile_database_reader.hpp"
#include "kora/mol2/mol2_database_reader.hpp"
#include "kora/mol2/mol2_file.hpp"
#include "kora/mol2/mol2_file_format.hpp"
#include "kora/pdb/pdb_database_reader.hpp"
#include "kora/pdb/pdb_file.hpp"
#include "kora/pdb/pdb_file_format.hpp"
#include "kora/shelx/res_database_reader.hpp"
#include "kora/shelx/res_file.hpp"
#include "kora/shelx/res_file_format.hpp"

namespace kora::test {

using EntryDatabase = Database<CrystalStructureDatabaseEntry>;
using SdDatabase = FlatFileDatabase<CrystalStructureDatabaseEntry, SDfileDatabaseReader, MolFile>;
using Mol2Database = FlatFileDatabase<CrystalStructureDatabaseEntry, Mol2DatabaseReader, Mol2File>;
using PdbDatabase = FlatFileDatabase<CrystalStructureDatabaseEntry, PdbDatabaseReader, PdbFile>;
using ResDatabase = FlatFileDatabase<CrystalStructureDatabaseEntry, ResDatabaseReader, ResFile>;

// A chain of carbons ending in an oxygen, 3 to 6 atoms long, shifted a little per entry.
inline int chain_length(int entry) {
  return 3 + entry % 4;
}

template <class... Values>
std::string format(char const* pattern, Values... values) {
  char text[160];
  std::snprintf(text, sizeof text, pattern, values...);
  return text;
}

inline std::string mol2_entries(int count) {
  std::string text;
  for (int e = 0; e < count; ++e) {
    int const n = chain_length(e);
    text += format("@<TRIPOS>MOLECULE\nmol%d\n%d %d 1\nSMALL\nNO_CHARGES\n\n@<TRIPOS>ATOM\n", e, n,
                   n - 1);
    for (int a = 0; a < n; ++a) {
      char const* element = a == n - 1 ? "O" : "C";
      text += format("%d %s%d %.4f %.4f %.4f %s.3 1 RES1 0.0000\n", a + 1, element, a + 1,
                     1.5 * a + 0.01 * e, 0.1 * (a % 2), 0.001 * e, element);
    }
    text += "@<TRIPOS>BOND\n";
    for (int b = 1; b < n; ++b)
      text += format("%d %d %d 1\n", b, b, b + 1);
  }
  return text;
}

inline std::string sd_entries(int count) {
  std::string text;
  for (int e = 0; e < count; ++e) {
    int const n = chain_length(e);
    text += format("mol%d\n  kora    01012412003D\n\n%3d%3d  0  0  0  0  0  0  0  0999 V2000\n", e,
                   n, n - 1);
    for (int a = 0; a < n; ++a) {
      text += format("%10.4f%10.4f%10.4f %s   0  0  0  0  0  0  0  0  0  0  0  0\n",
                     1.5 * a + 0.01 * e, 0.1 * (a % 2), 0.001 * e, a == n - 1 ? "O" : "C");
    }
    for (int b = 1; b < n; ++b)
      text += format("%3d%3d  1  0\n", b, b + 1);
    text += format("M  END\n> <INDEX>\n%d\n\n$$$$\n", e);
  }
  return text;
}

// The same with entry `broken`'s first bond naming an atom that does not exist.
inline std::string sd_entries(int count, int broken) {
  std::string text = sd_entries(count);
  text.replace(text.find("  1  2  1  0", text.find(format("mol%d\n", broken))), 12, "  1 40  1  0");
  return text;
}

inline std::string pdb_code(int entry) {
  return format("E%03d", entry % 1000);
}

inline std::string pdb_entries(int count) {
  std::string text;
  for (int e = 0; e < count; ++e) {
    text += format("HEADER    TEST ENTRY%30s01-JAN-24   %s\n", "", pdb_code(e).c_str());
    int const n = chain_length(e);
    for (int a = 0; a < n; ++a) {
      bool const oxygen = a == n - 1;
      text += format("HETATM%5d  %-3s LIG A   1    %8.3f%8.3f%8.3f  1.00  0.00%12s\n", a + 1,
                     format(oxygen ? "O%d" : "C%d", a + 1).c_str(), 1.5 * a + 0.01 * e,
                     0.1 * (a % 2), 0.001 * e, oxygen ? "O" : "C");
    }
    text += "END\n";
  }
  return text;
}

// Methanol in P21/c: one entry whose molecules are completed by symmetry.
inline std::string res_text() {
  return "TITL methanol\n"
         "CELL 0.71073 6.0000 7.0000 8.0000 90.000 100.000 90.000\n"
         "ZERR 4 0.0010 0.0010 0.0010 0.000 0.010 0.000\n"
         "LATT 1\n"
         "SYMM -X, 1/2+Y, 1/2-Z\n"
         "SFAC C H O\n"
         "UNIT 4 16 4\n"
         "FVAR 1.00000\n"
         "C1   1    0.20000    0.20000    0.20000 11.00000   0.0400\n"
         "O1   3    0.38000    0.28000    0.26000 11.00000   0.0400\n"
         "HKLF 4\n"
         "END\n";
}

// One format as tests see it: a sample, its databases, identifiers, descriptor and file object.
struct SampleFormat {
  std::string name;
  std::string extension;
  int entries;
  std::function<std::string()> text;
  std::function<THandle<EntryDatabase>(std::string const&)> open;
  std::function<std::string(int)> identifier;
  std::function<THandle<FileFormat>()> descriptor;
  std::function<THandle<MoleculeFile>()> file_object;
};

template <class Db, class Descriptor, class File, class... Arguments>
SampleFormat sample_format(char const* name, char const* extension, int entries,
                           std::string (*text)(int), std::function<std::string(int)> identifier,
                           Arguments... arguments) {
  return {name,
          extension,
          entries,
          [=] { return text(entries); },
          [=](std::string const& f) {
            return THandle<EntryDatabase>(make_handle<Db>(f, arguments...));
          },
          std::move(identifier),
          [=] { return THandle<FileFormat>(make_handle<Descriptor>(arguments...)); },
          [] { return THandle<MoleculeFile>(make_handle<File>()); }};
}

inline std::vector<SampleFormat> const& sample_formats() {
  auto const mol_name = [](int i) { return "mol" + std::to_string(i); };
  static std::vector<SampleFormat> const formats = {
      sample_format<SdDatabase, MolFileFileFormat, MolFile>("SD", "sdf", 12, sd_entries, mol_name,
                                                            FileFormat::verbatim_identifiers),
      sample_format<Mol2Database, Mol2FileFormat, Mol2File>("Mol2", "mol2", 12, mol2_entries,
                                                            mol_name),
      sample_format<PdbDatabase, PdbFileFormat, PdbFile>("PDB", "pdb", 12, pdb_entries, pdb_code),
      sample_format<ResDatabase, ResFileFormat, ResFile>(
          "RES", "res", 1, [](int) { return res_text(); },
          [](int) { return std::string("methanol"); }),
  };
  return formats;
}

inline std::string format_name(::testing::TestParamInfo<SampleFormat> const& info) {
  return info.param.name;
}

// What tests compare of an entry: its printed description (identifier, counts, cell),
// then every atom of every molecule with its element, SYBYL type and coordinates.
inline std::string describe(CrystalStructureDatabaseEntry const& entry) {
  std::ostringstream text;
  entry.print(text);
  THandle<CrystalMaker> const maker = entry.crystal_maker();
  for (int m = 0; m < maker->nmolecules(); ++m) {
    THandle<Molecule> const molecule = maker->molecule(m);
    for (int i = 0; i < molecule->natoms(); ++i) {
      THandle<Atom> const atom = molecule->atom(i);
      Point const p = atom->site()->orthogonal();
      text << atom->label() << ' ' << atom->element().symbol() << ' '
           << molecule->atom_sybyl_type(i) << format(" %.6f %.6f %.6f\n", p[0], p[1], p[2]);
    }
  }
  return text.str();
}

// The message of the E that `call` throws, "(no error)" if none; other exceptions escape.
template <class E, class Call>
std::string thrown_message(Call call) {
  try {
    call();
  } catch (E const& e) {
    return e.what();
  }
  return "(no error)";
}

// Files and folders under a fresh scratch folder, removed with it.
class ScratchFolder {
 public:
  // Named by the process and a count: test programs running side by side never share one.
  ScratchFolder() {
    static int made = 0;
    path_ = std::filesystem::path(::testing::TempDir()) /
            ("kora_" + std::to_string(::getpid()) + "_" + std::to_string(++made));
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
  }
  ~ScratchFolder() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }

  std::string write(std::string const& name, std::string const& text) const {
    std::string const file = (path_ / name).string();
    std::ofstream(file, std::ios::binary | std::ios::trunc) << text;
    return file;
  }
  std::filesystem::path const& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

}  // namespace kora::test
