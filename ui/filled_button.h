#pragma once

#include <QPushButton>

namespace quillbox {

/// The button for what people most likely came for: it looks like the default button of a dialog,
/// without being pressed by Return from elsewhere.
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
