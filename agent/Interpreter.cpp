#include "agent/Interpreter.h"

#include <chrono>
#include <istream>
#include <ostream>
#include <thread>

#include "Kel/Clock.h"
#include "Kel/Error.h"

namespace IpRibAgent {

L3::VrfName declaredVrf(Line& line, Interpreter& in) {
  const L3::VrfName name = line.vrfName();
  if (in.world().platform().vrfId(name) == Vrf::VrfIdMap::invalidVrfId) {
    line.refuseLast("a declared VRF (vrf NAME id N declares one)");
  }
  return name;
}

Interpreter::Interpreter(std::ostream& out, std::ostream& err, TimeMode mode)
    : out_(out), err_(err), timeMode_(mode) {
  if (mode == TimeMode::virtualTime) {
    virtualTime_.emplace(1000.0);
    // Each reading of the clock takes a microsecond, as it would in a real
    // run: two stamps of one route never carry the same time.
    virtualTime_->time().stepIs(1e-6);
    traceSink_.emplace(err);
    Kel::TraceRegistry::instance().sinkIs(&*traceSink_);
  }
  for (const auto* area :
       {&setupCommands(), &platformCommands(), &protocolCommands(), &showCommands()}) {
    for (const Command& c : *area) commands_.emplace(c.name, c);
  }
}

Interpreter::~Interpreter() {
  world_.reset();
  if (traceSink_) Kel::TraceRegistry::instance().sinkIs(nullptr);
}

World& Interpreter::world() {
  if (!world_) world_ = std::make_unique<World>(setup_);
  return *world_;
}

bool Interpreter::execute(std::string_view text, const std::string& source, unsigned lineNumber) {
  Line line(text);
  if (line.empty()) return true;
  // A line may make the world to look a VRF up and still be refused; the
  // world it made goes with it, so that set-up commands stay allowed.
  const bool hadWorld = worldMade();
  try {
    std::string name(line.peek());
    if (name == "no") {
      line.expect("no");
      name += ' ';
      name += line.peek();
    }
    const auto it = commands_.find(name);
    if (it == commands_.end()) {
      line.word("a command");
      line.refuseLast(name.starts_with("no ") ? "a command that has a no form"
                                              : "a command (help lists them)");
    }
    line.word("a command");
    it->second.run(line, *this);
    if (timeMode_ == TimeMode::realTime) settle();
    return true;
  } catch (const CommandError& e) {
    err_ << source << ":" << lineNumber << ": " << e.what() << "\n";
  } catch (const Kel::Exception& e) {
    // A value the library refused that the parser let through.
    err_ << source << ":" << lineNumber << ": " << e.what() << "\n";
  }
  if (!hadWorld) world_.reset();
  return false;
}

bool Interpreter::runScript(std::istream& in, const std::string& source) {
  std::string text;
  for (unsigned n = 1; std::getline(in, text); ++n) {
    if (!execute(text, source, n)) return false;
  }
  return true;
}

void Interpreter::runTurn() {
  const double start = Kel::System::currentTime();
  Kel::ActivityManager::instance().runOnce();
  ++turns_;
  const double took = Kel::System::currentTime() - start;
  if (took > longestSlice_) longestSlice_ = took;
}

void Interpreter::settle() {
  Kel::ActivityManager& m = Kel::ActivityManager::instance();
  while (m.nextDeadline() <= Kel::System::currentTime()) runTurn();
}

void Interpreter::timePasses(double seconds) {
  const double end = Kel::System::currentTime() + seconds;
  Kel::ActivityManager& m = Kel::ActivityManager::instance();
  for (;;) {
    settle();
    const double next = std::min(m.nextDeadline(), end);
    if (Kel::System::currentTime() >= end) break;
    if (virtualTime_) {
      virtualTime_->time().timeIs(next);
    } else {
      std::this_thread::sleep_for(std::chrono::duration<double>(next - Kel::System::currentTime()));
    }
  }
}

}  // namespace IpRibAgent
