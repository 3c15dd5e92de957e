#include "platform/vel/Reactor.h"

#include <string>

#include "platform/vel/Exception.h"

namespace Vel {

void throwNullMutatorArgument(std::string_view collection, std::string_view owner) {
  std::string text = "null _";
  text.append(collection)
      .append(" parameter to mutator for ")
      .append(owner)
      .append("::")
      .append(collection)
      .append(" not allowed\"");
  throw RangeException(text);
}

}  // namespace Vel
