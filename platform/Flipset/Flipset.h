// Flipset: the agent's feature toggles, by name.
//
// getToggleState reads the toggles file once per process, on the first call,
// and answers from a cache after that. The file is the path in the
// environment variable IPRIB_TOGGLES when it is set (and only that path),
// else "IpRib.json" in the current directory, else "/etc/IpRib.json"; with
// no file every toggle has its default. The file is a flat JSON object of
// booleans, {"StaticRouteMetric": false}; a later duplicate name wins. A file
// that is not exactly that, or that IPRIB_TOGGLES names and cannot be read,
// is reported once on stderr, at the load, and ignored as a whole; an empty
// IPRIB_TOGGLES names no file.
// A toggle the file does not name has its built-in default: on for
// "StaticRouteMetric", off for "PacedViaMetricSweep", "SingleRouteReactor",
// "DeferredViaFilingStamp" and for names the agent does not know.
// One thread; the cache is process-wide.
// Decided here: toggleStateIs overrides until the next reloadToggles, which
// drops the file's values and the overrides alike.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace Flipset {

bool getToggleState(std::string_view name);
// Sets a toggle's value in the cache (loading the file first if need be).
void toggleStateIs(std::string_view name, bool on);
// Drops the cache; the next getToggleState reads the file again.
void reloadToggles();
// Changes with every toggleStateIs and reloadToggles, so that a hot path may
// keep a state and re-read it only when this moves.
uint64_t togglesVersion();

using Toggles = std::map<std::string, bool, std::less<>>;
// Parses the toggles file's text; on failure returns nothing and sets `error`
// to what is wrong and at which byte offset.
std::optional<Toggles> parseToggles(std::string_view text, std::string& error);

}  // namespace Flipset
