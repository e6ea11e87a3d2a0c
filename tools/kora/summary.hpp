#pragma once

// What `kora info` says of one entry.

#include <map>
#include <string>
#include <vector>

#include "kora/kernel/database_entry.hpp"

namespace kora::cli {

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
  bool has_data = false;  // an SD record: data items follow
  std::vector<std::pair<std::string, std::vector<std::string>>> data;
};

Summary summarise(int index, CrystalStructureDatabaseEntry const& entry);
// The summary as indented text lines.
std::string summary_text(Summary const& s);
// The summary as one line of JSON (no line end).
std::string summary_json(Summary const& s);

}  // namespace kora::cli
