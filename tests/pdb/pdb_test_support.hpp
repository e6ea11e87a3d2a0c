#pragma once

// Helpers shared by the PDB tests: reading text in either mode, looking at what was read by
// serial number, the records of written text, and the shared corpus.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "kora/pdb/pdb_file.hpp"

namespace kora::test {

using Pairs = std::vector<std::pair<int, int>>;

inline PdbFile read_pdb(std::string const& text, ReadOptions const& options = ReadOptions()) {
  std::istringstream in(text);
  PdbFile file;
  file.set_read_options(options);
  file.read(in);
  return file;
}

inline PdbFile read_pdb(std::string const& text, bool standard) {
  return read_pdb(text, standard ? ReadOptions::standard_mode() : ReadOptions());
}

inline int serial_of(THandle<Atom> const& atom) {
  return handle_dynamic_cast<FileOrderedAtom3d>(atom)->file_order();
}

// Every atom of every molecule, in file order.
inline std::vector<THandle<Atom>> atoms_of(PdbFile const& file) {
  std::vector<THandle<Atom>> atoms;
  for (THandle<Molecule> const& m : *file.molecules())
    for (THandle<Atom> const& a : m->atoms())
      atoms.push_back(a);
  std::stable_sort(atoms.begin(), atoms.end(), [](THandle<Atom> const& a, THandle<Atom> const& b) {
    return serial_of(a) < serial_of(b);
  });
  return atoms;
}

// Every bond (of `type` only, unless it is -1) as a pair of serial numbers, the smaller
// first, sorted.
inline Pairs bonds_of(PdbFile const& file, int type = -1) {
  Pairs bonds;
  for (THandle<Molecule> const& m : *file.molecules()) {
    for (THandle<Bond> const& b : m->bonds()) {
      if (type >= 0 && b->type() != type) continue;
      int const x = serial_of(b->atom1());
      int const y = serial_of(b->atom2());
      bonds.emplace_back(std::min(x, y), std::max(x, y));
    }
  }
  std::sort(bonds.begin(), bonds.end());
  return bonds;
}

// An ATOM or HETATM record: serial field, atom name (4 columns), alternate location, residue
// name, residue number field, position, occupancy, B-factor 20, element columns 77-78.
inline std::string record(char const* name, std::string const& serial, char const* atom,
                          char location, char const* residue, std::string const& number, double x,
                          double y, double z, double occupancy = 1.0, char const* element = "") {
  char line[128];
  std::snprintf(
      line, sizeof line, "%-6s%5s %-4s%c%3s A%4s    %8.3f%8.3f%8.3f%6.2f%6.2f          %2s\n", name,
      serial.c_str(), atom, location, residue, number.c_str(), x, y, z, occupancy, 20.0, element);
  return line;
}

inline std::string record(char const* name, int serial, char const* atom, char location,
                          char const* residue, int number, double x, double y, double z,
                          double occupancy = 1.0) {
  return record(name, std::to_string(serial), atom, location, residue, std::to_string(number), x, y,
                z, occupancy);
}

// The lines of `text` that start with one of `names`.
inline std::vector<std::string> lines_of(std::string const& text,
                                         std::vector<std::string> const& names) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    for (std::string const& name : names) {
      if (line.compare(0, name.size(), name) == 0) {
        lines.push_back(line);
        break;
      }
    }
  }
  return lines;
}

// The fields of a table row written "a|b|c".
inline std::vector<std::string> fields(std::string const& row) {
  std::vector<std::string> out;
  std::istringstream in(row);
  for (std::string field; std::getline(in, field, '|');)
    out.push_back(field);
  if (!row.empty() && row.back() == '|') out.emplace_back();
  return out;
}

// The real-world files of the shared corpus: $KORA_CORPUS, else the build's default.
inline std::filesystem::path corpus() {
  char const* env = std::getenv("KORA_CORPUS");
  return env ? std::filesystem::path(env) : std::filesystem::path(KORA_DEFAULT_CORPUS_DIR);
}

}  // namespace kora::test
