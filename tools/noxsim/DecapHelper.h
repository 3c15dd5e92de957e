#pragma once

// The decap helper of the simulated agent: the library's recording stub, which also writes each
// call to the World's call log ("decap createEsiPortMap label=L intf=I -> N").

#include <string>
#include <vector>

#include "NoxEvpn/NoxEvpnEsiFilteringDecapHelper.h"

namespace Noxsim {

class DecapHelper : public NoxHelper::EsiFilteringDecapHelperStub {
 public:
  // `calls` outlives the helper.
  explicit DecapHelper(std::vector<std::string>* calls)
      : EsiFilteringDecapHelperStub("decap"), calls_(calls) {}

  Mpls::LfibHwProgrammingReturnCode createEsiPortMap(Gantry::MplsLabel esiLabel,
                                                     Gantry::IntfId intfId) override;
  void deleteEsiPortMap(Gantry::MplsLabel esiLabel, Gantry::IntfId intfId) override;

 private:
  std::vector<std::string>* calls_;
};

}  // namespace Noxsim
