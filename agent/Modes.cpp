#include "agent/Modes.h"

#include <readline/history.h>
#include <readline/readline.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iostream>

#include "agent/Interpreter.h"

namespace IpRibAgent {

int runScripts(const std::vector<std::string>& files) {
  Interpreter in(std::cout, std::cerr, Interpreter::TimeMode::virtualTime);
  for (const std::string& file : files) {
    std::ifstream script(file);
    if (!script) {
      std::cerr << "iprib: cannot read " << file << "\n";
      return 1;
    }
    if (!in.runScript(script, file)) return 1;
  }
  return 0;
}

int runShell() {
  Interpreter in(std::cout, std::cerr, Interpreter::TimeMode::realTime);
  if (!isatty(STDIN_FILENO)) {
    std::string text;
    for (unsigned n = 1; std::getline(std::cin, text); ++n) in.execute(text, "<stdin>", n);
    return 0;
  }
  for (unsigned n = 1;; ++n) {
    char* text = readline("iprib> ");
    if (text == nullptr) break;
    if (*text != '\0') add_history(text);
    in.execute(text, "<shell>", n);
    std::free(text);
  }
  std::cout << "\n";
  return 0;
}

}  // namespace IpRibAgent
