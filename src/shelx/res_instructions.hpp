#pragma once

// The instruction names of RES files as the reader tells them from atom lines: those it passes
// over and those it acts on. The writer keeps atom names from spelling any of them.

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <iterator>
#include <string_view>

namespace kora::detail {

// Instructions that carry nothing a structure needs.
inline constexpr std::string_view res_ignored_instructions[] = {
    "ACTA", "ANIS", "BASF", "BIND", "BLOC", "BOND", "BUMP", "CGLS", "CHIV", "CONF", "CONN", "DAMP",
    "DANG", "DEFS", "DELU", "DFIX", "DISP", "EADP", "EQIV", "EXTI", "EXYZ", "FEND", "FLAT", "FMAP",
    "FRAG", "FREE", "GRID", "HFIX", "HOPE", "HTAB", "ISOR", "LAUE", "LIST", "MERG", "MOLE", "MORE",
    "MOVE", "MPLA", "NCSY", "OMIT", "PLAN", "RTAB", "SADI", "SAME", "SHEL", "SIMU", "SIZE", "SPEC",
    "STIR", "SUMP", "SWAT", "TEMP", "TIME", "TWIN", "UNIT", "WGHT", "WPDB"};

// Instructions the reader acts on (besides END and REM).
inline constexpr std::string_view res_read_instructions[] = {
    "AFIX", "CELL", "FVAR", "HKLF", "LATT", "PART", "RESI", "SFAC", "SYMM", "TITL", "ZERR"};

template <std::size_t N>
bool res_list_holds(std::string_view const (&list)[N], std::string_view head) {
  return std::find(std::begin(list), std::end(list), head) != std::end(list);
}

// Whether the first four characters of a line (upper case) name an instruction of either list.
inline bool is_res_instruction(std::string_view head) {
  return res_list_holds(res_ignored_instructions, head) ||
         res_list_holds(res_read_instructions, head);
}

// Instructions and atom names start with a letter.
inline bool is_res_letter(char c) {
  return std::isalpha(static_cast<unsigned char>(c)) != 0;
}

}  // namespace kora::detail
