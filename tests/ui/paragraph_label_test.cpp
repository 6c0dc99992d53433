#include "ui/look/text_style.h"
#include "ui/paragraph_label.h"

#include <QAccessible>
#include <QHBoxLayout>
#include <QImage>
#include <QWidget>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

const QString& longText()
{
    static const QString text(QStringLiteral(
        "Could not start Finder service: the name of this service is in use on this network, and "
        "so are all of the others that were tried after it, one after the other, for a long time"));
    return text;
}

QString joined(const std::vector<QString>& lines)
{
    QString all;
    for (const QString& line : lines)
        all += line;
    return all;
}

QImage paragraphOf(QWidget& widget)
{
    QImage picture(widget.size(), QImage::Format_RGB32);
    picture.fill(Qt::white);
    widget.render(&picture, QPoint(), QRegion(), QWidget::DrawChildren);
    return picture;
}

/// Whether anything is painted in a row of pixels.
bool isPainted(const QImage& picture, int row)
{
    for (int x = 0; x < picture.width(); ++x) {
        if (picture.pixelColor(x, row) != QColor(Qt::white))
            return true;
    }
    return false;
}

TEST(ParagraphLabel, withOneLineStandsOnTheBaseLineOfOtherLabels)
{
    const QString text = QStringLiteral("Quillbox Kitchen");
    for (const int height : {15, 20, 25, 26}) {
        QLabel other(text);
        ParagraphLabel label(text);
        label.setMaximumLines(1);
        for (QLabel* each : {&other, static_cast<QLabel*>(&label)}) {
            TextStyle{.size = 12}.apply(*each);
            each->resize(200, height);
        }
        EXPECT_EQ(label.sizeHint().height(), other.sizeHint().height());
        EXPECT_EQ(paragraphOf(label), paragraphOf(other)) << height;
    }
}

TEST(ParagraphLabel, wrapsAtWordBoundariesAndLeavesNothingOut)
{
    ParagraphLabel label(longText());
    label.resize(200, label.heightForWidth(200));
    const auto lines = label.lines();
    EXPECT_GT(lines.size(), 3U);
    EXPECT_EQ(joined(lines), longText());
    for (std::size_t index = 0; index + 1 < lines.size(); ++index)
        EXPECT_TRUE(lines[index].endsWith(u' ')) << lines[index].toStdString();
    EXPECT_FALSE(label.isElided());
    EXPECT_EQ(label.toolTip(), QString());
}

TEST(ParagraphLabel, isOneLineAtItsPreferredWidth)
{
    for (int letters = 1; letters < 40; ++letters) {
        ParagraphLabel label(QString(letters, u'i') + u'f');
        label.setMaximumLines(1);
        label.resize(label.sizeHint());
        EXPECT_EQ(label.lines(), std::vector<QString>{label.text()});
        EXPECT_FALSE(label.isElided());
    }
}

TEST(ParagraphLabel, breaksAWordThatIsLongerThanALine)
{
    const QString word(300, u'W');
    ParagraphLabel label(word);
    label.resize(200, 500);
    for (const QString& line : label.lines())
        EXPECT_LE(label.fontMetrics().horizontalAdvance(line), 200);
    EXPECT_EQ(joined(label.lines()), word);
}

TEST(ParagraphLabel, endsInAnEllipsisWhereItsLinesAreLimited)
{
    ParagraphLabel label(longText());
    label.setMaximumLines(2);
    label.show();
    label.resize(200, label.heightForWidth(200));
    const auto lines = label.lines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_TRUE(lines[1].endsWith(QChar(0x2026)));
    for (const QString& line : lines)
        EXPECT_LE(label.fontMetrics().horizontalAdvance(line.trimmed()), 200);
    EXPECT_TRUE(label.isElided());
    EXPECT_EQ(label.toolTip(), longText());
    EXPECT_EQ(label.text(), longText());
}

TEST(ParagraphLabel, growsWithItsTextAsFarAsItsLimit)
{
    ParagraphLabel label(QStringLiteral("one"));
    label.setMaximumLines(2);
    const int one = label.heightForWidth(200);
    label.setText(longText());
    EXPECT_EQ(label.heightForWidth(200), 2 * one);
    EXPECT_GT(label.heightForWidth(10000), 0);
    EXPECT_EQ(label.heightForWidth(10000), one);
    label.setMaximumLines(0);
    EXPECT_GT(label.heightForWidth(200), 2 * one);
}

TEST(ParagraphLabel, isAsHighAsItNeedsInTheWidthThatItMayHave)
{
    ParagraphLabel label(longText());
    const int high = label.heightForWidth(100);
    ASSERT_GT(high, label.heightForWidth(200));
    label.setContentsMargins(60, 0, 40, 0);
    EXPECT_EQ(label.heightForWidth(200), high);
    label.setMaximumWidth(200);
    EXPECT_EQ(label.heightForWidth(300), high);
}

