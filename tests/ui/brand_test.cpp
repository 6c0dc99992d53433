#include "ui/brand.h"

#include <gtest/gtest.h>

namespace quillbox {

namespace {

TEST(Brand, readingAColourTwiceYieldsTheSameObject)
{
    for (const auto colour : {Brand::navy, Brand::blue, Brand::slate, Brand::green, Brand::surface,
                              Brand::pale, Brand::border})
        EXPECT_EQ(&colour(), &colour());
}

TEST(Brand, theColoursAreTheSevenOfThePalette)
{
    EXPECT_EQ(Brand::navy().name(), QStringLiteral("#0f172a"));
    EXPECT_EQ(Brand::blue().name(), QStringLiteral("#3b82f6"));
    EXPECT_EQ(Brand::slate().name(), QStringLiteral("#475569"));
    EXPECT_EQ(Brand::green().name(), QStringLiteral("#16a34a"));
    EXPECT_EQ(Brand::surface().name(), QStringLiteral("#f7f9fc"));
    EXPECT_EQ(Brand::pale().name(), QStringLiteral("#f2f7ff"));
    EXPECT_EQ(Brand::border().name(), QStringLiteral("#d8dee7"));
}

TEST(Brand, theComponentsSurviveARoundTripThroughFractions)
{
    for (const auto colour : {Brand::navy, Brand::blue, Brand::slate, Brand::green, Brand::surface,
                              Brand::pale, Brand::border}) {
        const QColor original = colour();
        const QColor copy = QColor::fromRgbF(original.redF(), original.greenF(), original.blueF());
        EXPECT_EQ(copy.rgb(), original.rgb());
    }
}

} // namespace

} // namespace quillbox
