#include "platform/wayland/QtWaylandNative.h"

#include <QGuiApplication>
#include <QScreen>
#include <qpa/qplatformnativeinterface.h>
#include <qpa/qplatformscreen.h>

#include <algorithm>
#include <cmath>

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

int qtWaylandOutputScale(wl_output* output) {
    QPlatformNativeInterface* native = nativeInterface();
    if (!native || !output) return 1;
    for (QScreen* screen : QGuiApplication::screens()) {
        if (native->nativeResourceForScreen("output", screen) != output || !screen->handle()) continue;
        // The output's own scale, whatever QT_SCALE_FACTOR adds on top for widgets.
        return std::clamp(static_cast<int>(std::ceil(screen->handle()->devicePixelRatio())), 1, 8);
    }
    return 1;
}

}  // namespace lorvane
