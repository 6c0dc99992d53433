#include "ui/look/brand.h"

namespace quillbox::Brand {

const QColor& navy()
{
    static const QColor colour(15, 23, 42);
    return colour;
}

const QColor& blue()
{
    static const QColor colour(59, 130, 246);
    return colour;
}

const QColor& slate()
{
    static const QColor colour(71, 85, 105);
    return colour;
}

const QColor& green()
{
    static const QColor colour(22, 163, 74);
    return colour;
}

const QColor& surface()
{
    static const QColor colour(247, 249, 252);
    return colour;
}

const QColor& pale()
{
    static const QColor colour(242, 247, 255);
    return colour;
}

const QColor& border()
{
    static const QColor colour(216, 222, 231);
    return colour;
}

} // namespace quillbox::Brand
