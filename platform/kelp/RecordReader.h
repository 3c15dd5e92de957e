#pragma once

// A reader of any table, whatever its record types: records are byte strings of the sizes the
// segment declares, printed through the codecs registered for the segment's type names (hex for
// types this process does not know) and ordered as the key type orders them (byte order for
// unknown keys). kelpcat is built on it.

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "platform/kelp/RecordRegistry.h"
#include "platform/kelp/Status.h"
#include "platform/kelp/TableCore.h"

namespace Kelp {

class RecordReader {
 public:
  struct Event {
    enum class Kind { write, remove, collection, status };
    Kind kind;
    std::string key;  // key bytes, for write and remove
  };

  // Throws OpenException or CorruptionException.
  explicit RecordReader(std::string const& table);

  std::string const& table() const { return core_.table(); }
  RecordShape const& shape() const { return core_.shape(); }
  Status status() const { return core_.status(); }
  std::size_t count() const { return index_.size(); }
  bool keyTypeKnown() const { return keyCodec_ != nullptr; }
  bool valueTypeKnown() const { return valueCodec_ != nullptr; }

  // Every record in key order, with its current value.
  void forEach(std::function<void(std::string const& key, std::string const& value)> const& f);
  // The current value bytes of a key, if present.
  std::optional<std::string> value(std::string const& key);
  std::string keyText(std::string const& key) const;
  std::string valueText(std::string const& value) const;

  // Takes the pending changes, as Table::poll does, reporting each to onEvent.
  std::size_t poll(std::function<void(Event const&)> const& onEvent);
  bool waitForChange(std::chrono::nanoseconds timeout) const {
    return core_.waitForChange(timeout, std::chrono::microseconds(50));
  }

 private:
  using Slot = TableCore::Slot;
  struct KeyLess {
    RecordCodec const* codec;
    bool operator()(std::string const& a, std::string const& b) const {
      return codec && codec->less ? codec->less(a.data(), b.data()) : a < b;
    }
  };

  void resync();
  std::string keyOf(Word const* words) const;
  bool readEntry(std::string const& key, Slot slot, std::string* value);

  TableCore core_;
  RecordCodec const* keyCodec_ = nullptr;
  RecordCodec const* valueCodec_ = nullptr;
  std::map<std::string, Slot, KeyLess> index_;
};

}  // namespace Kelp
