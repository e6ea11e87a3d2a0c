#include "kora/kernel/handle.hpp"

#include <stdexcept>

namespace kora {

void THandleCommon::null_handle_error() {
  throw std::logic_error("THandle: null handle dereferenced");
}

}  // namespace kora
