#include "kora/kernel/text_data_io.hpp"

#include <filesystem>
#include <system_error>

namespace kora {

bool TextDataIO::file_exists(std::string const& file_name) noexcept {
  std::error_code ec;
  std::filesystem::file_status const status = std::filesystem::status(file_name, ec);
  return !ec && std::filesystem::exists(status) && !std::filesystem::is_directory(status);
}

}  // namespace kora
