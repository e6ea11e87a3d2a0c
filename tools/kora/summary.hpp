#pragma once

// What `kora info` says of one entry.

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "kora/kernel/database_entry.hpp"
#include "kora/kernel/molecule.hpp"

namespace kora::cli {

using DataItems = std::vector<std::pair<std::string, std::vector<std::string>>>;

struct Summary {
  int index = 0;
  std::string identifier;
  int molecules = 0;
  int atoms = 0;
  int bonds = 0;
  std::string formula;  // Hill order; "?" for atoms without an element
  int charge = 0;
  double cell[6] = {0, 0, 0, 0, 0, 0};  // a, b, c, alpha, beta, gamma (degrees)
  std::string spacegroup;
  int spacegroup_number = 0;
  int peaks = 0;          // difference-map peaks the structure details list (SHELX Q peaks)
  bool has_data = false;  // an SD record: data items follow
  DataItems data;
};

// Element counts over molecules, written as a formula in Hill order: carbon, then hydrogen,
// then the other symbols alphabetically; without carbon, every symbol alphabetically.
// Atoms without an element count as "?" at the end.
class FormulaCounter {
 public:
  void add(Molecule const& molecule);
  std::string formula() const;

 private:
  std::map<std::string, int> counts_;
  int unknown_ = 0;
};

// The data items of an SD record, each named by the text between "<" and ">" of its header
// line; nothing when the entry is not an SD record.
std::optional<DataItems> sd_data(CrystalStructureDatabaseEntry const& entry);

Summary summarise(int index, CrystalStructureDatabaseEntry const& entry);
// The summary as indented text lines.
std::string summary_text(Summary const& s);
// The summary as one line of JSON (no line end).
std::string summary_json(Summary const& s);

}  // namespace kora::cli
