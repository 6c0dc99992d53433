#include "ui/icons.h"

#include <QColor>
#include <QIconEngine>
#include <QLibraryInfo>
#include <QPainter>
#include <QPixmap>
#include <QSvgRenderer>
#include <QVersionNumber>
#include <algorithm>
#include <memory>
#include <optional>
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

/// Has a contrast ratio of more than 3:1 to white, to black and to the panels of common dark
/// themes.
QColor panelColour()
{
    return {0x84, 0x8b, 0x95};
}

/// Renders an SVG image, in its own colours or in a single colour.
class SvgIconEngine final : public QIconEngine {
public:
    SvgIconEngine(std::shared_ptr<QSvgRenderer> picture, std::optional<QColor> onlyColour)
        : renderer(std::move(picture)), colour(onlyColour)
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
    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State /*state*/) override
    {
        QPixmap result(size);
        result.fill(Qt::transparent);
        QPainter painter(&result);
        if (mode == QIcon::Disabled)
            painter.setOpacity(0.4);
        const int side = std::min(size.width(), size.height());
        renderer->render(&painter, QRectF((size.width() - side) / 2.0, (size.height() - side) / 2.0,
                                          side, side));
        if (colour) {
            painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
            painter.fillRect(result.rect(), *colour);
        }
        return result;
    }

    /// `size` is in device-independent pixels since Qt 6.8, and in device pixels before.
    QPixmap scaledPixmap(const QSize& size, QIcon::Mode mode, QIcon::State state,
                         qreal scale) override
    {
        const bool isInDevicePixels = QLibraryInfo::version() < QVersionNumber(6, 8);
        QPixmap result = pixmap(isInDevicePixels ? size : size * scale, mode, state);
        result.setDevicePixelRatio(scale);
        return result;
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

    bool isNull() override { return !renderer->isValid(); }

    QIconEngine* clone() const override { return new SvgIconEngine(renderer, colour); }

private:
    const std::shared_ptr<QSvgRenderer> renderer;
    const std::optional<QColor> colour;
};

QIcon makeIcon(const QString& path, std::optional<QColor> onlyColour = std::nullopt)
{
    registerIcons();
    return QIcon(new SvgIconEngine(std::make_shared<QSvgRenderer>(path), onlyColour));
}

} // namespace

QIcon application()
{
    return makeIcon(QStringLiteral(":/quillbox/application.svg"));
}

QIcon status()
{
    return makeIcon(QStringLiteral(":/quillbox/status.svg"), panelColour());
}

} // namespace quillbox::Icons
