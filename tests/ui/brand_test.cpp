#include "ui/look/brand.h"

#include <gtest/gtest.h>

namespace quillbox {

namespace {

struct Entry {
    const QColor& colour;
    int red, green, blue;
};

const Entry kPalette[] = {
    {Brand::navy, 15, 23, 42},      {Brand::blue, 59, 130, 246},     {Brand::slate, 71, 85, 105},
    {Brand::green, 22, 163, 74},    {Brand::surface, 247, 249, 252}, {Brand::pale, 242, 247, 255},
    {Brand::border, 216, 222, 231},
};

TEST(Brand, theColoursAreTheSevenOfThePaletteAndOpaque)
{
    for (const Entry& each : kPalette)
        EXPECT_EQ(each.colour.rgba(), qRgba(each.red, each.green, each.blue, 255));
}

TEST(Brand, theComponentsAreExactFractionsOf255)
{
    constexpr double kTolerance = 1e-4; // far below the distance of two 8-bit values
    for (const Entry& each : kPalette) {
        const QColor& colour = each.colour;
        EXPECT_EQ(colour.spec(), QColor::Rgb);
        EXPECT_NEAR(colour.redF(), each.red / 255.0, kTolerance);
        EXPECT_NEAR(colour.greenF(), each.green / 255.0, kTolerance);
        EXPECT_NEAR(colour.blueF(), each.blue / 255.0, kTolerance);
        const QColor copy = QColor::fromRgbF(colour.redF(), colour.greenF(), colour.blueF());
        EXPECT_EQ(copy.rgba(), qRgba(each.red, each.green, each.blue, 255));
    }
}

} // namespace

} // namespace quillbox
