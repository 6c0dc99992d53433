#pragma once

#include <QJsonDocument>
#include <string>

namespace quillbox {

/// A JSON text for scripts and terminals: readable, ASCII where a terminal would act upon what is
/// in it, always UTF-8, ended with a line break.
std::string jsonText(const QJsonDocument& document);

} // namespace quillbox
