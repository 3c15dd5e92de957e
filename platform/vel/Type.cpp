#include "platform/vel/Type.h"

#include <map>
#include <string>

namespace Vel {

namespace {
std::map<std::string, TypeInfo const*, std::less<>>& registry() {
  static std::map<std::string, TypeInfo const*, std::less<>> types;
  return types;
}
}  // namespace

bool TypeRegistry::add(TypeInfo const& type) {
  return registry().emplace(std::string(type.name()), &type).second;
}

TypeInfo const* TypeRegistry::lookup(std::string_view name) {
  auto it = registry().find(name);
  return it == registry().end() ? nullptr : it->second;
}

std::vector<TypeInfo const*> TypeRegistry::all() {
  std::vector<TypeInfo const*> out;
  for (auto const& [name, type] : registry()) out.push_back(type);
  return out;
}

}  // namespace Vel
