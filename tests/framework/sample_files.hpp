#pragma once

// Small multi-entry files of every format, written by the tests themselves, with the
// database each format makes of them, and scratch files that are removed afterwards.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <ostream>
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

// A chain of carbon atoms ending in an oxygen, 3 to 6 atoms long, shifted a little per entry
// so that every entry has its own coordinates.
inline int chain_length(int entry) {
  return 3 + entry % 4;
}

inline std::string format(char const* pattern, double a, double b, double c) {
  char text[128];
  std::snprintf(text, sizeof text, pattern, a, b, c);
  return text;
}

inline std::string mol2_entries(int count) {
  std::string text;
  for (int e = 0; e < count; ++e) {
    int const n = chain_length(e);
    text += "@<TRIPOS>MOLECULE\nmol" + std::to_string(e) + "\n" + std::to_string(n) + " " +
            std::to_string(n - 1) + " 1\nSMALL\nNO_CHARGES\n\n@<TRIPOS>ATOM\n";
    for (int a = 0; a < n; ++a) {
      bool const oxygen = a == n - 1;
      text += std::to_string(a + 1) + (oxygen ? " O" : " C") + std::to_string(a + 1) +
              format(" %.4f %.4f %.4f", 1.5 * a + 0.01 * e, 0.1 * (a % 2), 0.001 * e) +
              (oxygen ? " O.3" : " C.3") + " 1 RES1 0.0000\n";
    }
    text += "@<TRIPOS>BOND\n";
    for (int b = 1; b < n; ++b)
      text += std::to_string(b) + " " + std::to_string(b) + " " + std::to_string(b + 1) + " 1\n";
  }
  return text;
}

inline std::string sd_entries(int count) {
  std::string text;
  for (int e = 0; e < count; ++e) {
    int const n = chain_length(e);
    char counts[64];
    std::snprintf(counts, sizeof counts, "%3d%3d  0  0  0  0  0  0  0  0999 V2000\n", n, n - 1);
    text += "mol" + std::to_string(e) + "\n  kora    01012412003D\n\n" + counts;
    for (int a = 0; a < n; ++a) {
      text += format("%10.4f%10.4f%10.4f", 1.5 * a + 0.01 * e, 0.1 * (a % 2), 0.001 * e) +
              (a == n - 1 ? " O " : " C ") + "  0  0  0  0  0  0  0  0  0  0  0  0\n";
    }
    for (int b = 1; b < n; ++b) {
      char bond[32];
      std::snprintf(bond, sizeof bond, "%3d%3d  1  0\n", b, b + 1);
      text += bond;
    }
    text += "M  END\n> <INDEX>\n" + std::to_string(e) + "\n\n$$$$\n";
  }
  return text;
}

// "E000" to "E999".
inline std::string pdb_code(int entry) {
  std::string const digits = std::to_string(1000 + entry % 1000);
  return "E" + digits.substr(1);
}

// Entries named by the identifier code of columns 63-66 (pdb_code).
inline std::string pdb_entries(int count) {
  std::string text;
  for (int e = 0; e < count; ++e) {
    text += "HEADER    TEST ENTRY" + std::string(30, ' ') + "01-JAN-24   " + pdb_code(e) + "\n";
    int const n = chain_length(e);
    for (int a = 0; a < n; ++a) {
      bool const oxygen = a == n - 1;
      char line[96];
      std::snprintf(line, sizeof line,
                    "HETATM%5d  %-3s LIG A   1    %8.3f%8.3f%8.3f  1.00  0.00%12s\n", a + 1,
                    (std::string(oxygen ? "O" : "C") + std::to_string(a + 1)).c_str(),
                    1.5 * a + 0.01 * e, 0.1 * (a % 2), 0.001 * e, oxygen ? "O" : "C");
      text += line;
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

// One format as the tests see it: a sample file of `entries` entries, the database made of
// a file, the identifier the index gives entry i of the sample, the format's descriptor and
// an empty file object.
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

inline std::vector<SampleFormat> const& sample_formats() {
  static std::vector<SampleFormat> const formats = {
      {"SD", "sdf", 12, [] { return sd_entries(12); },
       [](std::string const& f) {
         return THandle<EntryDatabase>(
             make_handle<SdDatabase>(f, FileFormat::verbatim_identifiers));
       },
       [](int i) { return "mol" + std::to_string(i); },
       [] {
         return THandle<FileFormat>(
             make_handle<MolFileFileFormat>(FileFormat::verbatim_identifiers));
       },
       [] { return THandle<MoleculeFile>(make_handle<MolFile>()); }},
      {"Mol2", "mol2", 12, [] { return mol2_entries(12); },
       [](std::string const& f) { return THandle<EntryDatabase>(make_handle<Mol2Database>(f)); },
       [](int i) { return "mol" + std::to_string(i); },
       [] { return THandle<FileFormat>(make_handle<Mol2FileFormat>()); },
       [] { return THandle<MoleculeFile>(make_handle<Mol2File>()); }},
      {"PDB", "pdb", 12, [] { return pdb_entries(12); },
       [](std::string const& f) { return THandle<EntryDatabase>(make_handle<PdbDatabase>(f)); },
       [](int i) { return pdb_code(i); },
       [] { return THandle<FileFormat>(make_handle<PdbFileFormat>()); },
       [] { return THandle<MoleculeFile>(make_handle<PdbFile>()); }},
      {"RES", "res", 1, [] { return res_text(); },
       [](std::string const& f) { return THandle<EntryDatabase>(make_handle<ResDatabase>(f)); },
       [](int) { return std::string("methanol"); },
       [] { return THandle<FileFormat>(make_handle<ResFileFormat>()); },
       [] { return THandle<MoleculeFile>(make_handle<ResFile>()); }},
  };
  return formats;
}

// gtest names a parameter by its format.
inline void PrintTo(SampleFormat const& f, std::ostream* os) {
  *os << f.name;
}

inline std::string format_name(::testing::TestParamInfo<SampleFormat> const& info) {
  return info.param.name;
}

// Files and folders under a fresh scratch folder, removed with it.
class ScratchFolder {
 public:
  // Named after the test and the process, so that test programs running side by side (two
  // build folders, ctest -j) never share one.
  ScratchFolder() {
    ::testing::TestInfo const* test = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string name = std::string(test->test_suite_name()) + "." + test->name() + "." +
                       std::to_string(::getpid());
    for (char& c : name)
      if (c == '/') c = '_';
    path_ = std::filesystem::path(::testing::TempDir()) / ("kora_" + name);
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
  }
  ~ScratchFolder() {
    std::error_code ec;
    std::filesystem::permissions(path_, std::filesystem::perms::owner_all,
                                 std::filesystem::perm_options::add, ec);
    std::filesystem::remove_all(path_, ec);
  }
  ScratchFolder(ScratchFolder const&) = delete;
  ScratchFolder& operator=(ScratchFolder const&) = delete;

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
