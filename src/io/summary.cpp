// Formulas and summaries of entries.

#include <nlohmann/json.hpp>

#include <sstream>

#include "kora/io.hpp"
#include "kora/mdl/sdfile_database_entry.hpp"

namespace kora {

namespace {

// The name of an SD data item from its header line: the text between "<" and ">", or the
// header without its leading ">".
std::string item_name(std::string const& key) {
  std::size_t const open = key.find('<');
  std::size_t const close = key.find('>', open == std::string::npos ? 0 : open);
  if (open != std::string::npos && close != std::string::npos && close > open) {
    return key.substr(open + 1, close - open - 1);
  }
  std::size_t const start = key.find_first_not_of("> \t");
  return start == std::string::npos ? std::string() : key.substr(start);
}

}  // namespace

void FormulaCounter::add(Molecule const& molecule) {
  for (THandle<Atom> const& atom : molecule.atoms()) {
    Element const e = atom->element();
    if (e.is_set()) {
      ++counts_[e.symbol()];
    } else {
      ++unknown_;
    }
  }
}

std::string FormulaCounter::formula() const {
  std::string formula;
  auto const put = [&](std::string const& symbol, int n) {
    formula += symbol;
    if (n > 1) formula += std::to_string(n);
  };
  bool const carbon = counts_.count("C") != 0;
  if (carbon) {
    put("C", counts_.at("C"));
    if (counts_.count("H")) put("H", counts_.at("H"));
  }
  for (auto const& [symbol, n] : counts_) {
    if (carbon && (symbol == "C" || symbol == "H")) continue;
    put(symbol, n);
  }
  if (unknown_ > 0) put("?", unknown_);
  return formula;
}

std::optional<DataItems> sd_data(CrystalStructureDatabaseEntry const& entry) {
  auto const* sd = dynamic_cast<SDfileDatabaseEntry const*>(&entry);
  if (!sd) return std::nullopt;
  DataItems items;
  if (sd->tags()) {
    for (auto const& [key, values] : sd->tags()->items())
      items.emplace_back(item_name(key), values ? *values : std::vector<std::string>());
  }
  return items;
}

std::string formula(CrystalStructureDatabaseEntry const& entry) {
  FormulaCounter counter;
  if (THandle<CrystalMaker> const maker = entry.crystal_maker()) {
    for (int m = 0; m < maker->nmolecules(); ++m)
      counter.add(*maker->molecule(m));
  }
  return counter.formula();
}

Summary summarise(int index, CrystalStructureDatabaseEntry const& entry) {
  Summary s;
  s.index = index;
  s.identifier = entry.identifier().str();
  THandle<CrystalMaker> const maker = entry.crystal_maker();
  FormulaCounter counter;
  if (maker) {
    s.molecules = maker->nmolecules();
    for (int m = 0; m < maker->nmolecules(); ++m) {
      THandle<Molecule> const molecule = maker->molecule(m);
      s.atoms += molecule->natoms();
      s.bonds += molecule->nbonds();
      s.charge += molecule->formal_charge();
      counter.add(*molecule);
    }
    Cell const& cell = maker->cell();
    double const values[6] = {cell.a(),
                              cell.b(),
                              cell.c(),
                              cell.alpha().degrees(),
                              cell.beta().degrees(),
                              cell.gamma().degrees()};
    std::copy(values, values + 6, s.cell);
    s.spacegroup = cell.spacegroup().symbol();
    s.spacegroup_number = cell.spacegroup().number();
    s.peaks = int(maker->details().density_peaks.size());
    s.has_cell = maker->details().has_cell;
  }
  s.formula = counter.formula();
  if (std::optional<DataItems> data = sd_data(entry)) {
    s.has_data = true;
    s.data = std::move(*data);
  }
  return s;
}

std::string summary_text(Summary const& s) {
  std::ostringstream out;
  out << "entry " << s.index << ": " << s.identifier << '\n'
      << "  molecules: " << s.molecules << '\n'
      << "  atoms: " << s.atoms << '\n'
      << "  bonds: " << s.bonds << '\n'
      << "  formula: " << s.formula << '\n'
      << "  charge: " << s.charge << '\n';
  if (s.has_cell) {
    out << "  cell: " << s.cell[0] << ' ' << s.cell[1] << ' ' << s.cell[2] << ' ' << s.cell[3]
        << ' ' << s.cell[4] << ' ' << s.cell[5] << '\n'
        << "  spacegroup: " << s.spacegroup << " (" << s.spacegroup_number << ")\n";
  } else {
    out << "  cell: none\n  spacegroup: none\n";
  }
  if (s.peaks > 0) out << "  peaks: " << s.peaks << '\n';
  if (s.has_data) {
    out << "  data:\n";
    for (auto const& [name, values] : s.data) {
      out << "    " << name << ':';
      for (std::string const& v : values)
        out << ' ' << v;
      out << '\n';
    }
  }
  return out.str();
}

std::string summary_json(Summary const& s) {
  nlohmann::ordered_json j;
  j["index"] = s.index;
  j["identifier"] = s.identifier;
  j["molecules"] = s.molecules;
  j["atoms"] = s.atoms;
  j["bonds"] = s.bonds;
  j["formula"] = s.formula;
  j["charge"] = s.charge;
  if (s.has_cell) {
    j["cell"] = {{"a", s.cell[0]},     {"b", s.cell[1]},    {"c", s.cell[2]},
                 {"alpha", s.cell[3]}, {"beta", s.cell[4]}, {"gamma", s.cell[5]}};
    j["spacegroup"] = {{"symbol", s.spacegroup}, {"number", s.spacegroup_number}};
  } else {
    j["cell"] = nullptr;
    j["spacegroup"] = nullptr;
  }
  if (s.peaks > 0) j["peaks"] = s.peaks;
  if (s.has_data) {
    nlohmann::ordered_json data = nlohmann::ordered_json::object();
    for (auto const& [name, values] : s.data)
      data[name] = values;
    j["data"] = data;
  }
  // Invalid UTF-8 in names or data items is replaced rather than refused.
  return j.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace kora
