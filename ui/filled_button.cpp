#include "ui/filled_button.h"

#include "ui/text_style.h"

#include <QStyleOptionButton>

namespace quillbox {

FilledButton::FilledButton(const QString& text, QWidget* parent) : QPushButton(text, parent)
{
    TextStyle{.size = kControlTextSize, .weight = QFont::DemiBold, .colour = Qt::white}.apply(
        *this);
}

void FilledButton::initStyleOption(QStyleOptionButton* option) const
{
    QPushButton::initStyleOption(option);
    option->features |= QStyleOptionButton::DefaultButton;
}

} // namespace quillbox
