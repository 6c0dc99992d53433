#include "tests/app/app_fixture.h"

#include <QLabel>
#include <QLayout>

namespace quillbox {

namespace {

class DeviceList : public AppFixture {
protected:
    int viewCount() const { return delegate->deviceListStack.layout()->count(); }

    std::vector<QLabel*> labelsOf(int index) const
    {
        const auto labels =
            delegate->deviceListStack.layout()->itemAt(index)->widget()->findChildren<QLabel*>();
        return {labels.begin(), labels.end()};
    }
};

TEST_F(DeviceList, isHiddenUntilAPhoneIsFound)
{
    launch();
    EXPECT_TRUE(delegate->deviceListStack.isHidden());
    findPhones({phoneNamed("Quillbox")});
    EXPECT_FALSE(delegate->deviceListStack.isHidden());
    findPhones({});
    EXPECT_TRUE(delegate->deviceListStack.isHidden());
    EXPECT_EQ(viewCount(), 0);
}

TEST_F(DeviceList, staysHiddenWhenOnlyManagementIsFound)
{
    launch();
    findManagement({phoneNamed("Quillbox")});
    EXPECT_TRUE(delegate->deviceListStack.isHidden());
    EXPECT_EQ(viewCount(), 0);
}

TEST_F(DeviceList, everyRedrawLeavesAHeadingAndARowAPhone)
{
    launch();
    for (int redraw = 0; redraw < 3; ++redraw) {
        findPhones({phoneNamed("Quillbox A"), phoneNamed("Quillbox B"), phoneNamed("Quillbox C")});
        EXPECT_EQ(viewCount(), 4);
    }
    findPhones({phoneNamed("Quillbox B")});
    EXPECT_EQ(viewCount(), 2);
}

TEST_F(DeviceList, aHostileNameIsShownAsItIs)
{
    launch();
    const std::string name = "Quillbox <img src='http://192.0.2.1/x'> & <b>bold</b>";
    findPhones({phoneNamed(name)});
    const auto labels = labelsOf(1);
    ASSERT_EQ(labels.size(), 3U);
    EXPECT_EQ(labels[1]->text().toStdString(), name);
    for (const QLabel* label : labels)
        EXPECT_EQ(label->textFormat(), Qt::PlainText);
}

} // namespace

} // namespace quillbox
