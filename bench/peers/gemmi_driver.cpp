// Reads a PDB file with gemmi's read_structure_file: atoms and models, no bond perception.
//
//   gemmi_driver FILE

#include <gemmi/mmread.hpp>

#include <iostream>

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: gemmi_driver FILE\n";
    return 2;
  }
  try {
    gemmi::Structure const st = gemmi::read_structure_file(argv[1]);
    long atoms = 0;
    for (gemmi::Model const& model : st.models)
      for (gemmi::Chain const& chain : model.chains)
        for (gemmi::Residue const& residue : chain.residues)
          atoms += static_cast<long>(residue.atoms.size());
    std::cout << "models " << st.models.size() << " atoms " << atoms << '\n';
  } catch (std::exception const& e) {
    std::cerr << "gemmi_driver: " << e.what() << '\n';
    return 1;
  }
  return 0;
}
