#pragma once
// Asks the Wayland compositor of WAYLAND_DISPLAY which globals it advertises, over a short-lived
// connection of its own. Used once at start-up, before Qt connects.

#include <optional>
#include <string>
#include <vector>

namespace lorvane {

// The advertised interface names; none when no compositor could be reached.
std::optional<std::vector<std::string>> probeWaylandGlobals();

}  // namespace lorvane
