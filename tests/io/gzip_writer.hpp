#pragma once

// Writing gzip and BGZF data with zlib, for the tests, fuzzers and benchmarks that read them.

#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

namespace kora::test {

// Deflate data of `text`: one gzip member (window_bits 31) or raw (-15); empty when zlib
// refuses the parameters.
inline std::string deflated(std::string_view text, int window_bits, int level = 6) {
  z_stream s{};
  if (deflateInit2(&s, level, Z_DEFLATED, window_bits, 8, Z_DEFAULT_STRATEGY) != Z_OK) return {};
  std::string out(deflateBound(&s, static_cast<uLong>(text.size())), '\0');
  s.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
  s.avail_in = static_cast<uInt>(text.size());
  s.next_out = reinterpret_cast<Bytef*>(out.data());
  s.avail_out = static_cast<uInt>(out.size());
  deflate(&s, Z_FINISH);
  out.resize(s.total_out);
  deflateEnd(&s);
  return out;
}

inline std::string gzip(std::string_view text) {
  return deflated(text, 31);
}

inline void put_little_endian(std::string& out, std::uint32_t value, int bytes) {
  for (int k = 0; k < bytes; ++k)
    out += static_cast<char>((value >> (8 * k)) & 0xff);
}

// BGZF as bgzip writes it: members of at most `block` bytes of text, each with the "BC"
// subfield giving its compressed size less one, then the empty end-of-file block.
inline std::string bgzf(std::string_view text, std::size_t block = 65280) {
  std::string out;
  for (std::size_t at = 0;; at += block) {
    std::string_view const piece = text.substr(std::min(at, text.size()), block);
    std::string const data = deflated(piece, -15);
    out.append("\x1f\x8b\x08\x04\0\0\0\0\0\xff\x06\0BC\x02\0", 16);
    put_little_endian(out, static_cast<std::uint32_t>(data.size() + 25), 2);
    out += data;
    auto const crc =
        crc32(0, reinterpret_cast<Bytef const*>(piece.data()), static_cast<uInt>(piece.size()));
    put_little_endian(out, static_cast<std::uint32_t>(crc), 4);
    put_little_endian(out, static_cast<std::uint32_t>(piece.size()), 4);
    if (piece.empty()) return out;
  }
}

}  // namespace kora::test
