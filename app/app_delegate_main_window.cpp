#include "app/app_delegate.h"
#include "ui/accessibility.h"
#include "ui/content_area.h"
#include "ui/frame_sizer.h"
#include "ui/look/brand.h"
#include "ui/look/focus_ring.h"
#include "ui/look/helper_style.h"
#include "ui/look/icons.h"
#include "ui/look/rounded_box.h"
#include "ui/look/text_style.h"

#include <QApplication>
#include <QEvent>
#include <QHBoxLayout>
#include <QIcon>
#include <QKeyEvent>
#include <QLabel>
#include <QPainter>
#include <QPalette>
#include <QPushButton>
#include <QShortcut>
#include <QToolTip>
#include <QVBoxLayout>
#include <algorithm>
#include <functional>
#include <initializer_list>
#include <optional>
#include <utility>

namespace quillbox {

namespace {

constexpr int kWidth = 440;
constexpr int kFoldedHeight = 340;
constexpr int kUnfoldedHeight = 520;
constexpr int kMaximumHeight = 700;
constexpr int kPhoneHeight = 22;
constexpr int kPhoneListHeight = 20;

/// At the top and at the bottom. The content is in the middle, with 22 pixels on each side.
constexpr int kInset = 20;
constexpr int kColumnSpacing = 12;
constexpr int kContentWidth = 396;

constexpr int kIconSize = 58;
constexpr int kHeaderSpacing = 16;
constexpr int kTitleSpacing = 1;

constexpr QMargins kCardInsets{18, 16, 18, 16};
constexpr int kCardSpacing = 11;
constexpr int kCardRadius = 16;

constexpr QMargins kStatusInsets{13, 10, 13, 10};
constexpr int kStatusSpacing = 9;
constexpr int kStatusRadius = 10;
constexpr int kStatusLines = 2;

constexpr int kPhoneSpacing = 6;
/// For the part of the last row that extends below its height in the layout.
constexpr int kPhoneListBottom = 2;

/// Low enough for everything to fit into the folded window below a usual title bar.
constexpr int kTextControlHeight = 16;

/// Readable, but not mistaken for text that the user has entered.
constexpr float kPlaceholderStrength = 0.75F;

/// Only the brand's colours, and white.
QPalette windowPalette()
{
    QPalette palette(Brand::surface);
    palette.setColor(QPalette::Window, Brand::surface);
    palette.setColor(QPalette::Base, Qt::white);
    palette.setColor(QPalette::Highlight, Brand::blue);
    palette.setColor(QPalette::HighlightedText, Qt::white);
    QColor faint = Brand::slate;
    faint.setAlphaF(kPlaceholderStrength);
    palette.setColor(QPalette::PlaceholderText, faint);
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        palette.setColor(role, Brand::navy);
    return palette;
}

std::unique_ptr<QWidget> makeWindow()
{
    auto window = std::make_unique<QWidget>();
    window->setWindowTitle(QStringLiteral("Quillbox Helper"));
    // Without these flags a window that cannot be resized can still be maximised.
    window->setWindowFlags(Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint
                           | Qt::WindowSystemMenuHint | Qt::WindowMinimizeButtonHint
                           | Qt::WindowCloseButtonHint);
    window->setPalette(windowPalette());
    return window;
}

std::function<void(int)> spacingOf(QBoxLayout& layout)
{
    return [&layout](int distance) { layout.setSpacing(distance); };
}

std::function<void(int)> marginOf(QLayout& layout, void (QMargins::*setMargin)(int))
{
    return [&layout, setMargin](int distance) {
        QMargins margins = layout.contentsMargins();
        (margins.*setMargin)(distance);
        layout.setContentsMargins(margins);
    };
}

/// Draws the icon at the scale of the screen that the window is currently on.
class IconView final : public QWidget {
public:
    explicit IconView(QIcon shownIcon) : icon(std::move(shownIcon))
    {
        setFixedSize(kIconSize, kIconSize);
    }

private:
    void paintEvent(QPaintEvent* /*event*/) override
    {
        QPainter painter(this);
        icon.paint(&painter, rect());
    }

