#include "ui/look/helper_style.h"

#include "ui/look/brand.h"
#include "ui/look/rounded_box.h"
#include "ui/look/text_style.h"

#include <QPainter>
#include <QPolygonF>
#include <QStyleFactory>
#include <QStyleOption>
#include <QVariant>
#include <QWidget>
#include <algorithm>
#include <cmath>

namespace quillbox {

namespace {

constexpr int kIndicatorSize = 16;
constexpr int kIndicatorRadius = 4;
constexpr int kLabelSpacing = 8;
constexpr int kButtonRadius = 6;
constexpr int kTallButtonRadius = 9;
constexpr int kTallButtonHeight = 30;
constexpr int kButtonPaddingX = 12;
constexpr int kButtonPaddingY = 4;

/// The opacity of the dark overlay of a blue button.
constexpr float kHoverShade = 0.12F;
constexpr float kPressShade = 0.28F;

/// The strengths of the tints of slate.
constexpr double kBorderStrength = 0.7;
constexpr double kHoverStrength = 0.16;
constexpr double kPressedStrength = 0.32;

constexpr int kFieldRadius = 5;
constexpr int kScrollBarExtent = 12;
constexpr int kScrollHandleWidth = 5;
constexpr int kScrollHandleDistance = 3;
constexpr int kShortestScrollHandle = 24;
constexpr int kFocusDistance = 4;

bool has(const QStyleOption& option, QStyle::StateFlag flag)
{
    return option.state.testFlag(flag);
}

/// A colour of the brand as it looks when painted on white at that opacity.
QColor tint(const QColor& colour, double opacity)
{
    const auto mix = [opacity](int component) {
        return static_cast<int>(std::round(component * opacity + 255 * (1 - opacity)));
    };
    return {mix(colour.red()), mix(colour.green()), mix(colour.blue())};
}

/// The border of a control. Its contrast with the fills on both sides is at least 3:1, which makes
/// the extent of the control visible.
QColor controlBorder()
{
    return tint(Brand::slate, kBorderStrength);
}

/// Tinted with the blue of the filled button, so that push buttons look related, and not like
/// fields.
QColor buttonFill(const QStyleOption& option)
{
    if (has(option, QStyle::State_Sunken))
        return tint(Brand::blue, kPressedStrength);
    return has(option, QStyle::State_MouseOver) ? tint(Brand::blue, kHoverStrength) : Brand::pale;
}

/// Blue; darker under the pointer, and darker still when pressed.
void drawFilledButton(QPainter& painter, const QStyleOption& button, int radius)
{
    const auto lay = [&](const QColor& colour) {
        RoundedBox::paint(painter, button.rect,
                          {.radius = radius, .fill = colour, .border = colour});
    };
    lay(Brand::blue);
    if (!has(button, QStyle::State_Sunken) && !has(button, QStyle::State_MouseOver))
        return;
    QColor shade = Brand::navy;
    shade.setAlphaF(has(button, QStyle::State_Sunken) ? kPressShade : kHoverShade);
    lay(shade);
}

bool isFilled(const QStyleOptionButton& button, const QWidget* widget)
{
    return button.features.testFlag(QStyleOptionButton::DefaultButton)
           || (widget && widget->property(HelperStyle::kIsFilled).toBool());
}

void drawButton(QPainter& painter, const QStyleOptionButton& button, const QWidget* widget)
{
    if (button.features.testFlag(QStyleOptionButton::Flat))
        return;
    const bool isTall = button.rect.height() >= kTallButtonHeight;
    const int radius = isTall ? kTallButtonRadius : kButtonRadius;
    if (isFilled(button, widget)) {
        drawFilledButton(painter, button, radius);
        return;
    }
    RoundedBox::paint(painter, button.rect,
                      {.radius = radius, .fill = buttonFill(button), .border = Brand::blue});
}

void drawField(QPainter& painter, const QStyleOption& field)
{
    RoundedBox::paint(painter, field.rect,
                      {.radius = kFieldRadius, .fill = Qt::white, .border = controlBorder()});
}

const QColor& boxFill(const QStyleOption& box)
{
    static const QColor white(Qt::white);
    if (has(box, QStyle::State_Sunken))
        return Brand::border;
    return has(box, QStyle::State_MouseOver) ? Brand::pale : white;
}

void drawIndicator(QPainter& painter, const QStyleOption& box)
{
    const bool isOn = has(box, QStyle::State_On);
    RoundedBox::paint(painter, box.rect,
                      {.radius = kIndicatorRadius,
                       .fill = isOn ? Brand::blue : boxFill(box),
                       .border = isOn ? Brand::blue : Brand::slate});
    if (!isOn)
        return;
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(Qt::white, 2, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter.translate(box.rect.topLeft());
    painter.drawPolyline(QPolygonF({{4.2, 8.4}, {6.9, 11.1}, {11.8, 5.4}}));
    painter.restore();
}

QColor buttonText(const QStyleOptionButton& button, const QWidget* widget)
{
    if (isFilled(button, widget))
        return Qt::white;
    if (button.features.testFlag(QStyleOptionButton::Flat) && has(button, QStyle::State_MouseOver))
        return Brand::navy;
    return button.palette.color(QPalette::ButtonText);
}

QRect scrollHandle(const QStyleOptionSlider& bar)
{
    const int range = bar.maximum - bar.minimum;
    const int whole = bar.rect.height();
    const int length = std::clamp(whole * bar.pageStep / std::max(range + bar.pageStep, 1),
                                  std::min(kShortestScrollHandle, whole), whole);
    const int offset = QStyle::sliderPositionFromValue(bar.minimum, bar.maximum, bar.sliderPosition,
                                                       whole - length, bar.upsideDown);
    return {bar.rect.left(), bar.rect.top() + offset, bar.rect.width(), length};
}

/// Only the handle: the content shows through. All scroll bars are vertical.
void drawScrollBar(QPainter& painter, const QStyleOptionSlider& bar)
{
    const bool isUsed = has(bar, QStyle::State_MouseOver) || has(bar, QStyle::State_Sunken);
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(isUsed ? Brand::slate : controlBorder());
    QRectF handle = scrollHandle(bar).adjusted(0, kScrollHandleDistance, 0, -kScrollHandleDistance);
    handle.setLeft(handle.right() - kScrollHandleDistance - kScrollHandleWidth);
    handle.setWidth(kScrollHandleWidth);
    painter.drawRoundedRect(handle, kScrollHandleWidth / 2.0, kScrollHandleWidth / 2.0);
    painter.restore();
}

} // namespace

HelperStyle::HelperStyle() : QProxyStyle(QStyleFactory::create(QStringLiteral("Fusion"))) {}

QPalette HelperStyle::lightPalette()
{
    const QColor text(0x1c, 0x1c, 0x1c);
    const QColor window(0xf6, 0xf6, 0xf6);
    const QColor faint(0x6b, 0x6b, 0x6b);
    const QColor highlight(0x30, 0x8c, 0xc6);

    // The constructor derives the shades for frames and buttons.
    QPalette palette(window, window);
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText,
                            QPalette::ToolTipText, QPalette::BrightText})
        palette.setColor(role, text);
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        palette.setColor(QPalette::Disabled, role, faint);
    palette.setColor(QPalette::Base, Qt::white);
    palette.setColor(QPalette::ToolTipBase, Qt::white);
    palette.setColor(QPalette::Highlight, highlight);
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::Link, highlight);
    palette.setColor(QPalette::LinkVisited, highlight);
    return palette;
}

