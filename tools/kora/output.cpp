#include "output.hpp"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>

namespace kora::cli {

namespace fs = std::filesystem;

Output::Output(std::string const& target) : target_(target) {
  if (target_ == "-") return;
  std::error_code ec;
  fs::file_status const status = fs::status(target_, ec);  // follows symbolic links
  if (fs::exists(status) && !fs::is_regular_file(status)) {
    file_.open(target_, std::ios::binary);
    if (!file_) throw OutputFailure(target_ + ": cannot write: " + std::strerror(errno));
    return;
  }
  // Through a symbolic link, the file it leads to is replaced and the link kept.
  fs::path path = target_;
  if (fs::is_symlink(fs::symlink_status(target_, ec))) {
    fs::path const real = fs::canonical(target_, ec);
    if (!ec) path = real;
  }
  path_ = path.string();
  fs::path const dir = fs::absolute(path).parent_path();
  std::string pattern = (dir / (path.filename().string() + ".kora-XXXXXX")).string();
  int const fd = mkstemp(pattern.data());
  if (fd < 0) throw OutputFailure(target_ + ": cannot write: " + std::strerror(errno));
  close(fd);
  temporary_ = pattern;
  file_.open(temporary_, std::ios::binary | std::ios::trunc);
  if (!file_) throw OutputFailure(target_ + ": cannot write: " + std::strerror(errno));
}

Output::~Output() {
  if (!temporary_.empty()) std::remove(temporary_.c_str());
}

std::ostream& Output::stream() {
  return target_ == "-" ? std::cout : file_;
}

void Output::check() {
  if (!stream()) throw OutputFailure(target_ + ": write error: " + std::strerror(errno));
}

void Output::commit() {
  stream().flush();
  check();
  if (target_ == "-") return;
  file_.close();
  if (!file_) throw OutputFailure(target_ + ": write error: " + std::strerror(errno));
  if (temporary_.empty()) return;  // written directly
  std::error_code ec;
  fs::rename(temporary_, path_, ec);
  if (ec) throw OutputFailure(target_ + ": cannot write: " + ec.message());
  temporary_.clear();
}

}  // namespace kora::cli
