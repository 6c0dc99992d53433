#pragma once

#include <QFrame>
#include <string_view>

namespace quillbox {

class ManageButton;

/// One phone of the list: a dot, its name, that it is there, and a button where one is added.
class DeviceRow final : public QFrame {
public:
    /// `name` is UTF-8, as the network gave it.
    explicit DeviceRow(std::string_view name, QWidget* parent = nullptr);

    DeviceRow(const DeviceRow&) = delete;
    DeviceRow& operator=(const DeviceRow&) = delete;
    ~DeviceRow() override = default;

    /// Adds the button that opens the web page of the phone of that name.
    ManageButton& addManageButton(std::string_view name);

    /// None before it was added.
    ManageButton* manageButton() const { return manage; }

private:
    ManageButton* manage = nullptr;
};

} // namespace quillbox
