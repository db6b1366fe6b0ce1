#include "platform/wayland/OverlayPathSelection.h"

#include <QtGlobal>

#include "core/Logging.h"
#include "platform/wayland/WaylandGlobalsProbe.h"

namespace lorvane {

namespace {
std::string environment(const char* name) { return qEnvironmentVariable(name).toStdString(); }
}  // namespace

OverlayPathChoice selectOverlayPath() {
    OverlayPathInputs inputs;
    inputs.waylandDisplay = environment("WAYLAND_DISPLAY");
    inputs.x11Display = environment("DISPLAY");
    inputs.qtPlatform = environment("QT_QPA_PLATFORM");
    inputs.overlayOverride = environment("LORVANE_OVERLAY");
    if (!inputs.waylandDisplay.empty()) inputs.waylandGlobals = probeWaylandGlobals();
    OverlayPathChoice choice = chooseOverlayPath(inputs);
    if (!choice.qtPlatform.empty()) qputenv("QT_QPA_PLATFORM", QByteArray::fromStdString(choice.qtPlatform));
    qCInfo(lcOverlay, "Overlay: %s", choice.reason.c_str());
    return choice;
}

}  // namespace lorvane
