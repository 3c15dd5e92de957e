// The type-blind reader behind kelpcat; see RecordReader.h.

#include "platform/kelp/RecordReader.h"

#include <vector>

namespace Kelp {

namespace {

RecordCodec const* codecFor(std::string const& typeName, std::size_t bytes) {
  RecordCodec const* codec = recordCodec(typeName);
  // A codec of another size is a different type of the same name; print it as hex.
  return codec && codec->bytes == bytes ? codec : nullptr;
}

}  // namespace

RecordReader::RecordReader(std::string const& table)
    : core_(table, Mode::reader, RecordShape{}, Options{}),
      keyCodec_(codecFor(core_.shape().keyType, core_.shape().keyBytes)),
      valueCodec_(codecFor(core_.shape().valueType, core_.shape().valueBytes)),
      index_(KeyLess{keyCodec_}) {
  resync();
  if (core_.ready()) core_.markFullyAttached();
}

std::string RecordReader::keyOf(Word const* words) const {
  return std::string(reinterpret_cast<char const*>(words), core_.shape().keyBytes);
}

void RecordReader::resync() {
  index_.clear();
  core_.scan([this](Slot slot, Word const* key) { index_.insert_or_assign(keyOf(key), slot); });
}

bool RecordReader::readEntry(std::string const& key, Slot slot, std::string* value) {
  std::vector<Word> k(core_.keyWords());
  std::vector<Word> v(core_.valueWords());
  if (!core_.readRecord(slot, k.data(), v.data()) || keyOf(k.data()) != key) return false;
  value->assign(reinterpret_cast<char const*>(v.data()), core_.shape().valueBytes);
  return true;
}

void RecordReader::forEach(
    std::function<void(std::string const& key, std::string const& value)> const& f) {
  std::string value;
  for (auto const& [key, slot] : index_) {
    if (readEntry(key, slot, &value)) f(key, value);
  }
}

std::optional<std::string> RecordReader::value(std::string const& key) {
  auto const it = index_.find(key);
  std::string v;
  if (it == index_.end() || !readEntry(key, it->second, &v)) return std::nullopt;
  return v;
}

std::string RecordReader::keyText(std::string const& key) const {
  return keyCodec_ ? keyCodec_->toText(key.data()) : hexText(key.data(), key.size());
}

std::string RecordReader::valueText(std::string const& value) const {
  return valueCodec_ ? valueCodec_->toText(value.data()) : hexText(value.data(), value.size());
}

std::size_t RecordReader::poll(std::function<void(Event const&)> const& onEvent) {
  unsigned const status = core_.refreshStatus();
  if (status & TableCore::segmentReplaced) {
    resync();
    onEvent(Event{Event::Kind::collection, {}});
  }
  if (status != TableCore::statusUnchanged) onEvent(Event{Event::Kind::status, {}});
  std::size_t taken = 0;
  TableCore::Change change;
  for (;;) {
    TableCore::Next const next = core_.nextChange(&change);
    if (next == TableCore::Next::none) break;
    ++taken;
    if (next == TableCore::Next::overrun) {
      resync();
      onEvent(Event{Event::Kind::collection, {}});
      continue;
    }
    if (change.op == Layout::logCollection) {
      onEvent(Event{Event::Kind::collection, {}});
      continue;
    }
    std::string const key = keyOf(change.key);
    if (change.op == Layout::logInsert) index_.insert_or_assign(key, change.slot);
    if (change.op == Layout::logRemove) index_.erase(key);
    onEvent(Event{change.op == Layout::logRemove ? Event::Kind::remove : Event::Kind::write, key});
  }
  if (core_.ready()) core_.markFullyAttached();
  return taken;
}

}  // namespace Kelp