int HelperStyle::pixelMetric(PixelMetric metric, const QStyleOption* option,
                             const QWidget* widget) const
{
    switch (metric) {
    case PM_IndicatorWidth:
    case PM_IndicatorHeight:
        return kIndicatorSize;
    case PM_CheckBoxLabelSpacing:
        return kLabelSpacing;
    case PM_ScrollBarExtent:
    case PM_ScrollView_ScrollBarOverlap: // it is above the content and takes no room
        return kScrollBarExtent;
    case PM_FocusFrameHMargin:
    case PM_FocusFrameVMargin:
        return kFocusDistance;
    default:
        return QProxyStyle::pixelMetric(metric, option, widget);
    }
}

int HelperStyle::styleHint(StyleHint hint, const QStyleOption* option, const QWidget* widget,
                           QStyleHintReturn* returned) const
{
    switch (hint) {
    case SH_FocusFrame_AboveWidget:
        return 1;
    case SH_UnderlineShortcut:
    case SH_DialogButtonBox_ButtonsHaveIcons:
        return 0;
    default:
        return QProxyStyle::styleHint(hint, option, widget, returned);
    }
}

QSize HelperStyle::sizeFromContents(ContentsType type, const QStyleOption* option,
                                    const QSize& contents, const QWidget* widget) const
{
    if (type == CT_PushButton) {
        const auto* button = qstyleoption_cast<const QStyleOptionButton*>(option);
        if (button && button->features.testFlag(QStyleOptionButton::Flat))
            return contents;
        return contents + QSize(2 * kButtonPaddingX, 2 * kButtonPaddingY);
    }
    return QProxyStyle::sizeFromContents(type, option, contents, widget);
}

