#pragma once

// Type registration: every entity, value and machine type has a registered name
// ("Nox::IntfVlanKey") and lists its attribute names in declaration order, for inspection
// tools. The machines' logic never reads it.

#include <initializer_list>
#include <string_view>
#include <vector>

namespace Vel {

class TypeInfo {
 public:
  TypeInfo(std::string_view name, std::initializer_list<std::string_view> attributes)
      : name_(name), attributes_(attributes) {}

  std::string_view name() const { return name_; }
  std::vector<std::string_view> const& attributes() const { return attributes_; }

  // Walks the attribute names in declaration order: for (auto it = ...; it; ++it) it.name().
  class AttributeIterator {
   public:
    explicit AttributeIterator(TypeInfo const& t) : t_(&t) {}
    explicit operator bool() const { return i_ < t_->attributes_.size(); }
    std::string_view name() const { return t_->attributes_[i_]; }
    AttributeIterator& operator++() {
      ++i_;
      return *this;
    }

   private:
    TypeInfo const* t_;
    std::size_t i_ = 0;
  };
  AttributeIterator attributeIterator() const { return AttributeIterator(*this); }

 private:
  std::string_view name_;
  std::vector<std::string_view> attributes_;
};

// Process-wide registry by name; registration happens at static initialisation.
class TypeRegistry {
 public:
  static bool add(TypeInfo const& type);
  static TypeInfo const* lookup(std::string_view name);
  static std::vector<TypeInfo const*> all();
};

// Anything that can describe itself generically: entities, machines and their reactors.
class Described {
 public:
  virtual ~Described() = default;
  virtual TypeInfo const& typeInfo() const = 0;
};

}  // namespace Vel

// Inside a class body, in a public section (the registry and the text form read it): its
// registered name and attribute names.
#define VEL_TYPE_INFO(typeNameText, ...)                            \
  static ::Vel::TypeInfo const& staticTypeInfo() {                  \
    static ::Vel::TypeInfo const info(typeNameText, {__VA_ARGS__}); \
    return info;                                                    \
  }

// The same for a Described class (entities, machines, reactors).
#define VEL_DESCRIBE(typeNameText, ...)    \
  VEL_TYPE_INFO(typeNameText, __VA_ARGS__) \
  ::Vel::TypeInfo const& typeInfo() const override { return staticTypeInfo(); }

// At namespace scope in one .cpp file: put the type in the registry.
#define VEL_REGISTER_TYPE(T)                             \
  static bool const velRegistered_##T [[maybe_unused]] = \
      ::Vel::TypeRegistry::add(T::staticTypeInfo())
