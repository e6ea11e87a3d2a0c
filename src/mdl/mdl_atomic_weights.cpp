// Standard atomic weights rounded to integers, the reference the V2000 mass-difference
// column counts from. Elements without a stable isotope take the mass number of their
// longest-lived isotope.

#include <array>

#include "mdl/mdl_text.hpp"

namespace kora::detail {

namespace {

constexpr std::array<short, 119> rounded_weights = {
    0,                                                                // unset
    1,   4,                                                           // H He
    7,   9,   11,  12,  14,  16,  19,  20,                            // Li-Ne
    23,  24,  27,  28,  31,  32,  35,  40,                            // Na-Ar
    39,  40,  45,  48,  51,  52,  55,  56,  59,  59,  64,  65,        // K-Zn
    70,  73,  75,  79,  80,  84,                                      // Ga-Kr
    85,  88,  89,  91,  93,  96,  98,  101, 103, 106, 108, 112,       // Rb-Cd
    115, 119, 122, 128, 127, 131,                                     // In-Xe
    133, 137, 139, 140, 141, 144, 145, 150, 152, 157, 159, 163, 165,  // Cs-Ho
    167, 169, 173, 175, 178, 181, 184, 186, 190, 192, 195, 197, 201,  // Er-Hg
    204, 207, 209, 209, 210, 222,                                     // Tl-Rn
    223, 226, 227, 232, 231, 238, 237, 244, 243, 247, 247, 251, 252,  // Fr-Es
    257, 258, 259, 266, 267, 268, 269, 270, 269, 278, 281, 282, 285,  // Fm-Cn
    286, 289, 290, 293, 294, 294};                                    // Nh-Og

}  // namespace

int rounded_atomic_weight(int atomic_number) noexcept {
  if (atomic_number < 1 || atomic_number >= static_cast<int>(rounded_weights.size())) return 0;
  return rounded_weights[static_cast<std::size_t>(atomic_number)];
}

}  // namespace kora::detail
