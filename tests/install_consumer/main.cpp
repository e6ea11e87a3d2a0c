// Uses the installed library through its public headers only.
#include <kora/kernel/element.hpp>
#include <kora/kernel/string_functions.hpp>

#include <iostream>
#include <sstream>

int main() {
  std::istringstream in("Ca\r\nD\rXx");
  std::string line;
  int set = 0;
  while (kora::getline(in, line))
    set += kora::Element(line).is_set() ? 1 : 0;
  std::cout << set << "\n";
  return set == 2 ? 0 : 1;
}
