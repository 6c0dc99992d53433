#pragma once

#include <QObject>
#include <QString>

class QLineEdit;

namespace quillbox {

/// Lets Escape give a field back the text that it had when the edit began, as long as that differs;
/// otherwise the key goes on to the window.
class EditRestorer final : public QObject {
public:
    /// Belongs to the field.
    explicit EditRestorer(QLineEdit& editedField);

    EditRestorer(const EditRestorer&) = delete;
    EditRestorer& operator=(const EditRestorer&) = delete;
    ~EditRestorer() override = default;

private:
    bool eventFilter(QObject* watched, QEvent* event) override;
    bool restore();

    QLineEdit& field;
    QString before;
};

} // namespace quillbox
