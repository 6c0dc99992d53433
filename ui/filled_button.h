#pragma once

#include <QPushButton>

namespace quillbox {

/// The button for the most likely action: it looks like the default button of a dialog, but Return
/// does not press it while another control has the focus.
class FilledButton final : public QPushButton {
public:
    explicit FilledButton(const QString& text, QWidget* parent = nullptr);

    FilledButton(const FilledButton&) = delete;
    FilledButton& operator=(const FilledButton&) = delete;
    ~FilledButton() override = default;

protected:
    void initStyleOption(QStyleOptionButton* option) const override;
};

} // namespace quillbox
