// PDB record names, and the records PdbFile::read takes in whole: CRYST1 (the cell and space
// group) and the matrix rows of SCALEn and ORIGXn.

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>
#include <string_view>

#include "kora/kernel/string_functions.hpp"
#include "pdb/pdb_columns.hpp"
#include "pdb/pdb_reading.hpp"

namespace kora::detail {

namespace {

// Equal within 1e-7, the tolerance of the rhombohedral tests.
bool nearly_equal(double x, double y) {
  return x - 1e-7 <= y && y - 1e-7 <= x;
}

bool within(double value, double low, double high) {
  return low <= value && value <= high;
}

constexpr double degrees_to_radians = 0.017453292519943295;

}  // namespace

PdbRecord record_of(std::string_view line) {
  std::string_view const name = line.substr(0, line.find_first_of(" \t"));
  switch (name.size()) {
    case 3:
      if (name == "END") return PdbRecord::end;
      break;
    case 4:
      if (name == "ATOM") return PdbRecord::atom;
      break;
    case 5:
      if (name == "MODEL") return PdbRecord::model;
      break;
    case 6:
      if (name == "HETATM") return PdbRecord::hetatm;
      if (name == "CONECT") return PdbRecord::conect;
      if (name == "ANISOU") return PdbRecord::anisou;
      if (name == "HEADER") return PdbRecord::header;
      if (name == "CRYST1") return PdbRecord::cryst1;
      if (name == "ENDMDL") return PdbRecord::endmdl;
      if (name == "SCALE1") return PdbRecord::scale1;
      if (name == "SCALE2") return PdbRecord::scale2;
      if (name == "SCALE3") return PdbRecord::scale3;
      if (name == "ORIGX1" || name == "ORIGX2" || name == "ORIGX3") return PdbRecord::origx;
      break;
    default:
      break;
  }
  return PdbRecord::other;
}

PdbRecord standard_record_of(std::string_view line) {
  std::string_view name = line.substr(0, std::min<std::size_t>(line.size(), 6));
  while (!name.empty() && (name.back() == ' ' || name.back() == '\t' || name.back() == '\r'))
    name.remove_suffix(1);
  return record_of(name);
}

Cell read_cryst1(std::string_view line, std::size_t symbol_width) {
  if (line.size() < 54) throw std::runtime_error("PdbFile::read CRYST1 line is incomplete");
  double const a = leading_real(line.substr(6, 9));
  double const b = leading_real(line.substr(15, 9));
  double const c = leading_real(line.substr(24, 9));
  double const alpha = leading_real(line.substr(33, 7));
  double const beta = leading_real(line.substr(40, 7));
  double const gamma = leading_real(line.substr(47, 7));
  std::string symbol = line.size() < 56 ? "P1" : trim(line.substr(55, symbol_width), " \t");
  if (!symbol.empty() && symbol.front() == 'R' && symbol.back() != 'r') {
    // An R group on hexagonal axes keeps its symbol; on rhombohedral axes it gets the 'r'.
    bool const hexagonal = nearly_equal(a, b) && within(alpha, 89.9999999, 90 + 1e-7) &&
                           within(beta, 89.9999999, 90 + 1e-7) &&
                           within(gamma, 119.9999999, 120 + 1e-7);
    bool const rhombohedral = nearly_equal(a, b) && nearly_equal(b, c) &&
                              nearly_equal(alpha, beta) && nearly_equal(beta, gamma);
    if (rhombohedral) {
      symbol += 'r';
    } else if (!hexagonal) {
      throw std::runtime_error("PdbFile::read(): Space group and unit cell inconsistent.");
    }
  }
  if (!symbol.empty() && symbol.front() == 'H') symbol.front() = 'R';
  return Cell(a, b, c, Angle(alpha * degrees_to_radians), Angle(beta * degrees_to_radians),
              Angle(gamma * degrees_to_radians),
              Spacegroup(symbol, -1, Spacegroup::unknown_system));
}

std::array<double, 4> read_matrix_row(std::string_view line) {
  return {leading_real(column(line, 10, 10)), leading_real(column(line, 20, 10)),
          leading_real(column(line, 30, 10)), leading_real(column(line, 45, 10))};
}

}  // namespace kora::detail
