#include "platform/types/Fib/Fib.h"

#include "platform/vel/Exception.h"
#include "platform/vel/Hash.h"

namespace Kelp::Fib {

uint32_t FecId::hash() const { return Vel::wangHash32(uint32_t(value_) ^ uint32_t(value_ >> 32)); }

void traceAppend(std::string& out, FecId const& v) {
  Gantry::appendDecimal(out, v.adjType());
  out += ':';
  Gantry::appendDecimal(out, v.number());
}

std::string valueToStrep(FecId const& v) {
  std::string text;
  traceAppend(text, v);
  return text;
}

std::ostream& operator<<(std::ostream& os, FecId const& v) { return os << valueToStrep(v); }

EcmpIndex::EcmpIndex(uint32_t value) : value_(value) {
  if (value > max) {
    throw Vel::RangeException("EcmpIndex::value < EcmpIndex::min or > EcmpIndex::max not allowed");
  }
}

void Via::mplsLabelIs(Gantry::MplsLabel label) {
  mplsLabel_ = label;
  fieldsSet_ |= mplsLabelBit;
}

void Via::tunnelIdIs(Tunnel::TunnelTable::TunnelId tunnelId) {
  tunnelId_ = tunnelId;
  fieldsSet_ |= tunnelIdBit;
}

void Via::fecIdIs(FecId fecId) {
  fecId_ = fecId;
  fieldsSet_ |= fecIdBit;
}

std::string valueToStrep(Via const& v) {
  std::string text;
  auto field = [&text](char const* name, std::string const& value) {
    if (!text.empty()) text += ' ';
    text += name;
    text += value;
  };
  if (v.hasMplsLabel()) field("label=", v.mplsLabel().stringValue());
  if (v.hasTunnelId()) field("tunnel=", std::to_string(v.tunnelId().value()));
  if (v.hasFecId()) field("fec=", valueToStrep(v.fecId()));
  return text.empty() ? "novia" : text;
}

std::ostream& operator<<(std::ostream& os, Via const& v) { return os << valueToStrep(v); }

void Fec::viaIs(EcmpIndex index, Via const& via) {
  via_[index.value()] = via;
  if (index.value() >= viaCount_) viaCount_ = index.value() + 1;
}

std::string valueToStrep(Fec const& v) {
  std::string text = valueToStrep(v.fecId());
  for (uint32_t i = 0; i < v.vias(); ++i) {
    text += " via[";
    text += std::to_string(i);
    text += "] ";
    text += valueToStrep(v.via(i));
  }
  return text;
}

std::ostream& operator<<(std::ostream& os, Fec const& v) { return os << valueToStrep(v); }

}  // namespace Kelp::Fib
