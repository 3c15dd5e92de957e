#pragma once

// VEL_OWNER_DECL_(name) / VEL_OWNER_(name): the class whose body a macro line is written in,
// without the line having to spell it. The accessor blocks need it so that their storage can
// name its owner a friend (only the owner changes it) whatever access section the line is in.
//
// How: a member function declared (never defined) with the trailing return type may mention
// `this`; instantiating OwnerIs<Tag, that class> there defines the friend ownerOf(OwnerOf<Tag>),
// whose return type then names the class at class scope. Tag is a class declared by the same
// line, so every line has its own.

#include <type_traits>

namespace Vel::detail {

#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
// The friend is declared here and defined by OwnerIs: that is the point.
#pragma GCC diagnostic ignored "-Wnon-template-friend"
#endif
template <class Tag>
struct OwnerOf {
  friend auto ownerOf(OwnerOf<Tag>);
};
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

template <class Tag, class Owner>
struct OwnerIs {
  friend auto ownerOf(OwnerOf<Tag>) { return static_cast<Owner*>(nullptr); }
};

}  // namespace Vel::detail

#define VEL_OWNER_DECL_(name)                                                              \
  struct name##VelOwnerTag_;                                                               \
  auto name##VelOwner_()->decltype(                                                        \
      ::Vel::detail::OwnerIs<name##VelOwnerTag_, std::remove_pointer_t<decltype(this)>>{}, \
      void());
#define VEL_OWNER_(name) \
  std::remove_pointer_t<decltype(ownerOf(::Vel::detail::OwnerOf<name##VelOwnerTag_>{}))>
