#include "tests/app/window_fixture.h"
#include "ui/dot_label.h"
#include "ui/look/brand.h"
#include "ui/paragraph_label.h"

#include <QApplication>
#include <QCheckBox>
#include <QFontDatabase>
#include <QStyle>

namespace quillbox {

namespace {

/// The font of a desktop.
struct DesktopFont {
    const char* name;
    const char* family = nullptr; ///< null: the default one
    int letterSpacing = 0;        ///< per cent; 0: the font's own. Any other disables ligatures.
};

class TextFit : public WindowFixture, public ::testing::WithParamInterface<DesktopFont> {
protected:
    void SetUp() override
    {
        before = QApplication::font();
        QFont font = before;
        if (GetParam().family) {
            font.setFamily(QString::fromLatin1(GetParam().family));
            if (!QFontDatabase::hasFamily(font.family()))
                GTEST_SKIP() << "no font " << GetParam().family;
        }
        if (GetParam().letterSpacing > 0)
            font.setLetterSpacing(QFont::PercentageSpacing, GetParam().letterSpacing);
        QApplication::setFont(font);
    }

    void TearDown() override
    {
        delegate = nullptr;
        QApplication::setFont(before);
    }

    /// The text that a control shows; empty if it shows none, or one that users enter.
    static QString textOf(const QWidget& part)
    {
        if (dynamic_cast<const DotLabel*>(&part))
            return {}; // not drawn with the font
        if (const auto* label = qobject_cast<const QLabel*>(&part))
            return label->text();
        const auto* button = qobject_cast<const QAbstractButton*>(&part);
        return button ? button->text() : QString();
    }

    /// How wide a control must be to show its whole text.
    static double neededWidth(const QWidget& part)
    {
        const QStyle& style = *part.style();
        const int indicator = qobject_cast<const QCheckBox*>(&part)
                                  ? style.pixelMetric(QStyle::PM_IndicatorWidth)
                                        + style.pixelMetric(QStyle::PM_CheckBoxLabelSpacing)
                                  : 0;
        return indicator + QFontMetricsF(part.font()).horizontalAdvance(textOf(part));
    }

    /// The longest label of a field is, in a font that is wider than those of desktops, because the
    /// fields have a fixed width.
    static bool mayBeElided(const QWidget& part)
    {
        return GetParam().letterSpacing > 0 && textOf(part) == QStringLiteral("Phone IP or name");
    }

    /// How many rows of pixels contain text.
    static int paintedRows(QWidget& part)
    {
        const QImage picture = pictureOf(part);
        int rows = 0;
        for (int y = 0; y < picture.height(); ++y) {
            bool isPainted = false;
            // Starts to the right of the check box indicator.
            for (int x = 24; x < picture.width(); ++x)
                isPainted = isPainted || picture.pixelColor(x, y).lightness() < 140;
            rows += isPainted ? 1 : 0;
        }
        return rows;
    }

    static int paintedRowsWithRoomToSpare(QWidget& part)
    {
        part.setFixedHeight(part.height() + 20);
        layOut();
        return paintedRows(part);
    }

    /// Whether a control looks as it does when it is wider, so that no part of its text is missing.
    /// (A paragraph would be wrapped differently.)
    static bool looksTheSameWithRoomToSpare(QWidget& part)
    {
        // Multiples of 4, because a quarter of a logical pixel is the least that is a whole number
        // of device pixels at every scale of these tests.
        constexpr int kSpare = 32;
        constexpr int kBevel = 12; // covers the round corners of a button
        // A label of the form is aligned to the right; here every text begins at the left.
        if (auto* label = qobject_cast<QLabel*>(&part))
            label->setAlignment(Qt::AlignLeft | Qt::AlignVCenter);
        const auto* button = qobject_cast<const QPushButton*>(&part);
        const int shift = button ? kSpare / 2 : 0;
        const int inset = button && !button->isFlat() ? kBevel : 0;
        const double scale = part.devicePixelRatioF();
        const auto strip = [scale](const QImage& picture, int left, int width) {
            return picture.copy(static_cast<int>(left * scale), 0, static_cast<int>(width * scale),
                                picture.height());
        };
        const int width = part.width();
        const QImage usual = pictureOf(part, scale);
        part.setFixedWidth(width + kSpare);
        const QImage wide = pictureOf(part, scale);
        part.setFixedWidth(width);
        const bool isWhole =
            strip(usual, inset, width - 2 * inset) == strip(wide, shift + inset, width - 2 * inset);
        if (button)
            return isWhole;
        const QImage spare = strip(wide, width + 1, kSpare - 2);
        QImage empty(spare.size(), spare.format());
        empty.fill(spare.pixelColor(spare.rect().bottomRight()));
        return isWhole && spare == empty;
    }