    const QIcon icon;
};

/// The top of the window: the icon, the title and a subtitle.
QWidget* makeHeader(const QIcon& icon)
{
    auto* header = new QWidget;
    auto* row = new QHBoxLayout(header);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(kHeaderSpacing);
    row->addWidget(new IconView(icon));
    auto* titles = new QVBoxLayout;
    titles->setSpacing(kTitleSpacing);
    titles->addStretch();
    titles->addWidget(makeLabel(QStringLiteral("Quillbox Helper"),
                                {.size = 25, .weight = QFont::Bold, .colour = Brand::navy}));
    titles->addWidget(makeLabel(QStringLiteral("The desktop companion of the Quillbox app"),
                                {.size = 11, .weight = QFont::Medium, .colour = Brand::slate}));
    titles->addStretch();
    row->addLayout(titles);
    return header;
}

FrameSizer::Reported waySizesAreReported()
{
    return QGuiApplication::platformName().startsWith(QStringLiteral("wayland"))
               ? FrameSizer::Reported::AsOnWayland
               : FrameSizer::Reported::Exactly;
}

} // namespace

/// Replaces the desktop's style, which may draw dark whatever the palette says.
void AppDelegate::forceLightAppearance()
{
    QApplication::setStyle(new HelperStyle);
    applyLightPalette();
}

/// Called again whenever the desktop's theme changes, because Qt then sets a palette for some
/// widget classes.
void AppDelegate::applyLightPalette()
{
    const QPalette palette = HelperStyle::lightPalette();
    QApplication::setPalette(palette);
    QToolTip::setPalette(palette);
}

void AppDelegate::buildWindow()
{
    window = makeWindow();
    window->setWindowIcon(Icons::application());
    // Closing only hides the window.
    window->installEventFilter(this);
    frameSizer = new FrameSizer(*window, waySizesAreReported());

    contentArea = new ContentArea;
    connect(&frameSizer->animation(), &QVariantAnimation::stateChanged, contentArea,
            [this](QAbstractAnimation::State state) {
                const bool isChanging = state == QAbstractAnimation::Running;
                contentArea->setFinalHeight(
                    isChanging ? std::optional(frameSizer->finalContentHeight()) : std::nullopt);
            });
    auto* layout = new QVBoxLayout(window.get());
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(contentArea);
    buildContent();

    buildKeyboard();
    new FocusRing(*window);
    // updateWindowHeight() changes the height with the content, from the first list of phones on.
    window->setFixedSize(kWidth, kFoldedHeight);
}

void AppDelegate::buildContent()
{
    QLabel* subtitle = wrappingLabel(
        QStringLiteral("Makes your phone easy to find in Finder. Local network only."), 12,
        Brand::slate);
    QLabel* footnote = wrappingLabel(
        QStringLiteral("No telemetry or cloud service. It only relays Finder SMB traffic directly "
                       "to your phone while running."),
        10, Brand::slate);
    QWidget* header = makeHeader(window->windowIcon());
    QWidget* card = buildCard();
    for (QWidget* part :
         {header, static_cast<QWidget*>(subtitle), card, static_cast<QWidget*>(footnote)})
        part->setFixedWidth(kContentWidth);

    using GivesWay = ContentArea::GivesWay;
    auto* lower = new QVBoxLayout;
    lower->addWidget(card);
    lower->addWidget(footnote);
    QVBoxLayout& column = contentArea->column();
    column.addWidget(header);
    column.addWidget(subtitle);
    column.addLayout(lower);
    column.addStretch(1);
    contentArea->addGap({.usual = kInset, .set = marginOf(column, &QMargins::setTop)});
    contentArea->addGap({.usual = kColumnSpacing, .count = 2, .set = spacingOf(column)});
    contentArea->addGap(
        {.usual = kColumnSpacing, .givesWay = GivesWay::ToBoth, .set = spacingOf(*lower)});
    contentArea->addGap({.usual = kInset,
                         .givesWay = GivesWay::ToBoth,
                         .set = marginOf(column, &QMargins::setBottom)});
}

QWidget* AppDelegate::buildCard()
{
    auto* card =
        new RoundedBox({.radius = kCardRadius, .fill = Qt::white, .border = Brand::border});
    auto* layout = new QVBoxLayout(card);
    layout->setContentsMargins(kCardInsets);
    layout->setSpacing(kCardSpacing);

    kControlText.apply(showInFinder);
    showInFinder.setFixedHeight(kTextControlHeight);
    showInFinder.setAccessibleDescription(
        QStringLiteral("Whether phones appear in the file browser"));
    setAccessibleRole(showInFinder, QAccessible::CheckBox);
    connect(&showInFinder, &QCheckBox::clicked, this, &AppDelegate::toggleFinderVisibility);
    layout->addWidget(&showInFinder, 0, Qt::AlignLeft);
    layout->addWidget(buildStatusBox());

    auto* phones = new QVBoxLayout(&deviceListStack);
    phones->setContentsMargins(0, 0, 0, kPhoneListBottom);
    phones->setSpacing(kPhoneSpacing);
    setAccessibleRole(deviceListStack, QAccessible::List);
    deviceListStack.setAccessibleName(QStringLiteral("Available Quillbox devices"));
    deviceListStack.hide();
    layout->addWidget(&deviceListStack);

    layout->addWidget(buildManagementButton(), 0, Qt::AlignLeft);
    buildAdvancedButton();
    // The distance between the two belongs to the form, because it may give way.
    auto* foldable = new QVBoxLayout;
    foldable->setSpacing(0);
    foldable->addWidget(&advancedButton, 0, Qt::AlignLeft);
    advancedForm = buildAdvancedForm();
    advancedForm->hide();
    foldable->addWidget(advancedForm);
    layout->addLayout(foldable);
    contentArea->setFold(*advancedForm);
    contentArea->addGap({.usual = kCardSpacing,
                         .givesWay = ContentArea::GivesWay::InsideFold,
                         .set = marginOf(*advancedForm->layout(), &QMargins::setTop)});
    contentArea->addGap({.usual = kCardInsets.bottom(),
                         .givesWay = ContentArea::GivesWay::ToFold,
                         .set = marginOf(*layout, &QMargins::setBottom)});
    return card;
}

QWidget* AppDelegate::buildManagementButton()
{
    const QString enableFirst =
        QStringLiteral("Enable web management for an SMB user on the phone first");
    managementButton = new QPushButton(QStringLiteral("Open web management"));
    kButtonText.apply(*managementButton);
    managementButton->setFixedHeight(HelperStyle::kButtonHeight);
    managementButton->setToolTip(enableFirst);
    managementButton->setAccessibleDescription(enableFirst);
    connect(managementButton, &QPushButton::clicked, this, [this] { openManagement(); });
    return managementButton;
}

QWidget* AppDelegate::buildStatusBox()
{
    auto* box =
        new RoundedBox({.radius = kStatusRadius, .fill = Brand::pale, .border = Brand::border});
    setAccessibleRole(*box, QAccessible::StatusBar);
    box->setAccessibleName(QStringLiteral("Status"));
    auto* row = new QHBoxLayout(box);
    row->setContentsMargins(kStatusInsets);
    row->setSpacing(kStatusSpacing);
    TextStyle{.size = 13, .colour = Brand::slate}.apply(statusDot);
    statusDot.setAccessibleName(QStringLiteral("Finder service off"));
    row->addWidget(&statusDot);
    TextStyle{.size = 12, .weight = QFont::Medium, .colour = Brand::slate}.apply(statusLabel);
    statusLabel.setMaximumLines(kStatusLines);
    setAccessibleRole(statusLabel, QAccessible::Notification);
    statusLabel.setAccessibleName(statusLabel.text());
    row->addWidget(&statusLabel, 1);
    return box;
}

QLabel* AppDelegate::wrappingLabel(const QString& text, int size, const QColor& color)
{
    auto* label = new ParagraphLabel(text);
    TextStyle{.size = size, .colour = color}.apply(*label);
    return label;
}

void AppDelegate::updateWindowHeight()
{
    const int phones = static_cast<int>(discoveredDevices.size());
    const int list = phones == 0 ? 0 : kPhoneHeight * phones + kPhoneListHeight;
    const int folded = std::min(kFoldedHeight + list, kMaximumHeight);
    const int unfolded = std::min(kUnfoldedHeight + list, kMaximumHeight);
    const int height = advancedVisible ? unfolded : folded;
    contentArea->setUnfoldedHeight(height - folded);
    frameSizer->setFrameSize({kWidth, height});
}

/// Sets up the shortcuts and the tab order. The window handles keys like the desktop's windows and
/// dialogs: Escape and Ctrl+W close it, which only hides it, Ctrl+Q quits, and Return presses the
/// focused button.
void AppDelegate::buildKeyboard()
{
    const auto shortcut = [this](Qt::Key key) {
        return new QShortcut(QKeySequence(Qt::CTRL | key), window.get());
    };
    connect(shortcut(Qt::Key_W), &QShortcut::activated, window.get(), &QWidget::close);
    connect(shortcut(Qt::Key_Q), &QShortcut::activated, this, &AppDelegate::quit);

    QList<QWidget*> order{&showInFinder, managementButton, &advancedButton, &automaticDiscovery,
                          &hostField,    &portField,       &shareField,     &userField};
    for (QPushButton* button : advancedForm->findChildren<QPushButton*>())
        order.append(button);
    for (qsizetype place = 1; place < order.size(); ++place)
        QWidget::setTabOrder(order[place - 1], order[place]);
}

/// Handles keys that no control has handled. (In Qt Return presses a button only in dialogs, which
/// always mark one button as the default.)
bool AppDelegate::handleKey(const QEvent& event)
{
    const auto& key = static_cast<const QKeyEvent&>(event);
    // A key that is held down acts once, as Space does on a button.
    if (key.isAutoRepeat())
        return false;
    switch (key.key()) {
    case Qt::Key_Escape:
        window->close();
        return true;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        if (auto* button = qobject_cast<QPushButton*>(window->focusWidget())) {
            button->click();
            return true;
        }
        return false;
    default:
        return false;
    }
}

/// Handles the events of the window.
bool AppDelegate::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() == QEvent::Close) {
        const bool isClosing = windowShouldClose(*window);
        event->setAccepted(isClosing);
        return !isClosing;
    }
    if (event->type() == QEvent::ThemeChange)
        applyLightPalette();
    if (event->type() == QEvent::KeyPress)
        return handleKey(*event);
    return QObject::eventFilter(watched, event);
}

} // namespace quillbox
