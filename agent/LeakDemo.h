// The route-leaking scene of `iprib demo`.
#pragma once

#include <ostream>

namespace IpRibAgent {

// Two VRFs leak one prefix into a third: the lower VRF id wins, and the
// other takes over when the winner stops leaking. Prints as it goes.
void runLeakDemo(std::ostream& out);

}  // namespace IpRibAgent
