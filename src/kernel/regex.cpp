#include "kora/kernel/regex.hpp"

#include <regex.h>

#include <stdexcept>

namespace kora {

struct Regex::Compiled {
  regex_t re{};
  ~Compiled() { regfree(&re); }
};

namespace {

int compile_flags(unsigned int flags) {
  int cflags = REG_EXTENDED;
  if (flags & Regex::icase) cflags |= REG_ICASE;
  if (flags & Regex::newline) cflags |= REG_NEWLINE;
  return cflags;
}

int search_flags(unsigned int flags) {
  int eflags = 0;
  if (flags & Regex::not_bol) eflags |= REG_NOTBOL;
  if (flags & Regex::not_eol) eflags |= REG_NOTEOL;
  return eflags;
}

}  // namespace

std::size_t RegexResults::position(std::size_t i) const noexcept {
  return matched(i) ? parts_[i].position : std::string::npos;
}

std::size_t RegexResults::length(std::size_t i) const noexcept {
  return matched(i) ? parts_[i].length : 0;
}

std::string RegexResults::str(std::size_t i) const {
  return matched(i) ? subject_.substr(parts_[i].position, parts_[i].length) : std::string();
}

Regex::Regex(std::string const& pattern, unsigned int flags)
    : pattern_(pattern), flags_(flags), compiled_(std::make_unique<Compiled>()) {
  int const rc = regcomp(&compiled_->re, pattern_.c_str(), compile_flags(flags_));
  if (rc != 0) {
    char message[256];
    regerror(rc, &compiled_->re, message, sizeof message);
    // regcomp leaves nothing to free when it fails.
    compiled_->re = regex_t{};
    compiled_.reset();
    throw std::invalid_argument("Regex: invalid pattern \"" + pattern_ + "\": " + message);
  }
}

Regex::Regex(Regex const& other) : Regex(other.pattern_, other.flags_) {}

Regex& Regex::operator=(Regex const& other) {
  if (this != &other) *this = Regex(other);
  return *this;
}

Regex::Regex(Regex&&) noexcept = default;
Regex& Regex::operator=(Regex&&) noexcept = default;
Regex::~Regex() = default;

bool Regex::search(std::string const& text, RegexResults& results, unsigned int flags) const {
  results.parts_.clear();
  results.subject_.clear();
  if (!compiled_) return false;
  std::vector<regmatch_t> matches(compiled_->re.re_nsub + 1);
  if (regexec(&compiled_->re, text.c_str(), matches.size(), matches.data(), search_flags(flags)) !=
      0) {
    return false;
  }
  results.subject_ = text;
  results.parts_.reserve(matches.size());
  for (regmatch_t const& m : matches) {
    RegexResults::Part part;
    if (m.rm_so >= 0) {
      part.position = static_cast<std::size_t>(m.rm_so);
      part.length = static_cast<std::size_t>(m.rm_eo - m.rm_so);
      part.matched = true;
    }
    results.parts_.push_back(part);
  }
  return true;
}

bool Regex::search(std::string const& text, unsigned int flags) const {
  if (!compiled_) return false;
  return regexec(&compiled_->re, text.c_str(), 0, nullptr, search_flags(flags)) == 0;
}

}  // namespace kora
