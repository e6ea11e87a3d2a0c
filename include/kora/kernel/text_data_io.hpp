#pragma once

/// \file
/// File-system questions that readers and format descriptors ask.

#include <string>

namespace kora {

class TextDataIO {
 public:
  /// Whether a file of that name exists (a directory is not a file). Never throws.
  static bool file_exists(std::string const& file_name) noexcept;
};

}  // namespace kora
