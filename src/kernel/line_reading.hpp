#pragma once

// Line reading for entry indexes, which need the position of every line: counting the bytes
// each line takes spares a tellg (a system call on file streams) per line.

#include <cstddef>
#include <istream>
#include <string>

namespace kora::detail {

// kora::getline, also giving the number of bytes the line took in the stream, its line end
// included.
std::istream& getline_counted(std::istream& is, std::string& line, std::size_t& consumed);

}  // namespace kora::detail
