#include "ui/elided_label.h"
#include "ui/text_style.h"

#include <QAccessible>
#include <QHBoxLayout>
#include <QImage>
#include <QWidget>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

const QString& longName()
{
    static const QString name(63, u'W');
    return name;
}

QImage paintingOf(QWidget& widget)
{
    QImage picture(widget.size(), QImage::Format_RGB32);
    picture.fill(Qt::white);
    widget.render(&picture);
    return picture;
}

TEST(ElidedLabel, showsANameThatFits)
{
    ElidedLabel label("Office");
    label.resize(label.sizeHint());
    EXPECT_FALSE(label.isElided());
    EXPECT_EQ(label.toolTip(), QString());
    EXPECT_EQ(label.text(), QStringLiteral("Office"));
}

TEST(ElidedLabel, tellsAWholeNameThatDoesNotFit)
{
    ElidedLabel label(longName().toStdString());
    label.show();
    label.resize(100, 20);
    EXPECT_TRUE(label.isElided());
    EXPECT_EQ(label.toolTip(), longName());
    EXPECT_EQ(label.text(), longName());
    label.resize(label.sizeHint());
    EXPECT_EQ(label.toolTip(), QString());
}

TEST(ElidedLabel, measuresItsNameInTheCurrentFont)
{
    ElidedLabel label("Office");
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

TEST(ElidedLabel, countsItsMarginsAsNoRoom)
{
    ElidedLabel label("Office");
    label.resize(label.sizeHint());
    ASSERT_EQ(label.toolTip(), QString());
    // The label is hidden, so that no resize event comes with the change.
    label.setContentsMargins(4, 0, 4, 0);
    EXPECT_TRUE(label.isElided());
    EXPECT_EQ(label.toolTip(), QStringLiteral("Office"));
}

TEST(ElidedLabel, growsByItsMargins)
{
    ElidedLabel label(longName().toStdString());
    const QSize whole = label.sizeHint();
    const QSize smallest = label.minimumSizeHint();
    label.setContentsMargins(1, 2, 4, 8);
    EXPECT_EQ(label.sizeHint(), whole + QSize(5, 10));
    EXPECT_EQ(label.minimumSizeHint(), smallest + QSize(5, 10));
}

TEST(ElidedLabel, needsNoRoomForAnEllipsisThatItNeverShows)
{
    EXPECT_EQ(ElidedLabel("").minimumSizeHint().width(), 0);
    const ElidedLabel narrow("i");
    EXPECT_EQ(narrow.minimumSizeHint(), narrow.sizeHint());
}

TEST(ElidedLabel, endsInAnEllipsis)
{
    ElidedLabel label(longName().toStdString());
    label.resize(100, 20);
    QLabel expected(label.fontMetrics().elidedText(longName(), Qt::ElideRight, 100));
    expected.resize(100, 20);
    EXPECT_EQ(paintingOf(label), paintingOf(expected));
}

/// Whatever the fraction of a pixel is by which the name is wider than a whole number.
TEST(ElidedLabel, isElidedFromThePixelOnThatItLacks)
{
    for (int letters = 1; letters < 40; ++letters) {
        // In some fonts an f extends beyond its advance.
        ElidedLabel label(std::string(static_cast<std::size_t>(letters), 'i') + " f");
        label.show();
        label.resize(label.sizeHint());
        QLabel whole(label.text());
        whole.resize(label.size());
        EXPECT_EQ(paintingOf(label), paintingOf(whole)) << label.text().toStdString();
        EXPECT_EQ(label.toolTip(), QString());
        label.resize(label.width() - 1, label.height());
        whole.resize(label.size());
        EXPECT_NE(paintingOf(label), paintingOf(whole)) << label.text().toStdString();
        EXPECT_EQ(label.toolTip(), label.text());
    }
}

TEST(ElidedLabel, looksLikeALabelWhenTheNameFits)
{
    ElidedLabel label("Tom & Jerry");
    QLabel expected(QStringLiteral("Tom & Jerry"));
    label.resize(200, 20);
    expected.resize(200, 20);
    EXPECT_EQ(paintingOf(label), paintingOf(expected));
}

TEST(ElidedLabel, letsALayoutMakeItNarrow)
{
    QWidget window;
    auto* layout = new QHBoxLayout(&window);
    auto* label = new ElidedLabel(longName().toStdString());
    layout->addWidget(label);
    EXPECT_LT(window.minimumSizeHint().width(), 100);
    EXPECT_EQ(label->minimumSizeHint().height(), QLabel(longName()).minimumSizeHint().height());
}

TEST(ElidedLabel, takesNothingInANameForMarkup)
{
    ElidedLabel label("<b>Office</b>");
    EXPECT_EQ(label.textFormat(), Qt::PlainText);
    label.show();
    label.resize(20, 20);
    EXPECT_FALSE(Qt::mightBeRichText(label.toolTip()));
    EXPECT_FALSE(label.toolTip().isEmpty());
}

TEST(ElidedLabel, tellsAssistiveProgramsTheWholeName)
{
    ElidedLabel label(longName().toStdString());
    label.resize(50, 20);
    QAccessibleInterface* accessible = QAccessible::queryAccessibleInterface(&label);
    ASSERT_TRUE(accessible);
    EXPECT_EQ(accessible->text(QAccessible::Name), longName());
}

} // namespace

} // namespace quillbox
