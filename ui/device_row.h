#pragma once

#include <QFrame>
#include <string_view>

namespace quillbox {

class ManageButton;

/// One phone in the list: a dot, its name, its state, and optionally a button. The state and the
/// button are at the end of the row.
class DeviceRow final : public QFrame {
public:
    /// `name` is UTF-8, verbatim from the network.
    explicit DeviceRow(std::string_view name, QWidget* parent = nullptr);

    DeviceRow(const DeviceRow&) = delete;
    DeviceRow& operator=(const DeviceRow&) = delete;
    ~DeviceRow() override = default;

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
