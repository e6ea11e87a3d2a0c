#pragma once

// Builders of MOL text and scratch files shared by the MOL/SD tests.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "kora/kernel/string_functions.hpp"
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

// Reading the text must fail with exactly this message.
inline void expect_error(std::string const& text, char const* message) {
  MolFile file;
  EXPECT_EQ(message_of<std::runtime_error>([&] { read_mol(file, text); }), message);
}

// A V2000 atom line: coordinates, symbol, mass difference and charge code in their columns.
inline std::string atom_line(double x, double y, double z, char const* symbol, int mass = 0,
                             int charge = 0) {
  char line[96];
  std::snprintf(line, sizeof line, "%10.4f%10.4f%10.4f %-3s%2d%3d  0  0  0\n", x, y, z, symbol,
                mass, charge);
  return line;
}

inline std::string counts(int atoms, int bonds, int lists = 0, int stext = 0) {
  char line[64];
  std::snprintf(line, sizeof line, "%3d%3d%3d  0  0%3d  0  0  0  0999 V2000\n", atoms, bonds, lists,
                stext);
  return line;
}

// Header lines 1 to 3, with the dimensional code in columns 21-22 of line 2.
inline std::string header(char const* name = "name", char const* dimension = "2D") {
  return std::string(name) + "\n  KORATEST0101241200" + dimension + "\n\n";
}

// A V3000 record whose root table is `ctab`, followed by `after` before "M  END".
inline std::string v3000_record(std::string const& ctab, char const* dimension = "2D",
                                std::string const& after = "") {
  return header("v3", dimension) + "  0  0  0     0  0            999 V3000\n" +
         "M  V30 BEGIN CTAB\n" + ctab + "M  V30 END CTAB\n" + after + "M  END\n";
}

// The V3000 table of one atom line.
inline std::string v3000_atom(std::string const& atom) {
  return "M  V30 COUNTS 1 0 0 0 0\nM  V30 BEGIN ATOM\nM  V30 " + atom + "\nM  V30 END ATOM\n";
}

// The data items written and read back: the same keys, and each item's values as written
// (trimmed; a value of blanks comes back as the blank line that ends the item).
inline void expect_same_tags(MolFile const& file, MolFile const& back, std::string const& where) {
  ASSERT_EQ(file.tags()->size(), back.tags()->size()) << where;
  for (auto const& [key, values] : file.tags()->items()) {
    std::vector<std::string> expected;
    for (std::string const& value : *values) {
      if (kora::trim(value, " \t\r\n").empty()) break;
      expected.push_back(kora::trim(value, " \t\r\n"));
    }
    ASSERT_TRUE(back.tags()->values(key)) << where << ' ' << key;
    EXPECT_EQ(*back.tags()->values(key), expected) << where << ' ' << key;
  }
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
