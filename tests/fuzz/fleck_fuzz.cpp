// A Fleck buffer of any bytes: the decoder refuses what is not a buffer with a reason, and of a
// buffer it keeps only records that decode whole, so that every message it returns prints.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/trace/FleckReader.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, std::size_t size) {
  std::string_view const bytes(reinterpret_cast<char const*>(data), size);
  Fleck::Decoded decoded;
  std::string error;
  if (!Fleck::decode(bytes, decoded, error)) {
    if (error.empty()) __builtin_trap();  // a refusal always says why
    return 0;
  }
  std::size_t printed = 0;
  for (Fleck::Message const& message : decoded.messages) {
    printed += Fleck::messageLine(message).size();
  }
  return printed == SIZE_MAX;
}
