// The text form of each show: renders the JSON model of Shows.h the way
// routers print, e.g. "10.1.0.0/24 [1/5] via 192.0.2.1, eth1".
#pragma once

#include <ostream>

#include "agent/Shows.h"

namespace IpRibAgent::Show {

void printRib(std::ostream& os, const Json& rib);
void printViaSets(std::ostream& os, const Json& viaSets);
void printExplain(std::ostream& os, const Json& explain);
void printBfd(std::ostream& os, const Json& bfd);
void printIntf(std::ostream& os, const Json& intf);
void printReady(std::ostream& os, const Json& ready);
void printLeak(std::ostream& os, const Json& leak);
void printDump(std::ostream& os, const Json& dump);
void printTrace(std::ostream& os, const Json& trace);
void printStats(std::ostream& os, const Json& stats);

}  // namespace IpRibAgent::Show
