#include "ui/QtScreenEnvironment.h"

#include <QAbstractNativeEventFilter>
#include <QCursor>
#include <QGuiApplication>
#include <QScreen>
#include <QTimer>

#include "platform/x11/X11Desktop.h"

namespace lorvane {

namespace {
RectF toRect(const QRect& r) { return {double(r.x()), double(r.y()), double(r.width()), double(r.height())}; }
}  // namespace

// Tells of work area and desktop changes, which move the visible frames without any screen changing.
class QtScreenEnvironment::WorkAreaFilter final : public QAbstractNativeEventFilter {
public:
    explicit WorkAreaFilter(QtScreenEnvironment& owner) : owner_(owner) {}
    bool nativeEventFilter(const QByteArray& type, void* message, qintptr*) override {
        if (type == "xcb_generic_event_t" && x11::isWorkAreaChange(message)) owner_.changed();
        return false;
    }

private:
    QtScreenEnvironment& owner_;
};

QtScreenEnvironment::QtScreenEnvironment() : context_(std::make_unique<QObject>()) {
    if (x11::isAvailable()) {
        filter_ = std::make_unique<WorkAreaFilter>(*this);
        qGuiApp->installNativeEventFilter(filter_.get());
    }
    QObject::connect(qGuiApp, &QGuiApplication::screenAdded, context_.get(), [this](QScreen* screen) {
        watch(screen);
        changed();
    });
    QObject::connect(qGuiApp, &QGuiApplication::screenRemoved, context_.get(), [this](QScreen*) { changed(); });
    QObject::connect(qGuiApp, &QGuiApplication::primaryScreenChanged, context_.get(), [this](QScreen*) { changed(); });
    for (QScreen* screen : QGuiApplication::screens()) watch(screen);
}

QtScreenEnvironment::~QtScreenEnvironment() {
    if (filter_) qGuiApp->removeNativeEventFilter(filter_.get());
}

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
    const auto workArea = x11::workArea();
    for (QScreen* screen : QGuiApplication::screens()) {
        const QRect frame = screen->geometry();
        QRect visible = screen->availableGeometry();
        if (workArea) {
            // The work area is in device pixels; Qt's geometry in scaled, device-independent ones.
            const qreal ratio = screen->devicePixelRatio();
            const QRect nativeFrame(QPoint(qRound(frame.x() * ratio), qRound(frame.y() * ratio)),
                                    QSize(qRound(frame.width() * ratio), qRound(frame.height() * ratio)));
            const QRect nativeVisible = nativeFrame & *workArea;
            if (!nativeVisible.isEmpty()) {
                visible = QRect(QPoint(qRound(nativeVisible.x() / ratio), qRound(nativeVisible.y() / ratio)),
                                QSize(qRound(nativeVisible.width() / ratio), qRound(nativeVisible.height() / ratio)));
            }
        }
        result.push_back({toRect(frame), toRect(visible)});
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
