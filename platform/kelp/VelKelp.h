#pragma once

// VelKelp: a Kelp table presented as an entity collection. The owning entity gets lookups with
// the default value for absent keys, membership, count and iteration in key order, and its
// per-key and whole-collection callbacks come from the table's own notifications (the
// writer's writes here, the change log on a reader).
//
// Where tables live is a process-wide choice: in process memory (the default), or published
// in POSIX shared memory under a name prefix (publishPrefixIs), so that other processes can
// mount them by name.

#include <functional>
#include <string>

#include "platform/kelp/Table.h"
#include "platform/vel/Name.h"

namespace VelKelp {

// Empty: tables stay in process memory. Otherwise "/PREFIX.name" shared-memory segments,
// created with `options` (who may read them, their first size).
void publishPrefixIs(std::string prefix, Kelp::Options const& options = {});
std::string const& publishPrefix();
Kelp::Options const& publishOptions();
// The name a table made under `name` gets: PREFIX.name when publishing, else name.
Vel::Name tableName(Vel::Name const& name);

template <class K, class V>
class Collection : private Kelp::TableNotifiee<K> {
 public:
  using Table = Kelp::Table<K, V>;
  using Entry = typename Table::Entry;

  // A writer's table under `name`, backed as publishPrefix() says.
  Collection(Vel::Name const& name, std::function<void(K const&)> onKey,
             std::function<void()> onCollection)
      : table_(publishPrefix().empty() ? Table::processNew(name)
                                       : Table::writerNew(tableName(name), publishOptions())),
        onKey_(std::move(onKey)),
        onCollection_(std::move(onCollection)) {
    table_->notifieeIs(this);
  }
  Collection(Collection const&) = delete;
  Collection& operator=(Collection const&) = delete;
  ~Collection() override {
    table_->notifieeDel(this);
    table_->close();
  }

  V get(K const& key) const { return table_->lookup(key); }
  bool isMemberOf(K const& key) const { return table_->isMemberOf(key); }
  std::size_t count() const { return table_->count(); }
  bool empty() const { return table_->empty(); }
  auto begin() const { return table_->begin(); }
  auto end() const { return table_->end(); }

  Table& table() { return *table_; }
  Table const& table() const { return *table_; }

 private:
  void onKey(K const& key) override { onKey_(key); }
  void onCollection() override { onCollection_(); }

  Vel::Ptr<Table> table_;
  std::function<void(K const&)> onKey_;
  std::function<void()> onCollection_;
};

}  // namespace VelKelp
