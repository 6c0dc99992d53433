#pragma once

#include <QColor>

/// The seven colours of the window. Each is made on first use and stays the same object for the
/// life of the process; the first use may come from any thread.
namespace quillbox::Brand {

const QColor& navy();
const QColor& blue();
const QColor& slate();
const QColor& green();
const QColor& surface();
const QColor& pale();
const QColor& border();

} // namespace quillbox::Brand
