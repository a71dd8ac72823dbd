#include "agent/ShowText.h"

#include <cstdio>
#include <string>

namespace IpRibAgent::Show {

namespace {

// "via 192.0.2.1, eth1, label 16"
std::string viaText(const Json& v) {
  if (v.contains("viaKey")) return "via key " + v["viaKey"].get<std::string>();
  std::string out = "via " + v["nexthop"].get<std::string>();
  if (!v["interface"].is_null()) out += ", " + v["interface"].get<std::string>();
  if (!v["label"].is_null()) out += ", label " + std::to_string(v["label"].get<uint32_t>());
  return out;
}

std::string hex(uint64_t v) {
  char buf[24];
  std::snprintf(buf, sizeof buf, "0x%llx", static_cast<unsigned long long>(v));
  return buf;
}

std::string onOff(const Json& v) { return v.is_null() ? "-" : v.get<bool>() ? "yes" : "no"; }

// One route, its first via on the line of the prefix, the others aligned under it.
void printRoute(std::ostream& os, const Json& r, const std::string& indent) {
  const std::string head = indent + r["prefix"].get<std::string>() + " [" +
                           std::to_string(r["preference"].get<unsigned>()) + "/" +
                           std::to_string(r["metric"].get<uint32_t>()) + "] ";
  std::string notes;
  if (r["tag"].get<uint32_t>() != 0) notes += "tag " + std::to_string(r["tag"].get<uint32_t>());
  if (!r["fib"].get<bool>()) notes += std::string(notes.empty() ? "" : ", ") + "not in FIB";
  if (r["viaSetFlags"].get<uint32_t>() != 0) {
    notes += std::string(notes.empty() ? "" : ", ") + "via set flags " +
             hex(r["viaSetFlags"].get<uint32_t>());
  }
  notes = notes.empty() ? "" : " (" + notes + ")";
  const Json& vias = r["vias"];
  if (vias.empty()) {
    os << head << "no vias" << notes << "\n";
    return;
  }
  for (size_t i = 0; i < vias.size(); ++i) {
    os << (i == 0 ? head : std::string(head.size(), ' ')) << viaText(vias[i])
       << (i == 0 ? notes : "") << "\n";
  }
}

}  // namespace

void printRib(std::ostream& os, const Json& rib) {
  const Json& routes = rib["routes"];
  if (routes.empty()) os << "no routes\n";
  std::string vrf;
  for (const Json& r : routes) {
    const std::string name = r["vrf"].get<std::string>();
    if (name != vrf) {
      os << "VRF " << name << " (id " << r["vrfId"].get<uint32_t>() << ")\n";
      vrf = name;
    }
    printRoute(os, r, "  ");
  }
}

void printViaSets(std::ostream& os, const Json& viaSets) {
  if (viaSets["viaSets"].empty()) os << "no via sets\n";
  for (const Json& s : viaSets["viaSets"]) {
    const uint32_t routes = s["routes"].get<uint32_t>();
    os << "via set " << s["id"].get<uint32_t>() << ", flags " << hex(s["flags"].get<uint32_t>())
       << ", " << routes << (routes == 1 ? " route" : " routes") << "\n";
    for (const Json& v : s["vias"]) os << "  " << viaText(v) << "\n";
  }
}

void printExplain(std::ostream& os, const Json& e) {
  os << e["vrf"].get<std::string>() << " " << e["prefix"].get<std::string>() << ": ";
  if (!e["inStatus"].get<bool>()) {
    os << "not in the protocol's status, so not in the RIB\n";
    return;
  }
  os << e["outcome"].get<std::string>() << "\n";
  for (const Json& p : e["preferences"]) {
    os << "  preference " << p["preference"].get<unsigned>();
    if (p["fecType"].get<unsigned>() != 0) os << " (fec " << p["fecType"].get<unsigned>() << ")";
    os << (p["won"].get<bool>() ? ": won" : ": no usable via") << "\n";
    for (const Json& t : p["viaTypes"]) {
      os << "    " << t["viaType"].get<std::string>()
         << (t["mostPreferred"].get<bool>() ? " (most preferred)" : "") << "\n";
      for (const Json& v : t["vias"]) {
        os << "      " << viaText(v) << ", metric " << v["metric"].get<uint32_t>() << ": "
           << v["verdict"].get<std::string>() << "\n";
      }
    }
  }
  if (!e["lowestMetric"].is_null()) {
    os << "  lowest metric kept: " << e["lowestMetric"].get<uint32_t>() << "\n";
  }
  if (!e["route"].is_null()) {
    os << "  in the RIB:\n";
    printRoute(os, e["route"], "    ");
  }
}

void printBfd(std::ostream& os, const Json& bfd) {
  if (bfd["entries"].empty()) os << "no BFD-tracked next hops\n";
  for (const Json& e : bfd["entries"]) {
    os << e["nexthop"].get<std::string>();
    if (!e["interface"].is_null()) os << "%" << e["interface"].get<std::string>();
    os << ": " << (e["up"].get<bool>() ? "up" : "down");
    if (!e["resolvedInterface"].is_null()) {
      os << ", resolved " << e["resolvedInterface"].get<std::string>();
    }
    os << "\n";
    for (const Json& r : e["routes"]) {
      os << "  " << r["prefix"].get<std::string>() << " pref " << r["preference"].get<unsigned>()
         << ":";
      for (const Json& v : r["vias"]) os << " " << viaText(v);
      os << "\n";
    }
  }
}

void printIntf(std::ostream& os, const Json& intf) {
  os << "VRF " << intf["vrf"].get<std::string>() << "\n";
  for (const Json& i : intf["interfaces"]) {
    os << "  " << i["interface"].get<std::string>() << " " << i["family"].get<std::string>()
       << ": routing " << (i["routing"].get<bool>() ? "on" : "off") << ", usable "
       << onOff(i["usable"]) << "\n";
  }
  for (const char* af : {"ipv4", "ipv6"}) {
    const Json& c = intf["changes"][af];
    os << "  " << af << " interface status changes: "
       << (c.is_null() ? std::string("no container") : std::to_string(c.get<uint32_t>())) << "\n";
  }
}

void printReady(std::ostream& os, const Json& ready) {
  for (const char* set : {"readyVrfIpv4", "readyVrfIpv6", "mcReadyVrfIpv4", "mcReadyVrfIpv6"}) {
    os << set << ":";
    for (const Json& n : ready[set]) os << " " << n.get<std::string>();
    os << "\n";
  }
  for (const Json& v : ready["vrfs"]) {
    os << "VRF " << v["vrf"].get<std::string>() << " (id " << v["vrfId"].get<uint32_t>() << ")\n";
    for (const Json& f : v["families"]) {
      os << "  " << (f["multicast"].get<bool>() ? "mrib " : "") << f["family"].get<std::string>()
         << ": " << (f["ready"].get<bool>() ? "ready" : "not ready");
      for (size_t i = 0; i < f["waitingFor"].size(); ++i) {
        os << (i == 0 ? ", waiting for " : ", ") << f["waitingFor"][i].get<std::string>();
      }
      os << "\n";
    }
  }
  for (const Json& r : ready["vrfReadyStatus"]) {
    os << "readiness of " << r["vrf"].get<std::string>() << ": routes ready v4 "
       << onOff(r["v4RoutesReady"]) << " v6 " << onOff(r["v6RoutesReady"])
       << ", review complete v4 " << onOff(r["v4RouteReviewComplete"]) << " v6 "
       << onOff(r["v6RouteReviewComplete"]) << ", RIB sequence "
       << r["ribReadySeqStatus"].get<uint32_t>() << " answered";
    if (!r["ribReadySeqTrigger"].is_null()) {
      os << " of " << r["ribReadySeqTrigger"].get<uint32_t>() << " asked";
    }
    os << "\n";
  }
}

// "10.1.0.0/24 [1/5] from red (id 3), also offered by blue (id 5)"
void printLeak(std::ostream& os, const Json& leak) {
  os << "VRF " << leak["vrf"].get<std::string>() << " (id " << leak["vrfId"].get<uint32_t>() << ")"
     << (leak["routes"].empty() ? ": no leaked routes" : "") << "\n";
  for (const Json& r : leak["routes"]) {
    os << "  " << r["prefix"].get<std::string>() << " [" << r["preference"].get<unsigned>() << "/"
       << r["metric"].get<uint32_t>() << "] from " << r["sourceVrf"].get<std::string>() << " (id "
       << r["sourceVrfId"].get<uint32_t>() << ")";
    const Json& also = r["alsoOfferedBy"];
    for (size_t i = 0; i < also.size(); ++i) {
      os << (i == 0 ? ", also offered by " : ", ") << also[i]["vrf"].get<std::string>() << " (id "
         << also[i]["vrfId"].get<uint32_t>() << ")";
    }
    os << "\n";
  }
}

void printDump(std::ostream& os, const Json& dump) {
  os << (dump["dump"].is_null() ? "the library has not started\n"
                                : dump["dump"].get<std::string>());
}

void printTrace(std::ostream& os, const Json& trace) {
  for (const Json& r : trace["records"]) {
    os << trace["facility"].get<std::string>() << "/" << r["level"].get<int>() << " "
       << r["message"].get<std::string>() << "\n";
  }
}

void printStats(std::ostream& os, const Json& s) {
  os << "evaluations " << s["evaluations"].get<uint64_t>() << ", review slices "
     << s["reviewSlices"].get<uint64_t>() << ", reviews complete "
     << s["reviewsComplete"].get<uint64_t>() << "\n"
     << "longest slice " << s["longestSlice"].get<double>() << " s over "
     << s["turns"].get<uint64_t>() << " turns\n"
     << "containers " << s["containers"].get<uint64_t>() << ", RIB routes "
     << s["ribRoutes"].get<uint64_t>() << ", via sets " << s["viaSets"].get<uint64_t>()
     << ", leaked routes " << s["leakedRoutes"].get<uint64_t>() << "\n"
     << "memory: " << s["memory"]["requested"].get<uint64_t>() << " bytes requested, "
     << s["memory"]["held"].get<uint64_t>() << " held in pooled blocks\n";
}

}  // namespace IpRibAgent::Show