TEST(ParagraphLabel, anEmptyTextIsOneLineHigh)
{
    ParagraphLabel empty;
    const ParagraphLabel full(QStringLiteral("full"));
    EXPECT_EQ(empty.sizeHint().height(), full.sizeHint().height());
    EXPECT_EQ(empty.heightForWidth(200), full.heightForWidth(200));
    EXPECT_GT(empty.heightForWidth(200), 0);
    empty.resize(200, 20);
    EXPECT_TRUE(joined(empty.lines()).isEmpty());
}

TEST(ParagraphLabel, theToolTipFollowsTheText)
{
    ParagraphLabel label(longText());
    label.setMaximumLines(2);
    label.show();
    label.resize(200, 40);
    EXPECT_EQ(label.toolTip(), longText());
    label.setText(QStringLiteral("short"));
    EXPECT_EQ(label.toolTip(), QString());
    label.setText(longText());
    EXPECT_EQ(label.toolTip(), longText());
    label.resize(10000, 40);
    EXPECT_EQ(label.toolTip(), QString());
}

TEST(ParagraphLabel, takesNothingForMarkup)
{
    ParagraphLabel label(
        QStringLiteral("<b>bold</b> & <img src='http://192.0.2.1/x'> ").repeated(9));
    label.setMaximumLines(1);
    label.show();
    label.resize(100, 20);
    EXPECT_EQ(label.textFormat(), Qt::PlainText);
    EXPECT_FALSE(label.toolTip().isEmpty());
    EXPECT_FALSE(Qt::mightBeRichText(label.toolTip()));
    EXPECT_TRUE(label.lines()[0].startsWith(QStringLiteral("<b>")));
}

TEST(ParagraphLabel, isPaintedOnAllOfItsLinesAndCutOffOnNone)
{
    for (const int size : {10, 12, 13, 25}) {
        ParagraphLabel label(QStringLiteral("Ahgjpqy Ahgjpqy Ahgjpqy Ahgjpqy"));
        QFont font;
        font.setPixelSize(size);
        label.setFont(font);
        const int width = label.fontMetrics().horizontalAdvance(QStringLiteral("Ahgjpqy "));
        label.resize(width, label.heightForWidth(width));
        const QImage picture = paragraphOf(label);
        label.resize(width, label.height() + 20);
        const QImage roomy = paragraphOf(label);
        int rows = 0;
        int roomyRows = 0;
        for (int row = 0; row < picture.height(); ++row)
            rows += isPainted(picture, row) ? 1 : 0;
        for (int row = 0; row < roomy.height(); ++row)
            roomyRows += isPainted(roomy, row) ? 1 : 0;
        EXPECT_EQ(rows, roomyRows) << size;
        const auto first = [](const QImage& of) {
            int row = 0;
            while (row < of.height() && !isPainted(of, row))
                ++row;
            return row;
        };
        EXPECT_EQ(first(roomy), first(picture) + 10) << size;
        EXPECT_GT(rows, 2 * size) << size;
    }
}

TEST(ParagraphLabel, standsAThirdOfItsSizeBelowTheMiddleOfALine)
{
    ParagraphLabel label(QStringLiteral("H")); // which ends on the base line in every font
    QFont font;
    font.setPixelSize(50);
    label.setFont(font);
    label.resize(100, 60);
    const QImage picture = paragraphOf(label);
    int bottom = picture.height();
    while (bottom > 0 && !isPainted(picture, bottom - 1))
        --bottom;
    EXPECT_NEAR(bottom, 30 + 16, 1);
}

TEST(ParagraphLabel, fitsIntoALayoutAtAnyWidth)
{
    QWidget window;
    auto* layout = new QHBoxLayout(&window);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* label = new ParagraphLabel(longText());
    layout->addWidget(label);
    EXPECT_LT(window.minimumSizeHint().width(), 100);
    EXPECT_EQ(layout->heightForWidth(150), label->heightForWidth(150));
}

TEST(ParagraphLabel, tellsAssistiveProgramsTheWholeText)
{
    ParagraphLabel label(longText());
    label.setMaximumLines(1);
    label.resize(100, 20);
    QAccessibleInterface* accessible = QAccessible::queryAccessibleInterface(&label);
    ASSERT_TRUE(accessible);
    EXPECT_EQ(accessible->text(QAccessible::Name), longText());
}

std::unique_ptr<ParagraphLabel> oneLine(const QString& text)
{
    auto label = std::make_unique<ParagraphLabel>(text);
    label->setMaximumLines(1);
    return label;
}

QString longName()
{
    return QString(63, u'W');
}

TEST(ParagraphLabelOfOneLine, showsANameThatFits)
{
    const auto owned = oneLine(QStringLiteral("Office"));
    ParagraphLabel& label = *owned;
    label.resize(label.sizeHint());
    EXPECT_FALSE(label.isElided());
    EXPECT_EQ(label.toolTip(), QString());
    EXPECT_EQ(label.text(), QStringLiteral("Office"));
}

