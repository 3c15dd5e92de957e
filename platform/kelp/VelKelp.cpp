#include "platform/kelp/VelKelp.h"

#include "platform/kelp/TableList.h"

namespace VelKelp {

namespace {
std::string& prefix() {
  static std::string p;
  return p;
}
}  // namespace

void publishPrefixIs(std::string p) { prefix() = std::move(p); }
std::string const& publishPrefix() { return prefix(); }

Vel::Name tableName(Vel::Name const& name) {
  return prefix().empty() ? name : Vel::Name(Kelp::tableName(prefix(), name.str()));
}

}  // namespace VelKelp
