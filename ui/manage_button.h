#pragma once

#include <QPushButton>
#include <string_view>

namespace quillbox {

/// The button of a phone's row that opens the phone's web page. Rows are built anew whenever
/// anything changes on the network; what somebody is doing with a button at that moment goes on
/// with the one in its place.
class ManageButton final : public QPushButton {
public:
    /// `phoneName` is UTF-8, as the network gave it.
    explicit ManageButton(std::string_view phoneName, QWidget* parent = nullptr);

    ManageButton(const ManageButton&) = delete;
    ManageButton& operator=(const ManageButton&) = delete;
    ~ManageButton() override = default;

    /// What somebody is doing with a button.
    struct Use {
        bool hasFocus = false;
        bool isDown = false;
        bool isHeldByPointer = false;
    };

    Use use() const { return {hasFocus(), isDown(), isHeldByPointer}; }

    /// Goes on with the focus, and with a press of the pointer or of a key that is under way.
    void goOnWith(const Use& use);

private:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void leaveEvent(QEvent* event) override;

    bool isHeldByPointer = false;
};

} // namespace quillbox
