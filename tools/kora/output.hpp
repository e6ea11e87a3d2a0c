#pragma once

// Writing an output file so that a failure leaves an existing file as it was.

#include <fstream>
#include <ostream>
#include <string>

#include "sources.hpp"

namespace kora::cli {

// A file that could not be written.
struct OutputFailure : Failure {
  using Failure::Failure;
};

// Writes into a temporary file beside the target and renames it over the target only when
// everything was written. Standard output, and targets that are not regular files (devices
// such as /dev/full or /dev/stdout, named pipes), are written directly: renaming over them
// would replace the device or pipe itself.
// Failures throw OutputFailure with the target's name and the reason.
class Output {
 public:
  // "-" is standard output.
  explicit Output(std::string const& target);
  ~Output();
  Output(Output const&) = delete;
  Output& operator=(Output const&) = delete;

  std::ostream& stream();
  // Throws when a write has failed.
  void check();
  // Flushes, closes and puts the file in place.
  void commit();

 private:
  std::string target_;
  std::string path_;       // the file replaced: the target, or the file its link leads to
  std::string temporary_;  // empty when the target is written directly
  std::ofstream file_;
};

}  // namespace kora::cli
