#pragma once

#include <QPalette>
#include <QProxyStyle>

namespace quillbox {

/// The style of the controls, whatever the desktop's style is: Qt's Fusion, with push buttons,
/// check boxes, fields and scroll bars in the colours of the window.
class HelperStyle final : public QProxyStyle {
public:
    /// The height of a push button, the same in the whole window except for the filled one.
    static constexpr int kButtonHeight = 20;

    /// A property of a push button, a bool: whether it is filled, like the default button of a
    /// dialog, because it is for the most likely action. (The default button of the window itself
    /// would act again and again while Return is held down.)
    static constexpr const char* kIsFilled = "isFilled";

    /// A property of a QFrame, an int: by how many pixels the frame extends above and below the
    /// rectangle that a layout gives it.
    static constexpr const char* kOverhang = "overhang";

    HelperStyle();

    /// The palette that goes with it, of the application.
    static QPalette lightPalette();

    int pixelMetric(PixelMetric metric, const QStyleOption* option,
                    const QWidget* widget) const override;
    int styleHint(StyleHint hint, const QStyleOption* option, const QWidget* widget,
                  QStyleHintReturn* returned) const override;
    QSize sizeFromContents(ContentsType type, const QStyleOption* option, const QSize& contents,
                           const QWidget* widget) const override;
    QRect subElementRect(SubElement element, const QStyleOption* option,
                         const QWidget* widget) const override;
    QRect subControlRect(ComplexControl control, const QStyleOptionComplex* option, SubControl part,
                         const QWidget* widget) const override;
    void drawItemText(QPainter* painter, const QRect& area, int flags, const QPalette& palette,
                      bool isEnabled, const QString& text, QPalette::ColorRole role) const override;
    void drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                       const QWidget* widget) const override;
    void drawControl(ControlElement element, const QStyleOption* option, QPainter* painter,
                     const QWidget* widget) const override;
    void drawComplexControl(ComplexControl control, const QStyleOptionComplex* option,
                            QPainter* painter, const QWidget* widget) const override;
};

} // namespace quillbox
