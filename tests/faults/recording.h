#pragma once

// What the agent did to its files, in order, for replaying it with the power cut in between: a line
// an operation, its words apart by tabs. Open descriptors are named by their numbers.

#include <cstddef>
#include <initializer_list>
#include <string_view>

namespace pelmar::test {

// Nothing without the variable PELMAR_RECORD.
void record(std::initializer_list<std::string_view> words);

// The same with `bytes` in hexadecimal behind `words`.
void recordBytes(std::initializer_list<std::string_view> words, const void* bytes,
                 std::size_t length);

}  // namespace pelmar::test
