#include "kora/mol2/mol2_crysin.hpp"

#include <iomanip>
#include <istream>
#include <ostream>
#include <string_view>

#include "kora/kernel/string_functions.hpp"

namespace kora {

namespace {

constexpr double radians_to_degrees = 57.29577951308232;
constexpr double degrees_to_radians = 0.017453292519943295;

// Row n lists the settings of space group n, blank-separated; the rows end early where the
// group has no further settings.
constexpr std::string_view setting_rows[] = {"",
                                             "P1",
                                             "P-1",
                                             "P2 --- P112 ---",
                                             "P21 --- P1121 ---",
                                             "C2 A2 B112 A112",
                                             "Pm --- P11m ---",
                                             "Pc Pa P11b P11a",
                                             "Cm Am B11m A11m",
                                             "Cc Aa B11b A11a",
                                             "P2/m --- P112/m ---",
                                             "P21/m --- P1121/m ---",
                                             "C2/m A2/m B112/m A112/m",
                                             "P2/c P2/a P112/b P112/a",
                                             "P21/c P21/a P1121/b P1121/a",
                                             "C2/c A2/a B112/b A112/a",
                                             "P222 --- --- --- --- ---",
                                             "P2221 P2122 P2212 --- --- ---",
                                             "P21212 P22121 P21221 --- --- ---",
                                             "P212121 --- --- --- --- ---",
                                             "C2221 A2122 B2212 --- --- ---",
                                             "C222 A222 B222 --- --- ---",
                                             "F222 --- --- --- --- ---",
                                             "I222 --- --- --- --- ---",
                                             "I212121 --- --- --- --- ---",
                                             "Pmm2 P2mm Pm2m --- --- ---",
                                             "Pmc21 P21ma Pb21m Pm21b Pcm21 P21am",
                                             "Pcc2 P2aa Pb2b --- --- ---",
                                             "Pma2 P2mb Pc2m Pm2a Pbm2 P2cm",
                                             "Pca21 P21ab Pc21b Pb21a Pbc21 P21ca",
                                             "Pnc2 P2na Pb2n Pn2b Pcn2 P2an",
                                             "Pmn21 P21mn Pn21m Pm21n Pnm21 P21nm",
                                             "Pba2 P2cb Pc2a --- --- ---",
                                             "Pna21 P21nb Pc21n Pn21a Pbn21 P21cn",
                                             "Pnn2 P2nn Pn2n --- --- ---",
                                             "Cmm2 A2mm Bm2m --- --- ---",
                                             "Cmc21 A21ma Bb21m Bm21b Ccm21 A21am",
                                             "Ccc2 A2aa Bb2b --- --- ---",
                                             "Amm2 B2mm Cm2m Am2m Bmm2 C2mm",
                                             "Abm2 B2cm Cm2a Ac2m Bma2 C2mb",
                                             "Ama2 B2mb Cc2m Am2a Bbm2 C2cm",
                                             "Aba2 B2cb Cc2a Ac2a Bba2 C2cb",
                                             "Fmm2 F2mm Fm2m --- --- ---",
                                             "Fdd2 F2dd Fd2d --- --- ---",
                                             "Imm2 I2mm Im2m --- --- ---",
                                             "Iba2 I2cb Ic2a --- --- ---",
                                             "Ima2 I2mb Ic2m Im2a Ibm2 I2cm",
                                             "Pmmm --- --- --- --- ---",
                                             "Pnnn --- --- --- --- ---",
                                             "Pccm Pmaa Pbmb --- --- ---",
                                             "Pban Pncb Pcna --- --- ---",
                                             "Pmma Pbmm Pmcm Pmam Pmmb Pcmm",
                                             "Pnna Pbnn Pncn Pnan Pnnb Pcnn",
                                             "Pmna Pbmn Pncm Pman Pnmb Pcnm",
                                             "Pcca Pbaa Pbcb Pbab Pccb Pcaa",
                                             "Pbam Pmcb Pcma --- --- ---",
                                             "Pccn Pnaa Pbnb --- --- ---",
                                             "Pbcm Pmca Pbma Pcmb Pcam Pmab",
                                             "Pnnm Pmnn Pnmn --- --- ---",
                                             "Pmmn Pnmm Pmnm --- --- ---",
                                             "Pbcn Pnca Pbna Pcnb Pcan Pnab",
                                             "Pbca --- Pcab --- --- ---",
                                             "Pnma Pbnm Pmcn Pnam Pmnb Pcmn",
                                             "Cmcm Amma Bbmm Bmmb Ccmm Amam",
                                             "Cmca Abma Bbcm Bmab Ccmb Acam",
                                             "Cmmm Ammm Bmmm --- --- ---",
                                             "Cccm Amaa Bbmb --- --- ---",
                                             "Cmma Abmm Bmcm Bmam Cmmb Acmm",
                                             "Ccca Abaa Bbcb Bbab Cccb Acaa",
                                             "Fmmm --- --- --- --- ---",
                                             "Fddd --- --- --- --- ---",
                                             "Immm --- --- --- --- ---",
                                             "Ibam Imcb Icma --- --- ---",
                                             "Ibca --- Icab --- --- ---",
                                             "Imma Ibmm Imcm Imam Immb Icmm",
                                             "P4 C4",
                                             "P41 C41",
                                             "P42 C42",
                                             "P43 C43",
                                             "I4 F4",
                                             "I41 F41",
                                             "P-4 C-4",
                                             "I-4 F-4",
                                             "P4/m C4/m",
                                             "P42/m C42/m",
                                             "P4/n C4/a",
                                             "P42/n C42/a",
                                             "I4/m F4/m",
                                             "I41/a F41/d",
                                             "P422 C422",
                                             "P4212 C4221",
                                             "P4122 C4122",
                                             "P41212 C41221",
                                             "P4222 C4222",
                                             "P42212 C42221",
                                             "P4322 C4322",
                                             "P43212 C43221",
                                             "I422 F422",
                                             "I4122 F4122",
                                             "P4mm C4mm",
                                             "P4bm C4mb",
                                             "P42cm C42mc",
                                             "P42nm C42mn",
                                             "P4cc C4cc",
                                             "P4nc C4cn",
                                             "P42mc C42cm",
                                             "P42bc C42cb",
                                             "I4mm F4mm",
                                             "I4cm F4mc",
                                             "I41md F41dm",
                                             "I41cd F41dc",
                                             "P-42m C-4m2",
                                             "P-42c C-4c2",
                                             "P-421m C-4m21",
                                             "P-421c C-4c21",
                                             "P-4m2 C-42m",
                                             "P-4c2 C-42c",
                                             "P-4b2 C-42b",
                                             "P-4n2 C-42b",
                                             "I-4m2 F-42m",
                                             "I-4c2 F-42c",
                                             "I-42m F-4m2",
                                             "I-42d F-4d2",
                                             "P4/mmm C4/mmm",
                                             "P4/mcc C4/mcc",
                                             "P4/nbm C4/amb",
                                             "P4/nnc C4/acn",
                                             "P4/mbm C4/mmb",
                                             "P4/mnc C4/mcn",
                                             "P4/nmm C4/amm",
                                             "P4/ncc C4/acc",
                                             "P42/mmc C42/mcm",
                                             "P42/mcm C42/mmc",
                                             "P42/nbc C42/acb",
                                             "P42/nnm C42/amn",
                                             "P42/mbc C42/mbc",
                                             "P42/mnm C42/mmn",
                                             "P42/nmc C42/acm",
                                             "P42/ncm C42/amc",
                                             "I4/mmm F4/mmm",
                                             "I4/mcm F4/mmc",
                                             "I41/amd F41/ddm",
                                             "I41/acd F41/ddc",
                                             "P3",
                                             "P31",
                                             "P32",
                                             "R3",
                                             "P-3",
                                             "R-3",
                                             "P312",
                                             "P321",
                                             "P3112",
                                             "P3121",
                                             "P3212",
                                             "P3221",
                                             "R32",
                                             "P3m1",
                                             "P31m",
                                             "P3c1",
                                             "P31c",
                                             "R3m",
                                             "R3c",
                                             "P-31m",
                                             "P-31c",
                                             "P-3m1",
                                             "P-3c1",
                                             "R-3m",
                                             "R-3c",
                                             "P6",
                                             "P61",
                                             "P65",
                                             "P62",
                                             "P64",
                                             "P63",
                                             "P-6",
                                             "P6/m",
                                             "P63/m",
                                             "P622",
                                             "P6122",
                                             "P6522",
                                             "P6222",
                                             "P6422",
                                             "P6322",
                                             "P6mm",
                                             "P6cc",
                                             "P63cm",
                                             "P63mc",
                                             "P-6m2",
                                             "P-6c2",
                                             "P-62m",
                                             "P-62c",
                                             "P6/mmm",
                                             "P6/mcc",
                                             "P63/mcm",
                                             "P63/mmc",
                                             "P23",
                                             "F23",
                                             "I23",
                                             "P213",
                                             "I213",
                                             "Pm3",
                                             "Pn3",
                                             "Fm3",
                                             "Fd3",
                                             "Im3",
                                             "Pa3",
                                             "Ia3",
                                             "P432",
                                             "P4232",
                                             "F432",
                                             "F4132",
                                             "I432",
                                             "P4332",
                                             "P4132",
                                             "I4132",
                                             "P-43m",
                                             "F-43m",
                                             "I-43m",
                                             "P-43n",
                                             "F-43c",
                                             "I-43d",
                                             "Pm3m",
                                             "Pn3n",
                                             "Pm3n",
                                             "Pn3m",
                                             "Fm3m",
                                             "Fm3c",
                                             "Fd3m",
                                             "Fd3c",
                                             "Im3m",
                                             "Ia3d"};

// The extra numbers of the record for P21/n and the rhombohedral groups on hexagonal axes.
constexpr std::string_view extra_numbers[] = {"P21/n", "R3",  "R-3",  "R32",
                                              "R3m",   "R3c", "R-3m", "R-3c"};

// Rhombohedral groups: the plain symbol (hexagonal axes) and its rhombohedral-axes form.
constexpr std::string_view rhombohedral[][2] = {
    {"R3", "R3r"},   {"R-3", "R-3r"},   {"R32", "R32r"},  {"R3m", "R3mr"},
    {"R3c", "R3cr"}, {"R-3m", "R-3mr"}, {"R-3c", "R-3cr"}};

}  // namespace

Mol2Crysin::SettingTable const& Mol2Crysin::setting_table() {
  static SettingTable const table = [] {
    SettingTable t;
    for (std::size_t n = 0; n < t.size(); ++n) {
      std::vector<std::string> symbols;
      split(setting_rows[n], symbols, " ");
      for (std::size_t k = 0; k < 6; ++k)
        t[n][k] = k < symbols.size() ? symbols[k] : "...";
    }
    return t;
  }();
  return table;
}

Mol2Crysin::Mol2Crysin(std::istream& is) {
  set_cell_(Cell());
  read(is);
}

Mol2Crysin::Mol2Crysin(Cell const& cell) {
  set_cell_(cell);
}

void Mol2Crysin::set_cell_(Cell const& cell) {
  a_ = cell.a();
  b_ = cell.b();
  c_ = cell.c();
  alpha_ = cell.alpha().radians() * radians_to_degrees;
  beta_ = cell.beta().radians() * radians_to_degrees;
  gamma_ = cell.gamma().radians() * radians_to_degrees;
  convert_from_kora(cell.spacegroup());
}

void Mol2Crysin::read(std::istream& is) {
  is >> a_ >> b_ >> c_ >> alpha_ >> beta_ >> gamma_ >> number_ >> setting_;
}

void Mol2Crysin::print(std::ostream& os) const {
  if (setting_ == 0) return;
  os << std::fixed << std::setprecision(4) << std::right;
  for (double v : {a_, b_, c_, alpha_, beta_, gamma_})
    os << std::setw(10) << v;
  os << std::setw(6) << number_ << std::setw(6) << setting_;
}

Cell Mol2Crysin::cell() const {
  return Cell(a_, b_, c_, Angle(alpha_ * degrees_to_radians), Angle(beta_ * degrees_to_radians),
              Angle(gamma_ * degrees_to_radians), convert_to_kora());
}

void Mol2Crysin::convert_from_kora(Spacegroup const& spacegroup) {
  number_ = spacegroup.number();
  setting_ = 0;
  std::string name = spacegroup.symbol();
  if (number_ == 0) return;
  if (number_ > 230) {
    number_ = 0;
    return;
  }
  if (name == "P21/n") {
    number_ = 231;
    setting_ = 1;
    return;
  }
  for (std::size_t i = 0; i < std::size(rhombohedral); ++i) {
    if (name == rhombohedral[i][0]) {
      number_ = 232 + static_cast<int>(i);
      setting_ = 1;
      return;
    }
    if (name == rhombohedral[i][1]) name = rhombohedral[i][0];
  }
  if (number_ < 1) return;
  auto const& row = setting_table()[static_cast<std::size_t>(number_)];
  for (std::size_t k = 0; k < row.size(); ++k) {
    if (name == row[k]) {
      setting_ = static_cast<int>(k) + 1;
      return;
    }
  }
}

Spacegroup Mol2Crysin::convert_to_kora() const {
  if (number_ == 0) return Spacegroup();
  int const s = setting_ == 0 ? 1 : setting_;
  std::string name = "Unknown";
  if (number_ >= 1 && number_ <= 230) {
    if (s >= 1 && s <= 6)
      name = setting_table()[static_cast<std::size_t>(number_)][static_cast<std::size_t>(s - 1)];
    for (auto const& r : rhombohedral) {
      if (name == r[0]) {
        name = r[1];
        break;
      }
    }
  } else if (number_ >= 231 && number_ <= 238 && s == 1) {
    name = extra_numbers[number_ - 231];
  }
  return Spacegroup(name, -1, Spacegroup::unknown_system);
}

bool Mol2Crysin::convert_from_kora_exactly(Spacegroup const& spacegroup) {
  convert_from_kora(spacegroup);
  if (setting_ != 0 && convert_to_kora() == spacegroup) return true;
  auto const states = [&](int number, int setting) {
    number_ = number;
    setting_ = setting;
    return convert_to_kora() == spacegroup;
  };
  int const n = spacegroup.number();
  if (n >= 1 && n <= 230) {
    auto const& row = setting_table()[static_cast<std::size_t>(n)];
    for (std::size_t k = 0; k < row.size(); ++k) {
      if (row[k] == "---" || row[k] == "...") continue;
      if (states(n, static_cast<int>(k) + 1)) return true;
    }
  }
  for (int extra = 231; extra <= 238; ++extra) {
    if (states(extra, 1)) return true;
  }
  number_ = n >= 1 && n <= 230 ? n : 0;
  setting_ = 0;
  return false;
}

bool Mol2Crysin::operator==(Mol2Crysin const& o) const {
  auto const close = [](double x, double y) { return x - 0.001 < y && y - 0.001 < x; };
  return close(a_, o.a_) && close(b_, o.b_) && close(c_, o.c_) && close(alpha_, o.alpha_) &&
         close(beta_, o.beta_) && close(gamma_, o.gamma_) && number_ == o.number_ &&
         setting_ == o.setting_;
}

}  // namespace kora