QRect HelperStyle::subElementRect(SubElement element, const QStyleOption* option,
                                  const QWidget* widget) const
{
    if (element == SE_FrameLayoutItem && widget) {
        const int overhang = widget->property(kOverhang).toInt();
        return option->rect.adjusted(0, overhang, 0, -overhang);
    }
    return QProxyStyle::subElementRect(element, option, widget);
}

QRect HelperStyle::subControlRect(ComplexControl control, const QStyleOptionComplex* option,
                                  SubControl part, const QWidget* widget) const
{
    const auto* bar = qstyleoption_cast<const QStyleOptionSlider*>(option);
    if (control != CC_ScrollBar || !bar)
        return QProxyStyle::subControlRect(control, option, part, widget);
    const QRect handle = scrollHandle(*bar);
    switch (part) {
    case SC_ScrollBarSlider:
        return handle;
    case SC_ScrollBarGroove:
        return bar->rect;
    case SC_ScrollBarSubPage:
        return {bar->rect.topLeft(), handle.topRight() - QPoint(0, 1)};
    case SC_ScrollBarAddPage:
        return {handle.bottomLeft() + QPoint(0, 1), bar->rect.bottomRight()};
    default:
        return {};
    }
}

/// Centres text whose font is higher than the control: some families have high lines for the sake
/// of other scripts.
void HelperStyle::drawItemText(QPainter* painter, const QRect& area, int flags,
                               const QPalette& palette, bool isEnabled, const QString& text,
                               QPalette::ColorRole role) const
{
    const QFontMetrics metrics = painter->fontMetrics();
    const int excess = metrics.height() - area.height();
    if (excess <= 0) {
        QProxyStyle::drawItemText(painter, area, flags, palette, isEnabled, text, role);
        return;
    }
    const double base = area.height() / 2.0 + baseLineBelowMiddle(painter->font());
    QRect room = area.adjusted(0, 0, 0, excess);
    room.translate(0, static_cast<int>(std::round(base)) - metrics.ascent());
    QProxyStyle::drawItemText(painter, room, flags | Qt::TextDontClip, palette, isEnabled, text,
                              role);
}

void HelperStyle::drawPrimitive(PrimitiveElement element, const QStyleOption* option,
                                QPainter* painter, const QWidget* widget) const
{
    switch (element) {
    case PE_IndicatorCheckBox:
        drawIndicator(*painter, *option);
        return;
    case PE_PanelLineEdit:
        drawField(*painter, *option);
        return;
    case PE_FrameFocusRect:
        // FocusRing shows the focus.
        return;
    default:
        QProxyStyle::drawPrimitive(element, option, painter, widget);
    }
}

void HelperStyle::drawControl(ControlElement element, const QStyleOption* option, QPainter* painter,
                              const QWidget* widget) const
{
    const auto* button = qstyleoption_cast<const QStyleOptionButton*>(option);
    if (element == CE_PushButtonBevel && button) {
        drawButton(*painter, *button, widget);
        return;
    }
    if (element == CE_PushButtonLabel && button) {
        QStyleOptionButton label = *button;
        label.palette.setColor(QPalette::ButtonText, buttonText(label, widget));
        QProxyStyle::drawControl(element, &label, painter, widget);
        return;
    }
    QProxyStyle::drawControl(element, option, painter, widget);
}

void HelperStyle::drawComplexControl(ComplexControl control, const QStyleOptionComplex* option,
                                     QPainter* painter, const QWidget* widget) const
{
    const auto* bar = qstyleoption_cast<const QStyleOptionSlider*>(option);
    if (control == CC_ScrollBar && bar)
        drawScrollBar(*painter, *bar);
    else
        QProxyStyle::drawComplexControl(control, option, painter, widget);
}

} // namespace quillbox
