#pragma once

// Trace messages are written as a format with `{}` placeholders, each replaced by the text form
// of one argument: what operator<< on an std::ostream writes for it. `{{` and `}}` stand for
// literal braces. The number of placeholders is checked against the arguments at compile time.

#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>

namespace Trace {

// Placeholders in a format, or -1 when a brace is neither `{}`, `{{` nor `}}`.
constexpr int placeholderCount(std::string_view format) {
  int count = 0;
  for (std::size_t i = 0; i < format.size(); ++i) {
    char const c = format[i];
    if (c != '{' && c != '}') continue;
    if (i + 1 == format.size()) return -1;
    char const next = format[i + 1];
    if (c == '{' && next == '}')
      ++count;
    else if (c != next)
      return -1;
    ++i;
  }
  return count;
}

template <class... Args>
struct FormatString {
  template <std::size_t N>
  consteval FormatString(char const (&s)[N]) : text(s) {
    if (placeholderCount(s) != static_cast<int>(sizeof...(Args))) {
      throw "trace format: placeholders and arguments do not match";
    }
  }
  char const* text;
};

// Characters stream as characters, so they are not numbers here either.
template <class T>
concept CharType = std::same_as<T, char> || std::same_as<T, signed char> ||
    std::same_as<T, unsigned char> || std::same_as<T, wchar_t> || std::same_as<T, char8_t> ||
    std::same_as<T, char16_t> || std::same_as<T, char32_t>;
template <class T>
concept NumberType = std::integral<T> && !CharType<T> && !std::same_as<T, bool>;
template <class T>
concept TextType = std::convertible_to<T const&, std::string_view>;
// Wrappers of a number whose text is that number in decimal (ids, VLANs) declare
// `static constexpr bool traceAsNumber = true;`: both traces then take value() as a number.
template <class T>
concept NumberLike = requires(T const& v) {
  requires T::traceAsNumber;
  { v.value() } -> std::integral;
};
// Types with a cheaper text than streaming offer `void traceAppend(std::string&, T const&)`,
// found by argument-dependent lookup, writing exactly what operator<< writes.
template <class T>
concept Appendable = requires(std::string& out, T const& v) {
  traceAppend(out, v);
};

void appendNumber(std::string& out, std::int64_t v);
void appendNumber(std::string& out, std::uint64_t v);
void appendBool(std::string& out, bool v);
void appendDouble(std::string& out, double v);

template <class T>
void appendText(std::string& out, T const& v) {
  if constexpr (std::same_as<T, bool>) {
    appendBool(out, v);
  } else if constexpr (NumberType<T> && std::is_signed_v<T>) {
    appendNumber(out, static_cast<std::int64_t>(v));
  } else if constexpr (NumberType<T>) {
    appendNumber(out, static_cast<std::uint64_t>(v));
  } else if constexpr (std::same_as<T, double> || std::same_as<T, float>) {
    appendDouble(out, v);
  } else if constexpr (std::same_as<T, char const*> || std::same_as<T, char*>) {
    out += v == nullptr ? "(null)" : v;
  } else if constexpr (TextType<T>) {
    out += std::string_view(v);
  } else if constexpr (NumberLike<T>) {
    appendNumber(out, static_cast<std::uint64_t>(v.value()));
  } else if constexpr (Appendable<T>) {
    traceAppend(out, v);
  } else {
    std::ostringstream os;
    os << v;
    out += std::move(os).str();
  }
}

// One argument, its type erased, ready to be written as text.
struct ArgText {
  void const* value;
  void (*append)(std::string&, void const*);
};

template <class T>
ArgText argText(T const& v) {
  return {&v, [](std::string& out, void const* p) { appendText(out, *static_cast<T const*>(p)); }};
}

// The format with its placeholders replaced, in order, by the arguments' texts.
std::string formatText(std::string_view format, ArgText const* args, std::size_t count);

}  // namespace Trace
