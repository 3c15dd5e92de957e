#pragma once

// Small entities for exercising the framework, and a notifiee that logs what it hears.

#include <string>
#include <vector>

#include "platform/vel/Vel.h"

namespace VelTest {

class Leaf : public Vel::Entity {
 public:
  class NotifieeConst : public Vel::NotifieeConstOf<Leaf> {
   public:
    using NotifieeConstOf::NotifieeConstOf;
    virtual void onFlavor() {}
    virtual void onTag(int const&) {}
  };
  explicit Leaf(int key) : key_(key) {}
  int key() const { return key_; }

  VEL_DESCRIBE("VelTest::Leaf", "flavor", "tag")
  VEL_SCALAR(flavor, Flavor, int, 0)
  VEL_VALUE_COLLECTION(tag, Tag, int, bool)

 private:
  int key_;
};

class Tree : public Vel::Entity {
 public:
  class NotifieeConst : public Vel::NotifieeConstOf<Tree> {
   public:
    using NotifieeConstOf::NotifieeConstOf;
    virtual void onLabel() {}
    virtual void onLeaf(int const&) {}
  };

  VEL_DESCRIBE("VelTest::Tree", "label", "leaf")
  VEL_SCALAR(label, Label, std::string, "")
  VEL_ENTITY_COLLECTION(leaf, Leaf, int, Leaf)
};

// Records every callback as text ("label", "leaf 3"), into a log shared by several notifiees.
class TreeLog : public Tree::NotifieeConst {
 public:
  TreeLog(Vel::Ptr<Tree const> const& t, std::vector<std::string>* log, std::string who = "")
      : NotifieeConst(t), log_(log), who_(std::move(who)) {}
  void onLabel() override { log_->push_back(who_ + "label"); }
  void onLeaf(int const& k) override { log_->push_back(who_ + "leaf " + std::to_string(k)); }

 private:
  std::vector<std::string>* log_;
  std::string who_;
};

class LeafLog : public Leaf::NotifieeConst {
 public:
  LeafLog(Vel::Ptr<Leaf const> const& l, std::vector<std::string>* log)
      : NotifieeConst(l), log_(log) {}
  void onFlavor() override { log_->push_back("flavor"); }
  void onTag(int const& k) override { log_->push_back("tag " + std::to_string(k)); }

 private:
  std::vector<std::string>* log_;
};

}  // namespace VelTest
