#include "platform/desktop/notice.h"

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
    notice->show("Cannot <b>open</b>", "Because\nof \u202ethat");
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
    notice->show("first", "");
    QMessageBox* box = shownBox();
    box->close();
    notice->show("second", "");
    EXPECT_EQ(shownBox(), box);
    EXPECT_EQ(box->text(), QStringLiteral("second\n\n"));
}

} // namespace

} // namespace quillbox
