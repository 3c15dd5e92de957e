#pragma once

// Text types of the framework: Vel::String for any text, Vel::Name for the name an object is
// created under (tables, helpers, tasks).

#include <ostream>
#include <string>
#include <string_view>

namespace Vel {

using String = std::string;

class Name {
 public:
  Name() = default;
  Name(char const* s) : s_(s) {}
  Name(std::string s) : s_(std::move(s)) {}
  Name(std::string_view s) : s_(s) {}

  std::string const& str() const { return s_; }
  char const* c_str() const { return s_.c_str(); }
  bool empty() const { return s_.empty(); }

  friend bool operator==(Name const&, Name const&) = default;
  friend auto operator<=>(Name const&, Name const&) = default;
  friend std::ostream& operator<<(std::ostream& os, Name const& n) { return os << n.s_; }

 private:
  std::string s_;
};

}  // namespace Vel
