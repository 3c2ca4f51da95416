#pragma once

#include <memory>

#include "tests/twins/Twin.hpp"

namespace tarsil::twins {

// One a model.
std::unique_ptr<Twin> makeLodeTreadmillTwin();
std::unique_ptr<Twin> makeTrackMasterTwin();
std::unique_ptr<Twin> makeTM400Twin();
std::unique_ptr<Twin> makeLodeOEMTreadmillTwin();
std::unique_ptr<Twin> makeErgolineTwin();
std::unique_ptr<Twin> makeErgosanaTwin();
std::unique_ptr<Twin> makeErgometricsTwin();
std::unique_ptr<Twin> makeLodeErgometerTwin();
std::unique_ptr<Twin> makeTangoTwin();
std::unique_ptr<Twin> makeMEDXINGTwin();

}  // namespace tarsil::twins
