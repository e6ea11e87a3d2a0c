// Reads benchmark files with RDKit's own readers, as its documentation recommends.
//
//   rdkit_driver sd-count FILE            number of SD records (SDMolSupplier::length)
//   rdkit_driver sd-read FILE [--no-sanitize]
//   rdkit_driver sd-fetch FILE INDEX      one record by index (SDMolSupplier[INDEX])
//   rdkit_driver sd-to-sd IN OUT          read every record and write it with SDWriter
//   rdkit_driver mol2-read FILE [--no-sanitize]   every molecule, block by block
//   rdkit_driver pdb-read FILE [--no-sanitize]    one structure, proximity bonding
//
// Prints the number of molecules read, failed, and their atoms and bonds.

#include <GraphMol/FileParsers/FileParsers.h>
#include <GraphMol/FileParsers/MolSupplier.h>
#include <GraphMol/FileParsers/MolWriters.h>
#include <GraphMol/ROMol.h>
#include <RDGeneral/RDLog.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>

namespace {

struct Tally {
  long molecules = 0, failed = 0, atoms = 0, bonds = 0;
  void add(RDKit::ROMol const* m) {
    if (!m) {
      ++failed;
      return;
    }
    ++molecules;
    atoms += m->getNumAtoms();
    bonds += m->getNumBonds();
  }
  void print() const {
    std::cout << "molecules " << molecules << " failed " << failed << " atoms " << atoms
              << " bonds " << bonds << '\n';
  }
};

std::string slurp(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// The next record; null when RDKit refuses it.
std::unique_ptr<RDKit::ROMol> next_molecule(RDKit::SDMolSupplier& supplier) {
  try {
    return std::unique_ptr<RDKit::ROMol>(supplier.next());
  } catch (std::exception const&) {
    return nullptr;
  }
}

int usage() {
  std::cerr << "usage: rdkit_driver sd-count|sd-read|sd-fetch|sd-to-sd|mol2-read|pdb-read FILE "
               "[INDEX|OUT] [--no-sanitize]\n";
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return usage();
  RDLog::InitLogs();
  boost::logging::disable_logs("rdApp.*");
  std::string const task = argv[1];
  std::string const file = argv[2];
  bool const sanitize = std::string(argv[argc - 1]) != "--no-sanitize";
  Tally tally;
  try {
    if (task == "sd-count") {
      RDKit::SDMolSupplier supplier(file, false, false, false);
      std::cout << "records " << supplier.length() << '\n';
      return 0;
    }
    if (task == "sd-read") {
      RDKit::SDMolSupplier supplier(file, sanitize, false, false);
      while (!supplier.atEnd())
        tally.add(next_molecule(supplier).get());
    } else if (task == "sd-fetch" && argc >= 4) {
      RDKit::SDMolSupplier supplier(file, true, false, false);
      std::unique_ptr<RDKit::ROMol> m(supplier[std::atoi(argv[3])]);
      tally.add(m.get());
    } else if (task == "sd-to-sd" && argc >= 4) {
      RDKit::SDMolSupplier supplier(file, false, false, false);
      RDKit::SDWriter writer(argv[3]);
      writer.setKekulize(false);  // the records are not sanitised
      while (!supplier.atEnd()) {
        std::unique_ptr<RDKit::ROMol> m = next_molecule(supplier);
        // SDWriter refuses some unsanitised records (chirality it cannot place): those count
        // as failures, as refused reads do.
        if (m) {
          try {
            writer.write(*m);
          } catch (std::exception const&) {
            m.reset();
          }
        }
        tally.add(m.get());
      }
      writer.close();
    } else if (task == "mol2-read") {
      // RDKit reads one Mol2 molecule per block: split the file at each MOLECULE record.
      std::string const text = slurp(file);
      std::string const tag = "@<TRIPOS>MOLECULE";
      std::size_t start = text.find(tag);
      while (start != std::string::npos) {
        std::size_t const next = text.find(tag, start + tag.size());
        std::string const block =
            text.substr(start, next == std::string::npos ? std::string::npos : next - start);
        std::unique_ptr<RDKit::ROMol> m;
        try {
          m.reset(RDKit::Mol2BlockToMol(block, sanitize, false));
        } catch (std::exception const&) {
        }
        tally.add(m.get());
        start = next;
      }
    } else if (task == "pdb-read") {
      std::unique_ptr<RDKit::ROMol> m(RDKit::PDBFileToMol(file, sanitize, false, 0, true));
      tally.add(m.get());
    } else {
      return usage();
    }
  } catch (std::exception const& e) {
    std::cerr << "rdkit_driver: " << e.what() << '\n';
    return 1;
  }
  tally.print();
  return 0;
}
