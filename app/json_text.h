#pragma once

#include <QJsonDocument>
#include <string>

namespace quillbox {

/// A JSON text for scripts and terminals: indented UTF-8 that ends with a newline; characters that
/// a terminal would interpret are escaped.
std::string jsonText(const QJsonDocument& document);

} // namespace quillbox
