// Tables of the FEC requests and responses (`fec mac`, `fecresponse mac`, one pair per FEC
// programmer) and the object-tuple hardware ids.

#include <deque>
#include <string>

#include "platform/vel/Value.h"
#include "tools/noxsim/Sim.h"
#include "tools/noxsim/Tables.h"
#include "tools/noxsim/Text.h"

namespace Noxsim {

namespace {

using Vel::toStrep;

// One line per via, with only the fields the via sets.
void printFecVias(Kelp::Fib::Fec const& fec, TableLines& lines) {
  std::string const head = cat("fec ", toStrep(fec.fecId()));
  if (fec.vias() == 0) lines.entries.push_back(cat(head, " novia"));
  for (uint32_t i = 0; i < fec.vias(); ++i) {
    Kelp::Fib::Via const& via = fec.via(i);
    std::string line = cat(head, " via[", i, "]");
    if (via.hasMplsLabel()) line += cat(" label=", via.mplsLabel().stringValue());
    if (via.hasTunnelId()) line += cat(" tunnel=", via.tunnelId().value());
    if (via.hasFecId()) line += cat(" fec=", toStrep(via.fecId()));
    lines.entries.push_back(std::move(line));
  }
}

void printFecRequest(Nox::FecIdToHwFecIdRequest const& request, TableLines& lines) {
  for (auto const& entry : request.fecColl()) printFecVias(entry.value, lines);
  for (auto const& entry : request.objTupleToFecIdColl()) {
    lines.entries.push_back(
        cat("objtuple ", toStrep(entry.key), " fec=", toStrep(entry.value.fecId())));
  }
  for (auto const& entry : request.hwFecIdRequestColl()) {
    lines.entries.push_back(cat("request ", toStrep(entry.key)));
  }
}

void printFecResponse(Nox::FecIdToHwFecIdResponse const& response, TableLines& lines) {
  for (auto const& entry : response.hwFecIdColl()) {
    lines.entries.push_back(cat(toStrep(entry.key), " hwFecId=", entry.value.hwFecId(),
                                " l2Intf=", response.l2IntfId(entry.key).l2IntfId().name()));
  }
}

void printObjTupleHwIds(Sim& sim, TableLines& lines) {
  for (auto const& entry : sim.world().objTupleHwIds->hwIdColl()) {
    lines.entries.push_back(cat(toStrep(entry.key), " hwId=", entry.value));
  }
}

}  // namespace

std::vector<TableEntry> macFecTables() {
  // Table names are views: keep their text for the life of the process.
  static std::deque<std::string> names;
  std::vector<TableEntry> tables = {{"objtuple-hwid", printObjTupleHwIds}};
  for (auto const& wiring : fecProgrammerTable()) {
    auto const& request = wiring.request;
    auto const& response = wiring.response;
    tables.push_back(
        {names.emplace_back(cat("fec ", wiring.which)),
         [request](Sim& s, TableLines& l) { printFecRequest(request(s.world()), l); }});
    tables.push_back(
        {names.emplace_back(cat("fecresponse ", wiring.which)),
         [response](Sim& s, TableLines& l) { printFecResponse(response(s.world()), l); }});
  }
  return tables;
}

}  // namespace Noxsim
