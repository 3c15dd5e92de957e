#pragma once

// Building message and table text by appending pieces: cat("bad VLAN '", word, "'"). Numbers are
// written in decimal. (Chains of std::string operator+ also trip a false -Wrestrict of g++ 12.)

#include <concepts>
#include <string>
#include <string_view>

namespace Noxsim {

namespace TextDetail {

inline void append(std::string& s, std::string_view piece) { s.append(piece); }
template <std::integral T>
requires(!std::same_as<T, char> && !std::same_as<T, bool>) void append(std::string& s, T number) {
  s.append(std::to_string(number));
}

}  // namespace TextDetail

template <class... Pieces>
std::string cat(Pieces const&... pieces) {
  std::string s;
  (TextDetail::append(s, pieces), ...);
  return s;
}

}  // namespace Noxsim
