#include "platform/types/L2Rib/L2RibTables.h"

#include "platform/vel/Exception.h"
#include "platform/vel/Hash.h"

namespace L2Rib {

uint32_t ObjTuple::hash() const {
  return Vel::wangHash32(uint32_t(id_) ^ uint32_t(id_ >> 32) ^ (uint32_t(tableType_) << 29));
}

void traceAppend(std::string& out, ObjTuple const& v) {
  switch (v.tableType()) {
    case tableTypeLoadBalance_:
      out += "lb:";
      break;
    case tableTypeLabel_:
      out += "label:";
      break;
    case tableTypeDest_:
      out += "dest:";
      break;
    default:
      out += "none";
      if (v.tableType() == tableTypeNone_ && v.id() == 0) return;
      out += ':';
      // A type the RIB never sends: keep it visible.
      if (v.tableType() != tableTypeNone_) {
        Gantry::appendDecimal(out, v.tableType());
        out += ':';
      }
  }
  Gantry::appendDecimal(out, v.id());
}

std::string valueToStrep(ObjTuple const& v) {
  std::string text;
  traceAppend(text, v);
  return text;
}

std::ostream& operator<<(std::ostream& os, ObjTuple const& v) { return os << valueToStrep(v); }

void LoadBalance::nextAdd(ObjTuple const& tuple) {
  if (count_ == capacity) throw Vel::RangeException("LoadBalance::next count > capacity");
  next_[count_++] = tuple;
}

#define L2RIB_TABLE_OUTPUT_FACTORY(Class, member)                      \
  Vel::Ptr<Class> member##OutputFactory(Vel::Name name) {              \
    return Vel::validPtr(Vel::Ptr<Class>(new Class(std::move(name)))); \
  }                                                                    \
  VEL_REGISTER_TYPE(Class)

L2RIB_TABLE_OUTPUT_FACTORY(LabelOutput, label);
L2RIB_TABLE_OUTPUT_FACTORY(LoadBalanceOutput, loadBalance);
L2RIB_TABLE_OUTPUT_FACTORY(DestOutput, dest);
L2RIB_TABLE_OUTPUT_FACTORY(HostOutput, host);

}  // namespace L2Rib
