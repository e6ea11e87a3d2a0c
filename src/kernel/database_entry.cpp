#include "kora/kernel/database_entry.hpp"

#include <ostream>

namespace kora {

void CrystalStructureDatabaseEntry::print(std::ostream& os) const {
  os << identifier() << '\n';
  THandle<CrystalMaker> const maker = crystal_maker();
  if (!maker) return;
  for (int i = 0; i < maker->nmolecules(); ++i) {
    THandle<Molecule> const m = maker->molecule(i);
    os << "molecule " << i + 1 << ": " << m->natoms() << " atoms, " << m->nbonds() << " bonds\n";
  }
  Cell const& cell = maker->cell();
  os << "cell " << cell.a() << ' ' << cell.b() << ' ' << cell.c() << ' ' << cell.alpha().degrees()
     << ' ' << cell.beta().degrees() << ' ' << cell.gamma().degrees() << ' '
     << cell.spacegroup().symbol() << '\n';
}

}  // namespace kora
