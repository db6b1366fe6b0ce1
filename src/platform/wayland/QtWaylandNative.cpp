#include "platform/wayland/QtWaylandNative.h"

#include <QGuiApplication>
#include <qpa/qplatformnativeinterface.h>

namespace lorvane {

namespace {
QPlatformNativeInterface* nativeInterface() {
    if (!qGuiApp || !QGuiApplication::platformName().startsWith(QLatin1String("wayland"))) return nullptr;
    return QGuiApplication::platformNativeInterface();
}
}  // namespace

wl_display* qtWaylandDisplay() {
    QPlatformNativeInterface* native = nativeInterface();
    return native ? static_cast<wl_display*>(native->nativeResourceForIntegration("wl_display")) : nullptr;
}

wl_output* qtWaylandOutput(QScreen* screen) {
    QPlatformNativeInterface* native = nativeInterface();
    if (!native || !screen) return nullptr;
    return static_cast<wl_output*>(native->nativeResourceForScreen("output", screen));
}

}  // namespace lorvane
