// kora's driver for the side-by-side comparison with other readers: opens each file as a
// database through the format registry and builds every entry's molecules (bond
// perception included where the format has no bonds), or times one random access.
//
//   kora_read read FILE...           every entry of every file
//   kora_read fetch FILE INDEX|ID    index the file, then fetch one entry by index (a
//                                    number) or by identifier, and print both times
//   kora_read lines FILE             count the lines of the file, read in large blocks
//                                    (the floor under every reader)
//
// Prints entries, molecules, atoms and bonds so that the counts can be checked against
// the other readers.

#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "kora/formats.hpp"
#include "kora/framework/database.hpp"
#include "kora/kernel/crystal.hpp"
#include "kora/kernel/database_entry.hpp"
#include "kora/kernel/string_functions.hpp"
#include "kora/mdl/mol_file_file_format.hpp"

namespace {

using Clock = std::chrono::steady_clock;

struct Tally {
  long entries = 0, failed = 0, molecules = 0, atoms = 0, bonds = 0;
  void add(kora::CrystalStructureDatabaseEntry const& entry) {
    ++entries;
    kora::THandle<kora::CrystalMaker> const maker = entry.crystal_maker();
    if (!maker) return;
    for (int m = 0; m < maker->nmolecules(); ++m) {
      kora::THandle<kora::Molecule> const molecule = maker->molecule(m);
      ++molecules;
      atoms += molecule->natoms();
      bonds += molecule->nbonds();
    }
  }
};

std::string extension(std::string const& file) {
  std::size_t const dot = file.find_last_of('.');
  return dot == std::string::npos ? std::string() : file.substr(dot + 1);
}

kora::THandle<kora::Database<kora::CrystalStructureDatabaseEntry>> open(std::string const& file) {
  kora::FileFormat::OpenParameters const parameters{file, extension(file)};
  kora::THandle<kora::FileFormat> format = kora::find_file_format(parameters);
  if (!format) throw std::runtime_error(file + ": unknown format");
  // SD records keep their names as they stand, as the kora program does.
  if (kora::handle_dynamic_cast<kora::MolFileFileFormat>(format)) {
    format = kora::THandle<kora::FileFormat>(
        kora::make_handle<kora::MolFileFileFormat>(kora::FileFormat::verbatim_identifiers));
  }
  return format->make_database(parameters);
}

double microseconds_since(Clock::time_point start) {
  return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::cerr << "usage: kora_read read FILE... | fetch FILE INDEX|ID | lines FILE\n";
    return 2;
  }
  std::string const task = argv[1];
  try {
    Tally tally;
    if (task == "lines") {
      // The bare floor: the file read in large blocks and its line feeds counted.
      std::ifstream in(argv[2], std::ios::binary);
      if (!in) throw std::runtime_error(std::string(argv[2]) + ": cannot open");
      std::vector<char> block(std::size_t(1) << 20);
      long lines = 0;
      while (in.read(block.data(), static_cast<std::streamsize>(block.size())) || in.gcount() > 0) {
        char const* p = block.data();
        char const* const end = p + in.gcount();
        while ((p = static_cast<char const*>(std::memchr(p, '\n', std::size_t(end - p))))) {
          ++lines;
          ++p;
        }
      }
      std::cout << "lines " << lines << '\n';
      return 0;
    }
    if (task == "read") {
      // An entry or file that cannot be read is counted and skipped, as the other
      // drivers do.
      for (int i = 2; i < argc; ++i) {
        try {
          auto const db = open(argv[i]);
          for (int e = 0; e < db->size(); ++e) {
            try {
              tally.add(*db->entry(e));
            } catch (kora::database_error const&) {
              ++tally.failed;
            }
          }
        } catch (std::runtime_error const&) {
          ++tally.failed;
        }
      }
    } else if (task == "fetch" && argc == 4) {
      Clock::time_point const start = Clock::now();
      auto const db = open(argv[2]);
      double const index_us = microseconds_since(start);
      std::string const key = argv[3];
      bool is_number = false;
      int const number = kora::string_to_int(key, is_number);
      Clock::time_point const fetch = Clock::now();
      if (is_number) {
        tally.add(*db->entry(number));
      } else {
        tally.add(*db->entry(kora::DatabaseEntryIdentifier(key)));
      }
      double const fetch_us = microseconds_since(fetch);
      std::printf("index %.0f us fetch %.1f us\n", index_us, fetch_us);
    } else {
      std::cerr << "kora_read: unknown task " << task << '\n';
      return 2;
    }
    std::cout << "entries " << tally.entries << " failed " << tally.failed << " molecules "
              << tally.molecules << " atoms " << tally.atoms << " bonds " << tally.bonds << '\n';
  } catch (std::exception const& e) {
    std::cerr << "kora_read: " << e.what() << '\n';
    return 1;
  }
  return 0;
}
