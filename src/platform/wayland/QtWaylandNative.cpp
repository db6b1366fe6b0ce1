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

}  // namespace lorvane
