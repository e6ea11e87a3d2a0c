// libFuzzer harness for the small text parsers: numbers with uncertainties, symmetry
// operators, space-group symbols and line reading.

#include <cstddef>
#include <cstdint>
#include <exception>
#include <sstream>
#include <string>
#include <vector>

#include "kora/kernel/spacegroup.hpp"
#include "kora/kernel/string_functions.hpp"
#include "kora/kernel/symmetry.hpp"
#include "kora/kernel/uncertain_value.hpp"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string const text(reinterpret_cast<char const*>(data), size);
  bool ok = false;
  kora::UncertainValue::parse(text, &ok);
  kora::Uncertainty::parse(text, &ok).round_down(19);
  kora::string_to_double(text, ok);
  try {
    kora::CrystalSymmetryTransformation const op(text);
    (void)op.to_string();
  } catch (std::exception const&) {
  }
  if (size < 64) {
    kora::Spacegroup const group(text);
    (void)group.centring();
  }
  std::istringstream in(text);
  std::string line;
  std::vector<std::string> fields;
  while (kora::getline(in, line))
    kora::split(line, fields, " \t");
  return 0;
}
