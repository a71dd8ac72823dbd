// iprib: the reference agent. For now it knows one command, `demo`.
#include <cstring>
#include <iostream>

#include "agent/Demo.h"

namespace {
int usage() {
  std::cerr << "usage: iprib demo\n";
  return 2;
}
}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return usage();
  if (std::strcmp(argv[1], "demo") == 0) return IpRibAgent::runDemo(std::cout);
  std::cerr << "iprib: unknown command '" << argv[1] << "'\n";
  return usage();
}
