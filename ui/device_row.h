#pragma once

#include <QFrame>
#include <QPushButton>
#include <string_view>

namespace quillbox {

/// The button in a phone's row that opens the phone's web page. Rows are rebuilt whenever anything
/// changes on the network; the focus and a press in progress then pass to the new button.
class ManageButton final : public QPushButton {
public:
    /// `phoneName` is UTF-8, verbatim from the network.
    ManageButton(std::string_view phoneName, QWidget* parent);

    /// The state of an interaction with a button.
    struct Use {
        /// Also while the window is hidden or inactive: the focus then comes back with the window.
        bool hasFocus = false;
        bool isDown = false;
        bool isHeldByPointer = false;
    };

    Use use() const;

    /// Takes over the focus, and a press of the mouse button or of a key that is in progress.
    void goOnWith(const Use& use);

private:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void leaveEvent(QEvent* event) override;

    bool isHeldByPointer = false;
};

/// One phone in the list: a dot, its name, its state, and optionally a button. The state and the
/// button are at the end of the row.
class DeviceRow final : public QFrame {
public:
    /// `name` is UTF-8, verbatim from the network.
    DeviceRow(std::string_view name, QWidget* parent);

    /// Adds the button that opens the web page of the phone with that name.
    ManageButton& addManageButton(std::string_view name);

    /// Leaves the room of a button, so that the states of phones with and without one line up.
    void leaveRoomForManageButton(int width);

    /// Null before addManageButton().
    ManageButton* manageButton() const { return manage; }

private:
    ManageButton* manage = nullptr;
};

} // namespace quillbox
