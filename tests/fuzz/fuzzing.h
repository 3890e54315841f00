#pragma once

// What every fuzzer is made of. A fuzzer ends the process where it finds what must not be; the
// two ends that the agent has on purpose (platform/fatal.h) come as exceptions, so that an input
// that asks for one is an input like any other.

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

// One input: given by libFuzzer, or by the program that replays a corpus.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace pelmar::fuzz {

// A negative stored offset.
struct NegativeOffset : std::exception {};
// A token count beyond 64 bits.
struct EndlessCount : std::exception {};

// Ends the process, and names the law that was broken, unless `holds`.
void require(bool holds, const char* law);

inline std::string_view textOf(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

// What stands between the lines "----" of an input that is made of several texts; at least one.
std::vector<std::string_view> partsOf(std::string_view input);

}  // namespace pelmar::fuzz
