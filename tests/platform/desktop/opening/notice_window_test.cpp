#include "platform/desktop/opening/notice.h"

#include <QApplication>
#include <QMessageBox>
#include <memory>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

QMessageBox* shownBox()
{
    QMessageBox* shown = nullptr;
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        auto* box = qobject_cast<QMessageBox*>(widget);
        if (box && box->isVisible())
            shown = box;
    }
    return shown;
}

TEST(NoticeWindow, showsPlainTextThatCannotDisguiseItself)
{
    const auto notice = makeNoticeWindow();
    EXPECT_EQ(shownBox(), nullptr);
    notice->show("Cannot <b>open</b>", "Because\nof \u202ethat", nullptr);
    const QMessageBox* box = shownBox();
    ASSERT_NE(box, nullptr);
    EXPECT_EQ(box->textFormat(), Qt::PlainText);
    EXPECT_EQ(box->text(), QStringLiteral("Cannot <b>open</b>\n\nBecause\uFFFDof \uFFFDthat"));
    EXPECT_EQ(box->informativeText(), QString());
    EXPECT_FALSE(box->isModal());
}

TEST(NoticeWindow, replacesTheOneBefore)
{
    const auto notice = makeNoticeWindow();
    notice->show("first", "", nullptr);
    QMessageBox* box = shownBox();
    box->close();
    notice->show("second", "", nullptr);
    EXPECT_EQ(shownBox(), box);
    EXPECT_EQ(box->text(), QStringLiteral("second\n\n"));
}

TEST(NoticeWindow, tellsOnceWhenItIsClosed)
{
    const auto notice = makeNoticeWindow();
    int replaced = 0;
    int closed = 0;
    notice->show("first", "", [&replaced] { ++replaced; });
    notice->show("second", "", [&closed] { ++closed; });
    EXPECT_EQ(closed, 0);
    shownBox()->accept();
    EXPECT_EQ(closed, 1);
    EXPECT_EQ(replaced, 0);
    notice->show("third", "", nullptr);
    shownBox()->close();
    EXPECT_EQ(closed, 1);
}

} // namespace

} // namespace quillbox
