#include "app/app_delegate.h"
#include "ui/accessibility.h"
#include "ui/content_area.h"
#include "ui/look/brand.h"
#include "ui/look/helper_style.h"
#include "ui/look/text_style.h"

#include <QGridLayout>
#include <QHBoxLayout>
#include <QVBoxLayout>

namespace quillbox {

namespace {

constexpr int kFormSpacing = 10;
constexpr int kGridRowSpacing = 8;
constexpr int kGridColumnSpacing = 12;
constexpr int kFieldWidth = 230;
constexpr int kFieldHeight = 22;
constexpr int kFieldPadding = 4;
constexpr int kCheckBoxHeight = 16;
constexpr int kFoldButtonHeight = 16;
constexpr QSize kOpenButtonSize{142, 34};
constexpr int kNoteWidth = 350;

/// A field and its texts.
struct Entry {
    QString label;
    EditField& field;
    QString placeholder;
    QString description;
};

void addEntry(QGridLayout& grid, int row, const Entry& entry)
{
    EditField& field = entry.field;
    kControlText.apply(field);
    field.setPlaceholderText(entry.placeholder);
    field.setFixedHeight(kFieldHeight);
    field.setFixedWidth(kFieldWidth);
    field.setTextMargins(kFieldPadding, 0, kFieldPadding, 0);
    field.setAccessibleName(entry.label);
    field.setAccessibleDescription(entry.description);

    // In a font that is too wide for the room beside the field, the label is elided.
    auto* label = new ParagraphLabel(entry.label);
    label->setMaximumLines(1);
    TextStyle{.size = 12, .weight = QFont::Medium, .colour = Brand::navy}.apply(*label);
    label->setBuddy(&field);
    // Inside the label too, whose width is rounded up to a whole pixel.
    label->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    grid.addWidget(label, row, 0, Qt::AlignRight | Qt::AlignVCenter);
    grid.addWidget(&field, row, 1);
}

} // namespace

void AppDelegate::buildAdvancedButton()
{
    TextStyle{.size = kControlText.size, .colour = Brand::slate}.apply(advancedButton);
    advancedButton.setFlat(true);
    advancedButton.setFixedHeight(kFoldButtonHeight);
    advancedButton.setAccessibleName(QStringLiteral("Advanced"));
    setAccessibleRole(advancedButton, QAccessible::Button);
    tellFold();
    connect(&advancedButton, &QPushButton::clicked, this, &AppDelegate::toggleAdvanced);
}

QWidget* AppDelegate::buildAdvancedForm()
{
    auto* form = new QWidget;
    auto* layout = new QVBoxLayout(form);
    layout->setContentsMargins(0, 0, 0, 0);
    contentArea->addGap({.usual = kFormSpacing,
                         .count = 3,
                         .givesWay = ContentArea::GivesWay::InsideFold,
                         .set = [layout](int distance) { layout->setSpacing(distance); }});

    kControlText.apply(automaticDiscovery);
    automaticDiscovery.setFixedHeight(kCheckBoxHeight);
    automaticDiscovery.setAccessibleDescription(
        QStringLiteral("Whether to use the phones on this network, rather than the address below"));
    setAccessibleRole(automaticDiscovery, QAccessible::CheckBox);
    connect(&automaticDiscovery, &QCheckBox::clicked, this, &AppDelegate::toggleAutomaticDiscovery);
    layout->addWidget(&automaticDiscovery, 0, Qt::AlignLeft);
    layout->addLayout(buildFields());
    layout->addLayout(buildFormButtons());
    QLabel* note = wrappingLabel(
        QStringLiteral("Normally no action is needed here. Quillbox appears in Finder "
                       "automatically while this helper is running."),
        10, Brand::slate);
    note->setFixedWidth(kNoteWidth);
    layout->addWidget(note);
    return form;
}

QLayout* AppDelegate::buildFields()
{
    auto* grid = new QGridLayout;
    contentArea->addGap({.usual = kGridRowSpacing,
                         .count = 3,
                         .givesWay = ContentArea::GivesWay::InsideFold,
                         .set = [grid](int distance) { grid->setVerticalSpacing(distance); }});
    grid->setHorizontalSpacing(kGridColumnSpacing);
    // The width that labels and fields leave stays empty, on the right.
    grid->setColumnStretch(2, 1);
    const Entry entries[] = {
        {.label = QStringLiteral("Phone IP or name"),
         .field = hostField,
         .placeholder = QStringLiteral("192.168.1.20"),
         .description = QStringLiteral("Used when phones are not found automatically")},
        {.label = QStringLiteral("SMB port"),
         .field = portField,
         .placeholder = QStringLiteral("4445"),
         .description = QStringLiteral("Used when phones are not found automatically")},
        {.label = QStringLiteral("Default share"),
         .field = shareField,
         .placeholder = QStringLiteral("NAS"),
         .description = QStringLiteral("What Open in Finder opens")},
        {.label = QStringLiteral("Username"),
         .field = userField,
         .placeholder = QStringLiteral("nas"),
         .description = QStringLiteral("Whom Open in Finder opens the share as")},
    };
    int row = 0;
    for (const Entry& entry : entries)
        addEntry(*grid, row++, entry);

    // Share and user are only read when they are needed.
    for (EditField* field : {&hostField, &portField})
        field->editEnded = [this] { controlTextDidEndEditing(); };
    return grid;
}

QLayout* AppDelegate::buildFormButtons()
{
    auto* row = new QHBoxLayout;
    row->setSpacing(kFormSpacing);

    auto* restart = new QPushButton(QStringLiteral("Restart service"));
    kButtonText.apply(*restart);
    restart->setFixedHeight(HelperStyle::kButtonHeight);
    restart->setAccessibleDescription(
        QStringLiteral("Makes phones visible in Finder and connects to them anew"));
    connect(restart, &QPushButton::clicked, this, &AppDelegate::restartFromMenu);
    row->addWidget(restart);

    auto* open = new QPushButton(QStringLiteral("Open in Finder"));
    TextStyle{.size = kControlText.size, .weight = QFont::DemiBold, .colour = Qt::white}.apply(
        *open);
    open->setProperty(HelperStyle::kIsFilled, true);
    open->setFixedSize(kOpenButtonSize);
    open->setAccessibleDescription(QStringLiteral("Opens the default share in the file browser"));
    connect(open, &QPushButton::clicked, this, [this] { openInFinder(); });
    row->addWidget(open);
    row->addStretch();
    return row;
}

void AppDelegate::toggleAdvanced()
{
    advancedVisible = !advancedVisible;
    // Otherwise hiding the focused control would move the focus to the top of the window.
    if (!advancedVisible && advancedForm->isAncestorOf(window->focusWidget()))
        advancedButton.setFocus(Qt::OtherFocusReason);
    advancedForm->setVisible(advancedVisible);
    advancedButton.setText(advancedVisible ? QStringLiteral("Advanced ▾")
                                           : QStringLiteral("Advanced ▸"));
    tellFold();
    updateWindowHeight();
}

/// Tells assistive technologies whether the form is shown. Qt's bridge to them announces changes of
/// descriptions, but not of this state.
void AppDelegate::tellFold()
{
    setAccessibleExpanded(advancedButton, advancedVisible);
    advancedButton.setAccessibleDescription(
        advancedVisible ? QStringLiteral("The settings of the connection are shown")
                        : QStringLiteral("The settings of the connection are hidden"));
}

} // namespace quillbox
