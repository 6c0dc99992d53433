#include "ui/look/icons.h"

#include <QIconEngine>
#include <QLibraryInfo>
#include <QPainter>
#include <QPixmap>
#include <QStandardPaths>
#include <QSvgRenderer>
#include <QVersionNumber>
#include <algorithm>
#include <memory>
#include <utility>

/// Resources in a static library must be registered explicitly. This function is outside of any
/// namespace, because the macro declares a global function.
static void registerIcons()
{
    Q_INIT_RESOURCE(icons);
}

namespace quillbox::Icons {

namespace {

/// The sizes that panels, windows and window switchers ask for.
constexpr int kSizes[] = {16, 18, 20, 22, 24, 32, 48, 64, 128, 256};

/// The icon that is installed into the theme that all others inherit from.
constexpr QLatin1StringView kStatusName("org.quillbox.Helper-symbolic");
constexpr QLatin1StringView kStatusFolder("icons/hicolor/symbolic/apps/");

/// Renders an SVG image.
class SvgIconEngine final : public QIconEngine {
public:
    /// `inTheme` is the name of the icon theme's version of the image; may be empty.
    explicit SvgIconEngine(std::shared_ptr<QSvgRenderer> picture, QString inTheme = {})
        : renderer(std::move(picture)), themeName(std::move(inTheme))
    {
    }

    void paint(QPainter* painter, const QRect& area, QIcon::Mode mode, QIcon::State state) override
    {
        const qreal scale = painter->device()->devicePixelRatio();
        QPixmap drawn = pixmap(area.size() * scale, mode, state);
        drawn.setDevicePixelRatio(scale);
        painter->drawPixmap(area, drawn);
    }

    /// `size` is in device pixels.
    QPixmap pixmap(const QSize& size, QIcon::Mode /*mode*/, QIcon::State /*state*/) override
    {
        QPixmap result(size);
        result.fill(Qt::transparent);
        QPainter painter(&result);
        const int side = std::min(size.width(), size.height());
        renderer->render(&painter, QRectF((size.width() - side) / 2.0, (size.height() - side) / 2.0,
                                          side, side));
        return result;
    }

    /// `size` is in device-independent pixels since Qt 6.8, and in device pixels before.
    QPixmap scaledPixmap(const QSize& size, QIcon::Mode mode, QIcon::State state,
                         qreal scale) override
    {
        const bool isInDevicePixels = QLibraryInfo::version() < QVersionNumber(6, 8);
        return pixmap(isInDevicePixels ? size : size * scale, mode, state);
    }

    QSize actualSize(const QSize& size, QIcon::Mode /*mode*/, QIcon::State /*state*/) override
    {
        const int side = std::min(size.width(), size.height());
        return {side, side};
    }

    QList<QSize> availableSizes(QIcon::Mode /*mode*/, QIcon::State /*state*/) override
    {
        QList<QSize> sizes;
        for (const int side : kSizes)
            sizes.append({side, side});
        return sizes;
    }

    /// QIcon::name().
    QString iconName() override { return themeName; }

    QIconEngine* clone() const override { return new SvgIconEngine(renderer, themeName); }

private:
    const std::shared_ptr<QSvgRenderer> renderer;
    const QString themeName;
};

/// QIcon::hasThemeIcon() ignores icons that Qt cannot draw, such as SVG images where the plugin for
/// them is not installed. Panels can.
bool isStatusIconInstalled()
{
    const QString file = kStatusFolder + kStatusName + QLatin1StringView(".svg");
    return !QStandardPaths::locate(QStandardPaths::GenericDataLocation, file).isEmpty();
}

QIcon makeIcon(const QString& path, const QString& themeName = {})
{
    registerIcons();
    return QIcon(new SvgIconEngine(std::make_shared<QSvgRenderer>(path), themeName));
}

} // namespace

QIcon application()
{
    return makeIcon(QStringLiteral(":/quillbox/application.svg"));
}

QIcon status()
{
    return makeIcon(QStringLiteral(":/quillbox/status.svg"),
                    isStatusIconInstalled() ? QString(kStatusName) : QString());
}

} // namespace quillbox::Icons
