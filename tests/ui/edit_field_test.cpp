#include "ui/edit_field.h"

#include <QAccessible>
#include <QApplication>
#include <QKeyEvent>
#include <QLineEdit>
#include <QVBoxLayout>
#include <QWidget>
#include <memory>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

/// A field with the focus, and another control below it.
class EditFieldTest : public ::testing::Test {
protected:
    EditFieldTest()
    {
        field->fill(QStringLiteral("4445"));
        field->editEnded = [this] { ++ends; };
        auto* layout = new QVBoxLayout(&window);
        layout->addWidget(field);
        layout->addWidget(other);
        window.show();
        window.activateWindow();
        QCoreApplication::processEvents();
        field->setFocus();
    }

    void press(int key, const QString& text = {}, bool isRepeated = false)
    {
        QKeyEvent event(QEvent::KeyPress, key, Qt::NoModifier, text, isRepeated);
        QApplication::sendEvent(window.focusWidget(), &event);
    }

    void type(const QString& text)
    {
        for (const QChar character : text)
            press(character.unicode(), QString(character));
    }

    QWidget window;
    EditField* const field = new EditField;
    QLineEdit* const other = new QLineEdit;
    int ends = 0;
};

TEST_F(EditFieldTest, leavingItEndsTheSelection)
{
    field->selectAll();
    other->setFocus(Qt::TabFocusReason);
    EXPECT_FALSE(field->hasSelectedText());
}

TEST_F(EditFieldTest, passingThroughEndsNoEdit)
{
    press(Qt::Key_Tab);
    ASSERT_TRUE(other->hasFocus());
    EXPECT_EQ(ends, 0);
    field->setFocus(Qt::MouseFocusReason);
    other->setFocus(Qt::MouseFocusReason);
    EXPECT_EQ(ends, 0);
}

TEST_F(EditFieldTest, goingOnAfterAChangeEndsTheEdit)
{
    type(QStringLiteral("1"));
    EXPECT_EQ(ends, 0);
    press(Qt::Key_Tab);
    EXPECT_EQ(ends, 1);
    field->setFocus();
    press(Qt::Key_Tab);
    EXPECT_EQ(ends, 1) << "nothing has changed since";
}

TEST_F(EditFieldTest, aChangeThatWasTakenBackIsAnEditToo)
{
    field->end(false);
    type(QStringLiteral("1"));
    press(Qt::Key_Backspace);
    ASSERT_EQ(field->text(), QStringLiteral("4445"));
    press(Qt::Key_Tab);
    EXPECT_EQ(ends, 1);
}

TEST_F(EditFieldTest, returnEndsAnEditEvenWithoutAChange)
{
    press(Qt::Key_Return);
    EXPECT_EQ(ends, 1);
    press(Qt::Key_Enter);
    EXPECT_EQ(ends, 2);
    type(QStringLiteral("1"));
    press(Qt::Key_Return);
    EXPECT_EQ(ends, 3);
    press(Qt::Key_Tab);
    EXPECT_EQ(ends, 3) << "Return has ended it";
}

TEST_F(EditFieldTest, returnThatIsHeldDownEndsOneEdit)
{
    press(Qt::Key_Return);
    for (int repeat = 0; repeat < 10; ++repeat)
        press(Qt::Key_Return, QStringLiteral("\r"), true);
    EXPECT_EQ(ends, 1);
}

TEST_F(EditFieldTest, anotherWindowAndTheFieldsMenuEndNoEdit)
{
    type(QStringLiteral("1"));
    for (const auto reason : {Qt::ActiveWindowFocusReason, Qt::PopupFocusReason}) {
        QFocusEvent out(QEvent::FocusOut, reason);
        QApplication::sendEvent(field, &out);
        EXPECT_EQ(ends, 0);
        QFocusEvent in(QEvent::FocusIn, reason);
        QApplication::sendEvent(field, &in);
    }
    press(Qt::Key_Tab);
    EXPECT_EQ(ends, 1) << "it went on";
}

TEST_F(EditFieldTest, escapeRestoresTheTextAndEndsNoEdit)
{
    field->selectAll();
    type(QStringLiteral("445"));
    press(Qt::Key_Escape);
    EXPECT_EQ(field->text(), QStringLiteral("4445"));
    EXPECT_EQ(field->selectedText(), QStringLiteral("4445"));
    press(Qt::Key_Tab);
    EXPECT_EQ(ends, 0);
}

TEST_F(EditFieldTest, escapeKeepsWhatAnEarlierEditEntered)
{
    field->end(false);
    type(QStringLiteral("1"));
    press(Qt::Key_Tab);
    field->setFocus();
    field->end(false);
    type(QStringLiteral("2"));
    press(Qt::Key_Escape);
    EXPECT_EQ(field->text(), QStringLiteral("44451"));
}

TEST_F(EditFieldTest, escapeWithoutAChangeGoesOn)
{
    QKeyEvent event(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier);
    QApplication::sendEvent(field, &event);
    EXPECT_FALSE(event.isAccepted());
}

TEST_F(EditFieldTest, fillingIsNoEdit)
{
    field->fill(QStringLiteral("445"));
    press(Qt::Key_Tab);
    EXPECT_EQ(ends, 0);
}

TEST_F(EditFieldTest, whatAssistiveTechnologyEntersIsAnEdit)
{
    QAccessible::queryAccessibleInterface(field)->setText(QAccessible::Value,
                                                          QStringLiteral("445"));
    ASSERT_EQ(field->text(), QStringLiteral("445"));
    press(Qt::Key_Tab);
    EXPECT_EQ(ends, 1);
}

TEST_F(EditFieldTest, itsDestructionEndsNoEdit)
{
    type(QStringLiteral("1"));
    delete field;
    EXPECT_EQ(ends, 0);
}

} // namespace

} // namespace quillbox
