#pragma once

// The words of one command as its parser sees them: the positional words after the command's own
// words, then `key=value` words in any order. The typed getters read and check one word each;
// the first word that does not parse records the error (later ones are ignored) and the getter
// returns a default, so a parser reads all its words and then asks ok() once.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/noxsim/Lexer.h"

namespace Noxsim {

class Args {
 public:
  // `command` is the command's own words, for messages ("l2rib floodset add"); `words` must
  // outlive the Args.
  Args(std::string_view command, std::span<std::string_view const> words);

  std::string_view command() const { return command_; }
  std::size_t count() const { return positional_.size(); }
  std::span<std::string_view const> positional() const { return positional_; }
  // Fails unless the count of positional words is within [min, max].
  bool countIs(std::size_t min, std::size_t max);
  bool countIs(std::size_t n) { return countIs(n, n); }
  // Fails when a key=value word was given that the parser did not read; call after the options.
  bool optionsDone();

  std::string_view word(std::size_t i) const { return positional_[i]; }
  uint64_t number(std::size_t i, uint64_t max = UINT64_MAX);
  Bridging::VlanId vlan(std::size_t i);
  Gantry::EthAddr mac(std::size_t i);
  Gantry::IntfId intf(std::size_t i);
  Gantry::MplsLabel label(std::size_t i);
  L2Rib::Dest dest(std::size_t i);
  ConfigText config(std::size_t i);
  Nox::HwProgrammingStatus status(std::size_t i);
  bool onOff(std::size_t i);

  // The value of key=VALUE, if given.
  std::optional<std::string_view> option(std::string_view key);
  bool boolOption(std::string_view key, bool fallback);

  bool ok() const { return error_.empty(); }
  std::string const& error() const { return error_; }
  // Records an error unless one is recorded already; returns false.
  bool fail(std::string message);

 private:
  template <class T>
  T check(std::optional<T> const& value, std::string_view word, std::string_view what,
          std::string_view form);

  std::string_view command_;
  std::span<std::string_view const> positional_;
  std::vector<std::pair<std::string_view, std::string_view>> options_;
  std::vector<bool> optionRead_;
  std::string error_;
};

}  // namespace Noxsim
