#pragma once

/// \file
/// Chemical elements. An Element is a small value holding a code: codes 1 to 118 are the
/// atomic numbers, and deuterium has a code of its own (symbol "D", atomic number 1) so that
/// readers can keep it apart from hydrogen. Code 0 is the unset element, which has an empty
/// symbol; unknown symbols and atomic numbers give the unset element.

#include <string>
#include <string_view>

namespace kora {

class Element {
 public:
  static constexpr int unset_code = 0;
  static constexpr int max_atomic_number = 118;
  static constexpr int deuterium_code = 119;

  Element() noexcept = default;
  /// From a symbol in element case ("C", "Ca", "D"); anything else is the unset element.
  explicit Element(std::string const& symbol) noexcept;
  explicit Element(char const* symbol) noexcept;
  explicit Element(std::string_view symbol) noexcept;
  /// From an atomic number 1..118; anything else is the unset element.
  explicit Element(int atomic_number) noexcept;

  static Element from_kora_code(int code) noexcept;

  /// The code of a symbol, which must be in element case ("Ca" is calcium, "CA" and "ca" are
  /// nothing); 0 for anything that is not a symbol.
  static int atomic_symbol_to_kora_code(std::string_view symbol) noexcept;
  /// The code of an atomic number; 0 outside 1..118.
  static int atomic_number_to_kora_code(int atomic_number) noexcept;

  bool is_set() const noexcept { return code_ != unset_code; }
  int kora_code() const noexcept { return code_; }
  /// "" for the unset element.
  std::string const& symbol() const noexcept;
  /// 1 for deuterium; 0 for the unset element.
  int atomic_number() const noexcept;
  bool is_hydrogen() const noexcept { return code_ == 1 || code_ == deuterium_code; }
  /// Single-bond covalent radius in angstroms, for bond detection; 0 for the unset element.
  double covalent_radius() const noexcept;

  friend bool operator==(Element const&, Element const&) noexcept = default;

 private:
  int code_ = unset_code;
};

}  // namespace kora
