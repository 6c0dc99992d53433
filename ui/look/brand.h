#pragma once

#include <QColor>

/// The seven colours of the window.
namespace quillbox::Brand {

inline constexpr QColor navy(15, 23, 42);
inline constexpr QColor blue(59, 130, 246);
inline constexpr QColor slate(71, 85, 105);
inline constexpr QColor green(22, 163, 74);
inline constexpr QColor surface(247, 249, 252);
inline constexpr QColor pale(242, 247, 255);
inline constexpr QColor border(216, 222, 231);

} // namespace quillbox::Brand
