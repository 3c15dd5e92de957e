#pragma once

// The intrusive list that holds pending tasks: a scheduler's ready queues and the timer wheel's
// slots. The links live in the task itself (Cog::Task derives from TaskLink), so scheduling,
// cancelling and moving a task between lists never allocate, and a task always knows which list
// holds it. A task sits in at most one list at a time.

namespace Cog {

class TaskList;

class TaskLink {
 public:
  TaskLink() = default;
  TaskLink(TaskLink const&) = delete;
  TaskLink& operator=(TaskLink const&) = delete;

  TaskList* taskList() const { return list_; }
  TaskLink* nextLink() const { return next_; }
  TaskLink* prevLink() const { return prev_; }

 private:
  friend class TaskList;
  TaskLink* prev_ = nullptr;
  TaskLink* next_ = nullptr;
  TaskList* list_ = nullptr;
};

class TaskList {
 public:
  TaskList() = default;
  TaskList(TaskList const&) = delete;
  TaskList& operator=(TaskList const&) = delete;

  bool empty() const { return head_ == nullptr; }
  TaskLink* head() const { return head_; }
  TaskLink* tail() const { return tail_; }

  void pushBack(TaskLink* l) { insertAfter(tail_, l); }

  // Inserts l after pos; a null pos inserts at the front.
  void insertAfter(TaskLink* pos, TaskLink* l) {
    l->list_ = this;
    l->prev_ = pos;
    l->next_ = pos ? pos->next_ : head_;
    (l->next_ ? l->next_->prev_ : tail_) = l;
    (pos ? pos->next_ : head_) = l;
  }

  void remove(TaskLink* l) {
    (l->prev_ ? l->prev_->next_ : head_) = l->next_;
    (l->next_ ? l->next_->prev_ : tail_) = l->prev_;
    l->prev_ = l->next_ = nullptr;
    l->list_ = nullptr;
  }

  // Empties the list without touching its members' links; the caller relinks every one of them.
  TaskLink* detachAll() {
    TaskLink* h = head_;
    head_ = tail_ = nullptr;
    return h;
  }

  // Links in the given order the members just taken with detachAll (or a reordering of them).
  template <class It>
  void relink(It first, It last) {
    head_ = tail_ = nullptr;
    for (; first != last; ++first) pushBack(*first);
  }

 private:
  TaskLink* head_ = nullptr;
  TaskLink* tail_ = nullptr;
};

}  // namespace Cog
