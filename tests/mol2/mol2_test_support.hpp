#pragma once

// Reading and writing Mol2 text in the Mol2 tests; message_of and ScratchFile come from the
// MOL/SD tests' helpers.

#include <sstream>
#include <string>
#include <vector>

#include "../mdl/mdl_test_support.hpp"
#include "kora/mol2/mol2_file.hpp"

namespace kora::test {

inline Mol2File read_mol2(std::string const& text,
                          ReadOptions const& options = ReadOptions::classic_mode()) {
  Mol2File file;
  file.set_read_options(options);
  std::istringstream in(text);
  file.read(in);
  return file;
}

inline Mol2File read_standard(std::string const& text) {
  return read_mol2(text, ReadOptions::standard_mode());
}

// The lines of a section of Mol2 text, without its header.
inline std::vector<std::string> section(std::string const& text, std::string const& name) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  bool inside = false;
  for (std::string line; std::getline(in, line);) {
    if (line.rfind("@<TRIPOS>", 0) == 0)
      inside = line == "@<TRIPOS>" + name;
    else if (inside)
      lines.push_back(line);
  }
  return lines;
}

// The blank-separated fields of a line.
inline std::vector<std::string> words(std::string const& line) {
  std::vector<std::string> out;
  std::istringstream in(line);
  for (std::string w; in >> w;)
    out.push_back(w);
  return out;
}

// The lines with their fields joined by single blanks.
inline std::vector<std::string> squeezed(std::vector<std::string> const& lines) {
  std::vector<std::string> out;
  for (std::string const& line : lines) {
    std::string joined;
    for (std::string const& w : words(line))
      joined += (joined.empty() ? "" : " ") + w;
    out.push_back(joined);
  }
  return out;
}

}  // namespace kora::test
