#pragma once

// The reactor tree every reader of a flood-set output keeps: a watcher on the output itself,
// one VelVlanFloodSet per VLAN and, inside it, one VelFloodSet per MAC address, each created
// when its member enters the input and removed when it leaves (after the machine's handler has
// run for the departed member, so the machine can walk its former contents).
//
// A machine Sm instantiates FloodSetReactors<Sm> and provides
//   - VEL_REACTOR_COLLECTION(vlanFloodSet, Bridging::VlanId, VelVlanFloodSet, L2Rib::VlanFloodSet)
//   - handleVlanFloodSet(VelVlanFloodSet&), handleFloodSet(VelFloodSet&) and
//     handleDestSet(VelFloodSet&, L2Rib::Dest const&), and optionally handleSource();
//   - static constexpr std::string_view floodSetOutputReactorName, the registered name of its
//     output watcher ("VelInFloodSetOutput").
// Reactors register as "<Sm's type name>::VelVlanFloodSet" and so on.

#include <string>
#include <string_view>

#include "platform/types/L2Rib/L2Rib.h"
#include "platform/vel/Vel.h"

namespace Nox {

// The registered type name of a reactor nested in Sm: "<Sm>::<name>".
template <class Sm>
std::string nestedTypeName(std::string_view name) {
  return std::string(Sm::staticTypeInfo().name()) + "::" + std::string(name);
}

#define NOX_NESTED_TYPE_INFO(nameExpr, attribute)                 \
  static Vel::TypeInfo const& staticTypeInfo() {                  \
    static std::string const name = nestedTypeName<Sm>(nameExpr); \
    static Vel::TypeInfo const info(name, {attribute});           \
    return info;                                                  \
  }                                                               \
  Vel::TypeInfo const& typeInfo() const override { return staticTypeInfo(); }

template <class Sm>
struct FloodSetReactors {
  class VelVlanFloodSet;

  // Watches one flood set (one MAC address of one VLAN).
  class VelFloodSet : public L2Rib::FloodSet::NotifieeConst {
   public:
    VelFloodSet(Vel::Ptr<L2Rib::FloodSet const> const& floodSet, VelVlanFloodSet* owner)
        : NotifieeConst(floodSet), owner_(owner) {}
    Gantry::EthAddr const& key() const { return notifier()->key(); }
    Bridging::VlanId vlan() const { return owner_->key(); }
    Sm* sm() const { return owner_->sm(); }

    // A new flood-set type is a change of the flood set as a whole.
    void onFloodSetType() override { handleFloodSet(); }
    void onDestSet(L2Rib::Dest const& dest) override { handleDestSet(dest); }
    void handleFloodSet() { sm()->handleFloodSet(*this); }
    void handleDestSet(L2Rib::Dest const& dest) { sm()->handleDestSet(*this, dest); }

    NOX_NESTED_TYPE_INFO("VelFloodSet", "floodSet")

   private:
    VelVlanFloodSet* owner_;
  };

  // Watches one VLAN and keeps a VelFloodSet per MAC address in it.
  class VelVlanFloodSet : public L2Rib::VlanFloodSet::NotifieeConst {
   public:
    VelVlanFloodSet(Vel::Ptr<L2Rib::VlanFloodSet const> const& vlanFloodSet, Sm* sm)
        : NotifieeConst(vlanFloodSet), sm_(sm) {
      for (auto [mac, floodSet] : vlanFloodSet->floodSetColl()) floodSetIs(floodSet);
    }
    Bridging::VlanId key() const { return notifier()->key(); }
    Sm* sm() const { return sm_; }

    void onFloodSet(Gantry::EthAddr const& mac) override {
      Vel::Ptr<L2Rib::FloodSet const> member = notifier()->floodSet(mac);
      Vel::followMember(
          member != nullptr, [&] { floodSetIs(member); },
          [&] {
            if (VelFloodSet* reactor = floodSet(mac)) reactor->handleFloodSet();
          },
          [&] { floodSetDel(mac); });
    }
    void handleVlanFloodSet() { sm_->handleVlanFloodSet(*this); }

    NOX_NESTED_TYPE_INFO("VelVlanFloodSet", "floodSet")

   private:
    friend struct Vel::Internals<Sm>;
    VEL_REACTOR_COLLECTION(floodSet, Gantry::EthAddr, VelFloodSet, L2Rib::FloodSet)
    Sm* sm_;
  };

  // Watches the flood-set output: its source and the arrival and departure of its VLANs.
  class VelFloodSetOutput : public L2Rib::FloodSetOutput::NotifieeConst {
   public:
    VelFloodSetOutput(Vel::Ptr<L2Rib::FloodSetOutput const> const& output, Sm* sm)
        : NotifieeConst(output), sm_(sm) {
      for (auto [vlan, vlanFloodSet] : output->vlanFloodSetColl())
        sm_->vlanFloodSetIs(vlanFloodSet);
    }

    void onSource() override {
      if constexpr (requires(Sm * s) { s->handleSource(); }) sm_->handleSource();
    }
    void onVlanFloodSet(Bridging::VlanId vlan) override {
      Vel::Ptr<L2Rib::VlanFloodSet const> member = notifier()->vlanFloodSet(vlan);
      Vel::followMember(
          member != nullptr, [&] { sm_->vlanFloodSetIs(member); },
          [&] {
            if (VelVlanFloodSet* reactor = sm_->vlanFloodSet(vlan)) reactor->handleVlanFloodSet();
          },
          [&] { sm_->vlanFloodSetDel(vlan); });
    }

    NOX_NESTED_TYPE_INFO(Sm::floodSetOutputReactorName, "vlanFloodSet")

   private:
    Sm* sm_;
  };
};

}  // namespace Nox
