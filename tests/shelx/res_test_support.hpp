#pragma once

// Helpers shared by the RES tests: reading text in either mode, the atoms of the molecules,
// writing an entry as the tool does, and the shared corpus.

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "kora/shelx/res_file.hpp"

namespace kora::test {

inline ResFile read_res(std::string const& text, bool standard = false) {
  ReadOptions options;
  options.mode = standard ? Mode::standard : Mode::classic;
  ResFile file;
  file.set_read_options(options);
  std::istringstream in(text);
  file.read(in);
  return file;
}

// The message of the error reading `text` (classic mode) gives, or "no error".
inline std::string res_error_of(std::string const& text) {
  try {
    read_res(text);
  } catch (std::runtime_error const& e) {
    return e.what();
  }
  return "no error";
}

// Every atom of every molecule, in order.
inline std::vector<THandle<Atom>> atoms_of(ResFile const& file) {
  std::vector<THandle<Atom>> atoms;
  for (THandle<Molecule> const& m : *file.molecules())
    for (THandle<Atom> const& a : m->atoms())
      atoms.push_back(a);
  return atoms;
}

// Writes an entry in standard mode as the tool does: options, clear, add, print.
inline std::string write_standard(CrystalStructureDatabaseEntry const& entry) {
  ResFile writer;
  writer.set_write_options(WriteOptions::standard_mode());
  writer.clear();
  writer.add(entry);
  std::ostringstream out;
  writer.print(out);
  return out.str();
}

// The real-world files of the shared corpus: $KORA_CORPUS, else the build's default.
inline std::filesystem::path res_corpus() {
  char const* env = std::getenv("KORA_CORPUS");
  return env ? std::filesystem::path(env) : std::filesystem::path(KORA_DEFAULT_CORPUS_DIR);
}

}  // namespace kora::test
