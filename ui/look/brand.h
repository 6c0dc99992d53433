#pragma once

#include <QColor>

/// The seven colours of the window. Each is created on first use, on any thread, and stays the same
/// object for the lifetime of the process.
namespace quillbox::Brand {

const QColor& navy();
const QColor& blue();
const QColor& slate();
const QColor& green();
const QColor& surface();
const QColor& pale();
const QColor& border();

} // namespace quillbox::Brand
