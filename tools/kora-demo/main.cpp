// A small tour of the kernel's text handling: reads a text file whatever its line ends
// (LF, CR LF or CR), splits each line into fields and says which fields are element
// symbols, integers or values with standard uncertainties.

#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "kora/kernel/element.hpp"
#include "kora/kernel/string_functions.hpp"
#include "kora/kernel/uncertain_value.hpp"

namespace {

std::string describe(std::string const& field) {
  kora::Element const element(field);
  if (element.is_set()) {
    return "element " + element.symbol() + " (Z=" + std::to_string(element.atomic_number()) +
           ", covalent radius " + kora::UncertainValue(element.covalent_radius()).to_string() +
           " A)";
  }
  bool ok = false;
  int const i = kora::string_to_int(field, ok);
  if (ok) return "integer " + kora::int_to_string(i);
  kora::UncertainValue const v = kora::UncertainValue::parse(field, &ok);
  if (ok && !v.uncertainty().is_zero()) {
    return "value " + kora::UncertainValue(v.value()).to_string() + " with uncertainty " +
           v.uncertainty().to_string();
  }
  if (ok) return "number " + v.to_string();
  return "text";
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: kora-demo FILE\n";
    return 2;
  }
  std::ifstream in(argv[1], std::ios::binary);
  if (!in) {
    std::cerr << "kora-demo: cannot open " << argv[1] << "\n";
    return 1;
  }
  std::string line;
  std::vector<std::string> fields;
  int number = 0;
  while (kora::getline(in, line)) {
    ++number;
    std::cout << "line " << number << ": \"" << line << "\"\n";
    kora::split(line, fields, " \t");
    for (std::string const& field : fields) {
      std::cout << "    " << kora::left_justify(field, 12) << describe(field) << "\n";
    }
  }
  std::cout << number << " lines\n";
  return 0;
}
