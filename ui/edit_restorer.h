#pragma once

#include <QObject>
#include <QString>

class QLineEdit;

namespace quillbox {

/// Makes Escape restore the text that a field had when the edit began. If the text has not changed,
/// the key goes on to the window.
class EditRestorer final : public QObject {
public:
    /// Owned by the field.
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
