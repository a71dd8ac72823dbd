// The embedded demo scenario of `iprib demo`.
#pragma once

#include <ostream>

namespace IpRibAgent {

// Builds a protocol route status in memory and prints it with the canonical
// forms of its keys and the notifications a watching reactor receives.
int runDemo(std::ostream& out);

}  // namespace IpRibAgent
