#include "ui/QtScreenEnvironment.h"

#include <QCursor>
#include <QGuiApplication>
#include <QScreen>
#include <QTimer>

namespace lorvane {

namespace {
RectF toRect(const QRect& r) { return {double(r.x()), double(r.y()), double(r.width()), double(r.height())}; }
}  // namespace

QtScreenEnvironment::QtScreenEnvironment() : context_(std::make_unique<QObject>()) {
    QObject::connect(qGuiApp, &QGuiApplication::screenAdded, context_.get(), [this](QScreen* screen) {
        watch(screen);
        changed();
    });
    QObject::connect(qGuiApp, &QGuiApplication::screenRemoved, context_.get(), [this](QScreen*) { changed(); });
    QObject::connect(qGuiApp, &QGuiApplication::primaryScreenChanged, context_.get(), [this](QScreen*) { changed(); });
    for (QScreen* screen : QGuiApplication::screens()) watch(screen);
}

QtScreenEnvironment::~QtScreenEnvironment() = default;

void QtScreenEnvironment::watch(QScreen* screen) {
    QObject::connect(screen, &QScreen::geometryChanged, context_.get(), [this] { changed(); });
    QObject::connect(screen, &QScreen::availableGeometryChanged, context_.get(), [this] { changed(); });
}

void QtScreenEnvironment::changed() {
    // One change of the display arrangement arrives as several signals; report it once, after them.
    if (pending_) return;
    pending_ = true;
    QTimer::singleShot(0, context_.get(), [this] {
        pending_ = false;
        screenParametersDidChange();
    });
}

std::vector<ScreenInfo> QtScreenEnvironment::screens() const {
    std::vector<ScreenInfo> result;
    for (QScreen* screen : QGuiApplication::screens()) {
        result.push_back({toRect(screen->geometry()), toRect(screen->availableGeometry())});
    }
    return result;
}

std::optional<std::size_t> QtScreenEnvironment::mainScreen() const {
    const auto all = QGuiApplication::screens();
    const qsizetype index = all.indexOf(QGuiApplication::primaryScreen());
    if (index < 0) return std::nullopt;
    return static_cast<std::size_t>(index);
}

PointF QtScreenEnvironment::pointerLocation() const {
    const QPoint p = QCursor::pos();
    return {double(p.x()), double(p.y())};
}

}  // namespace lorvane