    QFont before;
};

TEST_P(TextFit, nothingIsCutOffAtTheSides)
{
    open();
    findPhones({phoneNamed("Quillbox A"), phoneNamed("Quillbox B")});
    findManagement({phoneNamed("Quillbox A")});
    delegate->toggleAdvanced();
    settle();
    const QWidget& card = *delegate->showInFinder.parentWidget();
    const int left = place(card).left();
    int parts = 0;
    for (const auto* part : window().findChildren<QWidget*>()) {
        if (!part->isVisible() || textOf(*part).isEmpty())
            continue;
        ++parts;
        if (const auto* paragraph = dynamic_cast<const ParagraphLabel*>(part)) {
            EXPECT_TRUE(mayBeElided(*part) || !paragraph->isElided())
                << paragraph->text().toStdString();
        } else {
            EXPECT_GE(part->width(), neededWidth(*part)) << textOf(*part).toStdString();
        }
        const int right = card.isAncestorOf(part) ? left + 396 - 18 : left + 396;
        EXPECT_LT(place(*part).right(), right) << place(*part).top();
        EXPECT_GE(place(*part).left(), left);
    }
    EXPECT_GT(parts, 20);
    for (const QLineEdit* field : {&delegate->hostField, &delegate->portField,
                                   &delegate->shareField, &delegate->userField}) {
        EXPECT_LT(place(*field).right(), left + 396 - 18);
        EXPECT_EQ(field->width(), 230);
    }
}

/// Widths are whole pixels and texts are not: many texts, because few lose much when rounded.
TEST_P(TextFit, aControlPrefersToBeAsWideAsItsText)
{
    open();
    for (int letters = 1; letters <= 26; ++letters) {
        QString text;
        for (int letter = 0; letter < letters; ++letter)
            text += QChar(u'a' + letter);
        ParagraphLabel paragraph(text);
        EXPECT_GE(paragraph.sizeHint().width(), neededWidth(paragraph)) << letters;
        ParagraphLabel name(text);
        name.setMaximumLines(1);
        EXPECT_GE(name.sizeHint().width(), neededWidth(name)) << letters;
        QLabel label(text);
        EXPECT_GE(label.sizeHint().width(), neededWidth(label)) << letters;
        QCheckBox box(text);
        EXPECT_GE(box.sizeHint().width(), neededWidth(box)) << letters;
        QPushButton button(text);
        EXPECT_GE(button.sizeHint().width(), neededWidth(button)) << letters;
        button.setFlat(true);
        EXPECT_GE(button.sizeHint().width(), neededWidth(button)) << letters;
    }
}

TEST_P(TextFit, everyTextIsPaintedWhole)
{
    open();
    const std::vector<Endpoint> phones{phoneNamed("Quillbox Office"),
                                       phoneNamed("Quillbox Kitchen"), phoneNamed("Quillbox Porch"),
                                       phoneNamed("Quillbox Attic")};
    findPhones(phones);
    findManagement(phones);
    delegate->toggleAdvanced();
    settle();
    int parts = 0;
    for (auto* part : window().findChildren<QWidget*>()) {
        if (!part->isVisible() || textOf(*part).isEmpty())
            continue;
        ++parts;
        if (mayBeElided(*part))
            continue;
        const auto* paragraph = dynamic_cast<const ParagraphLabel*>(part);
        if (paragraph) {
            EXPECT_FALSE(paragraph->isElided()) << paragraph->text().toStdString();
        }
        if (!paragraph || !paragraph->wordWrap()) {
            EXPECT_TRUE(looksTheSameWithRoomToSpare(*part)) << textOf(*part).toStdString();
        }
    }
    EXPECT_GT(parts, 20);
}

TEST_P(TextFit, nothingIsCutOffAboveOrBelow)
{
    open();
    findPhones({phoneNamed("Quillbox gjpqy")});
    delegate->toggleAdvanced();
    settle();
    for (QWidget* part :
         {static_cast<QWidget*>(&delegate->showInFinder),
          static_cast<QWidget*>(&delegate->automaticDiscovery),
          static_cast<QWidget*>(&delegate->advancedButton),
          static_cast<QWidget*>(button(QStringLiteral("Open web management"))),
          static_cast<QWidget*>(label(QStringLiteral("Quillbox gjpqy"))),
          static_cast<QWidget*>(label(QStringLiteral("AVAILABLE QUILLBOX DEVICES")))}) {
        const int rows = paintedRows(*part);
        EXPECT_GT(rows, 6);
        EXPECT_EQ(rows, paintedRowsWithRoomToSpare(*part)) << place(*part).top();
    }
}

TEST_P(TextFit, nothingOverlaps)
{
    open();
    findPhones({phoneNamed("Quillbox A"), phoneNamed("Quillbox B")});
    findManagement({phoneNamed("Quillbox A"), phoneNamed("Quillbox B")});
    delegate->toggleAdvanced();
    settle();
    std::vector<const QWidget*> parts;
    for (const auto* part : window().findChildren<QWidget*>()) {
        const bool isText = qobject_cast<const QLabel*>(part) != nullptr
                            || qobject_cast<const QAbstractButton*>(part) != nullptr
                            || qobject_cast<const QLineEdit*>(part) != nullptr;
        if (isText && part->isVisible())
            parts.push_back(part);
    }
    for (const QWidget* one : parts) {
        for (const QWidget* other : parts) {
            if (one != other) {
                EXPECT_FALSE(place(*one).intersects(place(*other)))
                    << place(*one).top() << ' ' << place(*other).top();
            }
        }
    }
}

TEST_P(TextFit, theStatusIsAtMostTwoLines)
{
    open();
    delegate->setStatus({.ready = false, .text = "short"});
    settle();
    const int one = delegate->statusLabel.height();
    delegate->setStatus(
        {.ready = false,
         .text = "Could not resolve management address. Check the phone is online."});
    settle();
    EXPECT_LE(delegate->statusLabel.height(), 2 * one);
    EXPECT_FALSE(delegate->statusLabel.isElided());
    delegate->setStatus(
        {.ready = false, .text = "Finder service failed: " + std::string(400, 'W')});
    settle();
    EXPECT_EQ(delegate->statusLabel.height(), 2 * one);
    EXPECT_EQ(delegate->statusLabel.lines().size(), 2U);
    EXPECT_TRUE(delegate->statusLabel.isElided());
    EXPECT_EQ(delegate->statusLabel.toolTip(), delegate->statusLabel.text());
    EXPECT_EQ(window().frameGeometry().width(), 440);
}

INSTANTIATE_TEST_SUITE_P(Fonts, TextFit,
                         ::testing::Values(DesktopFont{.name = "usual"},
                                           DesktopFont{.name = "wider", .letterSpacing = 120},
                                           DesktopFont{.name = "DejaVu", .family = "DejaVu Sans"},
                                           DesktopFont{.name = "Cantarell", .family = "Cantarell"},
                                           DesktopFont{.name = "Noto", .family = "Noto Sans"}),
                         [](const auto& font) { return std::string(font.param.name); });

} // namespace

} // namespace quillbox
