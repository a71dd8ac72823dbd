// The command interpreter: one command a line, the same language in script
// files, at the prompt and in the demo.
//
// execute() parses a whole line before it changes anything: a refused line
// is reported on the error stream as "SOURCE:LINE: at 'WORD': expected ..."
// and leaves the world as it was. The event loop runs on `start`, `settle`
// and `time`, and, at the prompt, after every line (as a running agent would
// between inputs).
// Time: virtual in scripts and the demo (starting at 1000 s, moving on by a
// microsecond at each reading of the clock and by whole steps on `time`), so
// the same script prints the same output every time; real at the prompt.
// In virtual time, text traces go to the error stream without the wall-clock
// stamp, "<facility>/<level> <message>", for the same reason.
// One thread. Commands are registered by area (Commands*.cpp).
#pragma once

#include <cstdint>
#include <iosfwd>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Kel/System.h"
#include "Kel/Trace.h"
#include "agent/Line.h"
#include "agent/World.h"

namespace IpRibAgent {

class Interpreter;

struct Command {
  const char* name;  // "route", or "no route" for the negated form
  const char* usage;
  void (*run)(Line& line, Interpreter& in);
};

// The commands of each area.
const std::vector<Command>& setupCommands();
const std::vector<Command>& platformCommands();
const std::vector<Command>& protocolCommands();
const std::vector<Command>& showCommands();

// Reads the name of a VRF the platform has declared.
L3::VrfName declaredVrf(Line& line, Interpreter& in);

class Interpreter {
 public:
  enum class TimeMode { virtualTime, realTime };

  Interpreter(std::ostream& out, std::ostream& err, TimeMode mode);
  ~Interpreter();

  // Runs one line; false when it was refused (and reported).
  bool execute(std::string_view text, const std::string& source, unsigned lineNumber);
  // Runs a script; stops at the first refused line and returns false.
  bool runScript(std::istream& in, const std::string& source);

  std::ostream& out() { return out_; }
  // The set-up that the world will be (or was) made with.
  Setup& setup() { return setup_; }
  bool worldMade() const { return world_ != nullptr; }
  // The world, made from the set-up on first use.
  World& world();
  // Drops the world, as the end of the process would.
  void worldDel() { world_.reset(); }

  // Runs the event loop until no clock is due.
  void settle();
  // Moves time on by `seconds` (virtual) or lets it pass (real), running the loop.
  void timePasses(double seconds);
  double longestSlice() const { return longestSlice_; }
  uint64_t turns() const { return turns_; }

  // Every command, for help.
  const std::map<std::string, Command, std::less<>>& commands() const { return commands_; }

 private:
  void runTurn();

  // Writes text traces without their wall-clock stamp.
  class TraceSink final : public Kel::TraceSink {
   public:
    explicit TraceSink(std::ostream& os) : os_(os) {}
    void write(const Kel::TraceFacility& facility, int level, uint64_t,
               std::string_view message) override {
      os_ << facility.name() << "/" << level << " " << message << "\n";
    }

   private:
    std::ostream& os_;
  };

  std::ostream& out_;
  std::ostream& err_;
  TimeMode timeMode_;
  std::optional<Kel::VirtualTimeScope> virtualTime_;
  std::optional<TraceSink> traceSink_;
  Setup setup_;
  std::unique_ptr<World> world_;
  std::map<std::string, Command, std::less<>> commands_;
  double longestSlice_ = 0;
  uint64_t turns_ = 0;
};

}  // namespace IpRibAgent
