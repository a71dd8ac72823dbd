// Value types with a canonical string form: whatever parses must print a
// form that parses back to an equal value (same hash, neither less than the
// other) and prints the same again; whatever is refused must be refused with
// a Kel exception, and a deserialisation error must name one of the type's
// attributes.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <optional>
#include <string>

#include "IpRib/ProtocolContainerKey.h"
#include "IpRib/ProtocolRouteLeak.h"
#include "IpRib/ProtocolRouteStatus.h"
#include "Kel/Strep.h"
#include "Kel/String.h"
#include "fuzz/FuzzTarget.h"
#include "platform/L3/VrfName.h"
#include "platform/Pando/AddressFamily.h"
#include "platform/Pando/IntfId.h"
#include "platform/Pando/IpGenAddr.h"
#include "platform/Pando/IpGenPrefix.h"
#include "platform/Routing/Rib/ViaKey.h"
#include "platform/Routing/Rib/ViaSetConfigKey.h"
#include "platform/Routing/Route/RouteKey.h"
#include "platform/Routing/RouteTypes.h"
#include "platform/Vrf/VrfId.h"

namespace IpRibFuzz {

namespace {

using Attributes = std::initializer_list<std::string_view>;

// A value read by a free function, given the parse constructor that
// Kel::strepToValue expects.
template <class V, V (*parse)(Kel::StrepIt&, Kel::StrepIt)>
struct Field {
  V v;
  Field(Kel::StrepIt& it, Kel::StrepIt end) : v(parse(it, end)) {}
};

std::string quoted(std::string_view s) { return Kel::quoteStrep(s); }

[[noreturn]] void fault(std::string_view input, const std::string& what) {
  throw FuzzFault(what + " (input " + quoted(input) + ")");
}

template <class T>
bool same(const T& a, const T& b) {
  if constexpr (std::is_floating_point_v<T>) {
    return (std::isnan(a) && std::isnan(b)) || (a == b && std::signbit(a) == std::signbit(b));
  } else {
    if (!(a == b)) return false;
    if constexpr (requires { a < b; }) {
      if (a < b || b < a) return false;
    }
    if constexpr (requires { a.hash(0u); }) {
      for (uint32_t seed : {0u, 0x9e3779b9u}) {
        if (a.hash(seed) != b.hash(seed)) return false;
      }
    }
    return true;
  }
}

// Parses `input` whole with `parse`; checks the round trip of what it reads
// and the kind of error of what it refuses. Returns the value read.
template <class T, class Parse, class Print>
std::optional<T> roundTrip(std::string_view input, Parse parse, Print print,
                           Attributes attributes) {
  std::optional<T> value;
  try {
    value.emplace(parse(input));
  } catch (const Kel::DeserializationError& e) {
    if (std::find(attributes.begin(), attributes.end(), e.attribute()) == attributes.end()) {
      fault(input,
            "deserialisation error names no attribute of the type: " + std::string(e.what()));
    }
    return std::nullopt;
  } catch (const Kel::Exception&) {
    return std::nullopt;
  }
  const std::string printed = print(*value);
  std::optional<T> again;
  try {
    again.emplace(parse(printed));
  } catch (const Kel::Exception& e) {
    fault(input, "printed form " + quoted(printed) + " does not parse: " + e.what());
  }
  if (!same(*value, *again)) fault(input, "printed form " + quoted(printed) + " reads back other");
  if (print(*again) != printed) {
    fault(input, "printed form " + quoted(printed) + " prints back as " + quoted(print(*again)));
  }
  return value;
}

// The canonical form of a type with a parse constructor and valueToStrep.
template <class T>
void strepTarget(std::string_view input, Attributes attributes = {}) {
  roundTrip<T>(
      input, [](std::string_view s) { return Kel::strepToValue<T>(s); },
      [](const T& v) { return valueToStrep(v); }, attributes);
}

// The canonical form of a value read by a free function.
template <class V, V (*parse)(Kel::StrepIt&, Kel::StrepIt), std::string (*print)(V)>
void fieldTarget(std::string_view input) {
  roundTrip<V>(input, [](std::string_view s) { return Kel::strepToValue<Field<V, parse>>(s).v; },
               print, {});
}

uint64_t strepToUint32(Kel::StrepIt& it, Kel::StrepIt end) {
  return Kel::strepToUnsigned(it, end, UINT32_MAX, "uint32_t");
}
std::string printBool(bool v) { return Kel::valueToStrep(v); }
std::string printUnsigned(uint64_t v) { return Kel::valueToStrep(v); }
std::string printDouble(double v) { return Kel::valueToStrep(v); }
std::string printVrfId(Vrf::VrfIdMap::VrfId v) { return Kel::valueToStrep(v); }
std::string printAf(Pando::AddressFamily v) { return Pando::valueToStrep(v); }
std::string printRouteType(Routing::Fib::RouteType v) { return Routing::Fib::valueToStrep(v); }
std::string printViaTypeEnum(Routing::Protocol::ViaTypeEnum v) {
  return Routing::Protocol::valueToStrep(v);
}

void kelScalars(std::string_view input) {
  fieldTarget<bool, Kel::strepToBool, printBool>(input);
  fieldTarget<uint64_t, strepToUint32, printUnsigned>(input);
  fieldTarget<double, Kel::strepToDouble, printDouble>(input);
}

// An address or prefix has a text form beside its canonical one; both must
// agree, and the text form "none" is the empty value.
template <class T>
void textAndStrep(std::string_view input) {
  const std::optional<T> text = roundTrip<T>(
      input, [](std::string_view s) { return T(s); }, [](const T& v) { return valueToStrep(v); },
      {});
  strepTarget<T>(input);
  if constexpr (std::is_same_v<T, Pando::IpGenAddr>) {
    const std::optional<T> plain = T::fromText(input);
    if (plain.has_value() != (text.has_value() && !text->isEmpty()) ||
        (plain && !same(*plain, *text))) {
      fault(input, "fromText and the text constructor disagree");
    }
  }
}

}  // namespace

const std::vector<FuzzTarget>& valueTargets() {
  using namespace Routing::Protocol;
  static const std::vector<FuzzTarget> targets = {
      {"kel-string", [](std::string_view s) { strepTarget<Kel::String>(s); }},
      {"kel-scalars", kelScalars},
      {"vrf-name", [](std::string_view s) { strepTarget<L3::VrfName>(s); }},
      {"vrf-id", fieldTarget<Vrf::VrfIdMap::VrfId, Vrf::VrfIdMap::vrfIdFromStrep, printVrfId>},
      {"address-family", fieldTarget<Pando::AddressFamily, Pando::addressFamilyFromStrep, printAf>},
      {"ip-addr", textAndStrep<Pando::IpGenAddr>},
      {"ip-prefix", textAndStrep<Pando::IpGenPrefix>},
      {"intf-id", [](std::string_view s) { strepTarget<Pando::IntfId>(s); }},
      {"route-type",
       fieldTarget<Routing::Fib::RouteType, Routing::Fib::routeTypeFromStrep, printRouteType>},
      {"route-key",
       [](std::string_view s) {
         strepTarget<Routing::RouteKey>(s, {"prefix", "preference"});
       }},
      {"via-key",
       [](std::string_view s) {
         strepTarget<Routing::Rib::ViaKey>(s, {"kind", "vrfId", "selector", "viaIndex"});
       }},
      {"via-set-config-key",
       [](std::string_view s) {
         strepTarget<Routing::Rib::ViaSetConfigKey>(s, {"protocol", "instance"});
       }},
      {"container-key",
       [](std::string_view s) {
         strepTarget<ContainerKey>(s, {"vrfName", "af"});
       }},
      {"route-status-key",
       [](std::string_view s) {
         strepTarget<RouteStatusKey>(s, {"vrfId", "af"});
       }},
      {"prefix-pref-vrf-id",
       [](std::string_view s) {
         strepTarget<PrefixPrefVrfId>(s, {"prefix", "pref", "vrfId"});
       }},
      {"via-type",
       [](std::string_view s) {
         fieldTarget<ViaTypeEnum, sequenceToValue, printViaTypeEnum>(s);
         strepTarget<ViaType>(s, {"viaType"});
       }},
      {"vrf-id-af",
       [](std::string_view s) {
         strepTarget<VrfIdAf>(s, {"vrfId", "af"});
       }},
      {"vrf-pair-af",
       [](std::string_view s) {
         strepTarget<VrfPairAf>(s, {"srcVrf", "dstVrf", "af"});
       }},
  };
  return targets;
}

}  // namespace IpRibFuzz