TEST(ParagraphLabelOfOneLine, tellsAWholeNameThatDoesNotFit)
{
    const auto owned = oneLine(longName());
    ParagraphLabel& label = *owned;
    label.show();
    label.resize(100, 20);
    EXPECT_TRUE(label.isElided());
    EXPECT_EQ(label.toolTip(), longName());
    EXPECT_EQ(label.text(), longName());
    label.resize(label.sizeHint());
    EXPECT_EQ(label.toolTip(), QString());
}

TEST(ParagraphLabelOfOneLine, measuresItsNameInTheCurrentFont)
{
    const auto owned = oneLine(QStringLiteral("Office"));
    ParagraphLabel& label = *owned;
    label.show();
    label.resize(label.sizeHint());
    const QSize before = label.sizeHint();
    QFont larger = label.font();
    larger.setPixelSize(4 * label.fontMetrics().height());
    label.setFont(larger);
    EXPECT_EQ(label.sizeHint().width(), widthOf(label.text(), label.font()));
    EXPECT_GT(label.sizeHint().width(), before.width());
    EXPECT_TRUE(label.isElided());
    EXPECT_EQ(label.toolTip(), QStringLiteral("Office"));
}

TEST(ParagraphLabelOfOneLine, countsItsMarginsAsNoRoom)
{
    const auto owned = oneLine(QStringLiteral("Office"));
    ParagraphLabel& label = *owned;
    label.resize(label.sizeHint());
    ASSERT_EQ(label.toolTip(), QString());
    // The label is hidden, so that no resize event comes with the change.
    label.setContentsMargins(4, 0, 4, 0);
    EXPECT_TRUE(label.isElided());
    EXPECT_EQ(label.toolTip(), QStringLiteral("Office"));
}

TEST(ParagraphLabelOfOneLine, growsByItsMargins)
{
    const auto owned = oneLine(longName());
    ParagraphLabel& label = *owned;
    const QSize whole = label.sizeHint();
    const QSize smallest = label.minimumSizeHint();
    label.setContentsMargins(1, 2, 4, 8);
    EXPECT_EQ(label.sizeHint(), whole + QSize(5, 10));
    EXPECT_EQ(label.minimumSizeHint().height(), smallest.height() + 10);
}

/// Whatever the fraction of a pixel is by which the name is wider than a whole number.
TEST(ParagraphLabelOfOneLine, isElidedFromThePixelOnThatItLacks)
{
    for (int letters = 1; letters < 40; ++letters) {
        // In some fonts an f extends beyond its advance.
        const auto owned = oneLine(QString(letters, u'i') + QStringLiteral(" f"));
        ParagraphLabel& label = *owned;
        label.show();
        label.resize(label.sizeHint());
        EXPECT_EQ(label.lines(), std::vector<QString>{label.text()});
        EXPECT_EQ(label.toolTip(), QString());
        label.resize(label.width() - 1, label.height());
        ASSERT_EQ(label.lines().size(), 1);
        EXPECT_TRUE(label.lines().front().endsWith(QStringLiteral("…")));
        EXPECT_EQ(label.toolTip(), label.text());
    }
}

TEST(ParagraphLabelOfOneLine, letsALayoutMakeItNarrow)
{
    QWidget window;
    auto* layout = new QHBoxLayout(&window);
    auto* label = oneLine(longName()).release();
    layout->addWidget(label);
    EXPECT_LT(window.minimumSizeHint().width(), 100);
}

TEST(ParagraphLabelOfOneLine, takesNothingInANameForMarkup)
{
    const auto owned = oneLine(QStringLiteral("<b>Office</b>"));
    ParagraphLabel& label = *owned;
    EXPECT_EQ(label.textFormat(), Qt::PlainText);
    label.show();
    label.resize(20, 20);
    EXPECT_FALSE(Qt::mightBeRichText(label.toolTip()));
    EXPECT_FALSE(label.toolTip().isEmpty());
}

TEST(ParagraphLabelOfOneLine, tellsAssistiveProgramsTheWholeName)
{
    const auto owned = oneLine(longName());
    ParagraphLabel& label = *owned;
    label.resize(50, 20);
    QAccessibleInterface* accessible = QAccessible::queryAccessibleInterface(&label);
    ASSERT_TRUE(accessible);
    EXPECT_EQ(accessible->text(QAccessible::Name), longName());
}

/// The labels of fields, whose widths are rounded up.
TEST(ParagraphLabelOfOneLine, mayBeAlignedAtTheRight)
{
    const auto owned = oneLine(QStringLiteral("l"));
    ParagraphLabel& label = *owned;
    label.setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    label.resize(60, 20);
    QImage picture(label.size(), QImage::Format_RGB32);
    picture.fill(Qt::white);
    label.render(&picture);
    const auto isEmpty = [&picture](int from, int to) {
        for (int x = from; x < to; ++x) {
            for (int y = 0; y < picture.height(); ++y) {
                if (picture.pixelColor(x, y) != picture.pixelColor(0, 0))
                    return false;
            }
        }
        return true;
    };
    EXPECT_TRUE(isEmpty(0, 50));
    EXPECT_FALSE(isEmpty(50, 60));
}

} // namespace

} // namespace quillbox
