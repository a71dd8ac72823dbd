// The agent's modes: scripts in virtual time, the interactive shell in real
// time, and the embedded demo. Each returns the process's exit status.
#pragma once

#include <string>
#include <vector>

namespace IpRibAgent {

// Runs the scripts one after the other in one world; stops at the first
// refused line with status 1.
int runScripts(const std::vector<std::string>& files);
// Reads commands at a prompt with line editing and history when standard
// input is a terminal, else line by line; a refused line is reported and
// the shell goes on. Status 0 at the end of input.
int runShell();

}  // namespace IpRibAgent
