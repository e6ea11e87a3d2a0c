#include "kora/mdl/mol_file.hpp"

#include <istream>
#include <ostream>
#include <stdexcept>

#include "kora/kernel/date.hpp"
#include "kora/kernel/string_functions.hpp"
#include "kora/mdl/sdfile_database_entry.hpp"
#include "mdl/mdl_text.hpp"

namespace kora {

namespace {

// Month, day or two-digit year of the header's date: two digits below 10.
void append_date_field(std::string& out, int value) {
  if (value < 10) out += '0';
  out += int_to_string(value);
}

}  // namespace

void verify_symbol(std::string) {}

MolFile::MolFile() {
  clear();
}

MolFile::MolFile(std::string const& file_name) : MolFile() {
  MoleculeFile::read(file_name);
}

void MolFile::clear() {
  cell_ = make_handle<Cell>();
  molecules_ = make_handle<MoleculeList>();
  tags_ = make_handle<TagCollection>();
  two_d_ = false;
  version_ = V2000;
  molecule_name_.clear();
  user_initials_.clear();
  comment_.clear();
  program_name_.clear();
  date_time_.clear();
  dimensional_code_.clear();
  scaling_factors_.clear();
  energy_.clear();
  registry_number_.clear();
  structure_details_ = StructureDetails();
}

void MolFile::record_structure_details_(bool flat) {
  structure_details_ = StructureDetails();
  structure_details_.source_format = "sdf";
  structure_details_.has_cell = false;
  if (dimensional_code_ == "2D" || dimensional_code_ == "2d") {
    structure_details_.dimension = "2D";
  } else if (dimensional_code_ == "3D" || dimensional_code_ == "3d") {
    structure_details_.dimension = "3D";
  } else {
    structure_details_.dimension = flat ? "2D" : "3D";
  }
}

void MolFile::read(std::istream& is) {
  clear();
  read_header(is);
  if (version_ == V3000) {
    read_V3000(is);
  } else {
    read_V2000(is);
  }
}

void MolFile::read_header(std::istream& is) {
  version_ = V2000;
  std::string line;
  for (int n = 1; n <= 4 && !is.eof(); ++n) {
    kora::getline(is, line);
    switch (n) {
      case 1:
        molecule_name_ = line;
        break;
      case 2:
        read_header_second_line(line);
        break;
      case 3:
        comment_ = line;
        break;
      default:
        counts_line_ = line;
        if (line.find("V3000") != std::string::npos) version_ = V3000;
        break;
    }
  }
}

void MolFile::read_header_second_line(std::string const& line) {
  struct Field {
    std::size_t width;
    std::string MolFile::*member;
  };
  static constexpr Field fields[] = {
      {2, &MolFile::user_initials_},    {8, &MolFile::program_name_},
      {10, &MolFile::date_time_},       {2, &MolFile::dimensional_code_},
      {12, &MolFile::scaling_factors_}, {12, &MolFile::energy_},
      {6, &MolFile::registry_number_}};
  std::size_t at = 0;
  for (Field const& field : fields) {
    if (at >= line.size()) break;
    this->*field.member = line.substr(at, field.width);
    at += field.width;
  }
}

void MolFile::print_header(std::ostream& os) const {
  std::string out = truncate(molecule_name_, 80);
  out += '\n';
  out += left_justify(user_initials_, 2, ' ');
  out += "--KORA--";
  Date const today = Date::today();
  append_date_field(out, today.month());
  append_date_field(out, today.day());
  append_date_field(out, today.year() - 2000);
  out += "    ";
  out += left_justify(dimensional_code_, 2, ' ');
  out += left_justify(scaling_factors_, 12, ' ');
  out += left_justify(energy_, 12, ' ');
  out += left_justify(registry_number_, 6, ' ');
  out += '\n';
  out += truncate(comment_, 80);
  out += '\n';
  os << out;
}

void MolFile::print(std::ostream& os) const {
  if (write_options().standard()) {
    print_standard_(os);
    return;
  }
  initialise_print();
  print_header(os);
  if (version_ == V3000) {
    print_V3000(os);
  } else {
    print_V2000(os);
  }
  tags_->print(os);
  os << "$$$$\n";
}

bool MolFile::first_formated_line(std::string const& line) {
  return detail::is_counts_line(line);
}

void MolFile::add_sd_tag(std::string const& name, THandle<std::vector<std::string>> const& values) {
  tags_->set(name, values);
}

void MolFile::add_sd_tag(std::string const& name, std::string const& value) {
  add_sd_tag(name, make_handle<std::vector<std::string>>(1, value));
}

void MolFile::add(Molecule const& molecule, DatabaseEntryIdentifier const& identifier) {
  clear();
  molecules_->push_back(THandle<Molecule>(make_handle<Molecule3d>(molecule)));
  dimensional_code_ = "3D";
  molecule_name_ = identifier.str();
}

void MolFile::add(CrystalMaker const& maker, DatabaseEntryIdentifier const& identifier) {
  clear();
  dimensional_code_ = "3D";
  molecule_name_ = identifier.str();
  structure_details_ = maker.details();
  for (int i = 0; i < maker.nmolecules(); ++i) {
    molecules_->push_back(THandle<Molecule>(make_handle<Molecule3d>(*maker.molecule(i))));
  }
}

void MolFile::add(CrystalStructureDatabaseEntry const& entry) {
  THandle<CrystalMaker> const maker = entry.crystal_maker();
  add(*maker, entry.identifier());
}

void MolFile::add(Crystal const&, DatabaseEntryIdentifier const&) {
  throw std::runtime_error("MolFile::add(const Crystal& c) is not yet implemented");
}

THandle<Molecule> MolFile::molecule() const {
  MoleculeList const& molecules = *molecules_;
  if (molecules.empty()) return THandle<Molecule>(make_handle<Molecule3d>());
  if (molecules.size() == 1) return molecules.front();
  auto merged = make_handle<Molecule3d>(*molecules.front());
  for (std::size_t i = 1; i < molecules.size(); ++i)
    merged->add(*molecules[i]);
  return THandle<Molecule>(merged);
}

THandle<Cell> MolFile::cell() const {
  return cell_;
}

THandle<Crystal> MolFile::crystal() const {
  return make_handle<Crystal>(*cell_, molecules_);
}

THandle<CrystalMaker> MolFile::crystal_maker() const {
  auto maker = make_handle<CrystalMaker>(*cell_, THandle<MoleculeList>(), THandle<MoleculeList>(),
                                         molecules_);
  maker->mutable_details() = structure_details_;
  return maker;
}

THandle<CrystalStructureDatabaseEntry> MolFile::database_entry() const {
  return THandle<CrystalStructureDatabaseEntry>(
      make_handle<SDfileDatabaseEntry>(identifier_, crystal_maker(), tags_));
}

}  // namespace kora
