// The embedded scenario of `iprib demo`: a story in steps, each a short
// narration and the commands that play it, echoed with their output. It
// runs through the same interpreter as scripts, in virtual time, so its
// output is the same on every run.
#pragma once

#include <ostream>

namespace IpRibAgent {

int runDemo(std::ostream& out);

}  // namespace IpRibAgent
