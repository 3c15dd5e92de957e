#include "platform/kelp/VelKelp.h"

#include "platform/kelp/TableList.h"

namespace VelKelp {

namespace {
std::string& prefix() {
  static std::string p;
  return p;
}
Kelp::Options& options() {
  static Kelp::Options o;
  return o;
}
}  // namespace

void publishPrefixIs(std::string p, Kelp::Options const& o) {
  prefix() = std::move(p);
  options() = o;
}
std::string const& publishPrefix() { return prefix(); }
Kelp::Options const& publishOptions() { return options(); }

Vel::Name tableName(Vel::Name const& name) {
  return prefix().empty() ? name : Vel::Name(Kelp::tableName(prefix(), name.str()));
}

}  // namespace VelKelp
