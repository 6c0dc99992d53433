#include "app/app_delegate.h"

#include <QFormLayout>
#include <QVBoxLayout>

namespace quillbox {

QWidget* AppDelegate::buildAdvancedForm()
{
    hostField.setPlaceholderText(QStringLiteral("192.168.1.20"));
    portField.setPlaceholderText(QStringLiteral("4445"));
    shareField.setPlaceholderText(QStringLiteral("NAS"));
    userField.setPlaceholderText(QStringLiteral("nas"));

    // The end of an edit is the Return key or the focus moving on. The toolkit's editingFinished
    // also comes when the window loses the focus, and would cut running transfers. Share and user
    // set nothing off: they are read when they are needed.
    for (QLineEdit* field : {&hostField, &portField}) {
        field->installEventFilter(this);
        connect(field, &QLineEdit::returnPressed, this, &AppDelegate::controlTextDidEndEditing);
    }
    connect(&automaticDiscovery, &QCheckBox::clicked, this, &AppDelegate::toggleAutomaticDiscovery);

    auto* restart = new QPushButton(QStringLiteral("Restart service"));
    connect(restart, &QPushButton::clicked, this, &AppDelegate::restartFromMenu);

    auto* form = new QWidget;
    auto* layout = new QVBoxLayout(form);
    layout->addWidget(&automaticDiscovery);
    auto* fields = new QFormLayout;
    fields->addRow(QStringLiteral("Phone IP or name"), &hostField);
    fields->addRow(QStringLiteral("SMB port"), &portField);
    fields->addRow(QStringLiteral("Default share"), &shareField);
    fields->addRow(QStringLiteral("Username"), &userField);
    layout->addLayout(fields);
    layout->addWidget(restart);
    return form;
}

} // namespace quillbox
