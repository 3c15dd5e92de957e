#pragma once

// VelKelp: a Kelp table presented as an entity collection. The owning entity gets lookups with
// the default value for absent keys, membership, count and iteration in key order, and its
// per-key, whole-collection and status callbacks come from the table's own notifications.
//
// A collection is on one side of its table. The writer's side (the entity that owns the table)
// creates it and is called back synchronously by its own writes. The reader's side mounts the
// table another process publishes, by the same name under the publish prefix, and is called
// back from poll(), which takes the writer's changes from the change log; the agent runs poll()
// on its event thread, usually through a Poller (VelKelpPoller.h).
//
// Where tables live is a process-wide choice: in process memory (the default), or published
// in POSIX shared memory under a name prefix (publishPrefixIs), so that other processes can
// mount them by name. Readers need the tables published.

#include <functional>
#include <string>

#include "platform/kelp/Table.h"
#include "platform/vel/Assert.h"
#include "platform/vel/Name.h"

namespace VelKelp {

// Empty: tables stay in process memory. Otherwise "/PREFIX.name" shared-memory segments,
// created with `options` (who may read them, their first size).
void publishPrefixIs(std::string prefix, Kelp::Options const& options = {});
std::string const& publishPrefix();
Kelp::Options const& publishOptions();
// The name a table made under `name` gets: PREFIX.name when publishing, else name.
Vel::Name tableName(Vel::Name const& name);

enum class Side { writer, reader };

// What a collection calls back on: a key changed, the whole collection may have changed, the
// table's status (readiness, the writer's presence) changed.
template <class K>
struct Hooks {
  std::function<void(K const&)> onKey;
  std::function<void()> onCollection;
  std::function<void()> onStatus;
};

template <class K, class V>
class Collection {
 public:
  using Table = Kelp::Table<K, V>;
  using Entry = typename Table::Entry;

  // The table under `name` on `side`: the writer's backed as publishPrefix() says, the reader's
  // mounted from the published segment. Only the hooks of the collection's own side are
  // registered: writerHooks run on this process's writes, readerHooks from poll().
  Collection(Vel::Name const& name, Side side, Hooks<K> writerHooks, Hooks<K> readerHooks)
      : table_(tableFor(name, side)),
        side_(side),
        writerHook_(std::move(writerHooks)),
        readerHook_(std::move(readerHooks)) {
    table_->notifieeIs(&activeHook());
  }
  // A writer's table with only writer-side hooks, as the owning entity of a table it alone
  // writes and reads needs.
  Collection(Vel::Name const& name, std::function<void(K const&)> onKey,
             std::function<void()> onCollection)
      : Collection(name, Side::writer, Hooks<K>{std::move(onKey), std::move(onCollection), {}},
                   Hooks<K>{}) {}
  Collection(Collection const&) = delete;
  Collection& operator=(Collection const&) = delete;
  ~Collection() {
    table_->notifieeDel(&activeHook());
    table_->close();
  }

  Side side() const { return side_; }
  V get(K const& key) const { return table_->lookup(key); }
  bool isMemberOf(K const& key) const { return table_->isMemberOf(key); }
  std::size_t count() const { return table_->count(); }
  bool empty() const { return table_->empty(); }
  auto begin() const { return table_->begin(); }
  auto end() const { return table_->end(); }

  // Reader side: takes up to maxChanges of the writer's changes, calling the reader's hooks.
  std::size_t poll(std::size_t maxChanges) { return table_->poll(maxChanges); }

  Table& table() { return *table_; }
  Table const& table() const { return *table_; }

 private:
  class Hook : public Kelp::TableNotifiee<K> {
   public:
    explicit Hook(Hooks<K> hooks) : hooks_(std::move(hooks)) {}
    void onKey(K const& key) override {
      if (hooks_.onKey) hooks_.onKey(key);
    }
    void onCollection() override {
      if (hooks_.onCollection) hooks_.onCollection();
    }
    void onStatus() override {
      if (hooks_.onStatus) hooks_.onStatus();
    }

   private:
    Hooks<K> hooks_;
  };

  static Vel::Ptr<Table> tableFor(Vel::Name const& name, Side side) {
    if (side == Side::reader) {
      VEL_ASSERT(!publishPrefix().empty());
      return Table::readerNew(tableName(name));
    }
    return publishPrefix().empty() ? Table::processNew(name)
                                   : Table::writerNew(tableName(name), publishOptions());
  }
  Hook& activeHook() { return side_ == Side::writer ? writerHook_ : readerHook_; }

  Vel::Ptr<Table> table_;
  Side const side_;
  Hook writerHook_;
  Hook readerHook_;
};

}  // namespace VelKelp
