#include "platform/desktop/opening/alert_sound.h"
#include "tests/platform/desktop/opening/canberra_stand_in.h"

#include <chrono>
#include <memory>
#include <mutex>
#include <thread>

#include <dlfcn.h>
#include <gmock/gmock.h>

namespace quillbox {

namespace {

using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::Ge;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr std::chrono::seconds kLongestTest{10};

class AlertSoundTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        using Get = CanberraStandIn* (*)();
        void* library = dlopen(CANBERRA_STAND_IN, RTLD_NOW);
        ASSERT_TRUE(library) << dlerror();
        standIn = reinterpret_cast<Get>(dlsym(library, "canberra_stand_in"))();
        const std::scoped_lock lock(standIn->mutex);
        standIn->hasServer = standIn->answers = standIn->isSoundShort = true;
        standIn->missing.clear();
        standIn->played.clear();
        standIn->contexts = standIn->destroyed = 0;
    }

    template <class Check> bool becomes(const Check& check) const
    {
        std::unique_lock lock(standIn->mutex);
        return standIn->changed.wait_for(lock, kLongestTest, check);
    }

    /// Waits until everything that belongs to so many sounds has been released.
    bool isOver(int sounds) const
    {
        return becomes([&] { return standIn->destroyed >= sounds; });
    }

    /// Plays until the thread of the sound before has ended, which nothing else reports. May play
    /// more often: a sound may be over before its context is seen.
    void playUntilContext(int count)
    {
        const auto end = std::chrono::steady_clock::now() + kLongestTest;
        while (!hasContexts(count) && std::chrono::steady_clock::now() < end) {
            sound->play();
            std::this_thread::yield();
        }
        ASSERT_TRUE(hasContexts(count));
    }

    bool hasContexts(int count) const
    {
        const std::scoped_lock lock(standIn->mutex);
        return standIn->contexts >= count;
    }

    void answerAgain() const
    {
        const std::scoped_lock lock(standIn->mutex);
        standIn->answers = true;
        standIn->changed.notify_all();
    }

    CanberraStandIn* standIn = nullptr;
    std::unique_ptr<AlertSound> sound = std::make_unique<AlertSound>(CANBERRA_STAND_IN);
};

TEST_F(AlertSoundTest, isTheBellOfTheSoundTheme)
{
    sound->play();
    EXPECT_TRUE(isOver(1));
    EXPECT_THAT(standIn->played, ElementsAre("bell"));
}

TEST_F(AlertSoundTest, isTheWarningOfAThemeWithoutABell)
{
    standIn->missing = "bell";
    sound->play();
    EXPECT_TRUE(isOver(1));
    EXPECT_THAT(standIn->played, ElementsAre("dialog-warning"));
}

TEST_F(AlertSoundTest, isPlayedEachTime)
{
    for (int count = 1; count <= 3; ++count) {
        playUntilContext(count);
        EXPECT_TRUE(isOver(count));
    }
    sound = nullptr; // ends one that may still be played
    EXPECT_THAT(standIn->played, AllOf(SizeIs(Ge(3)), Each("bell")));
}

TEST_F(AlertSoundTest, doesNotWaitForASoundServerThatHangs)
{
    standIn->answers = false;
    sound->play();
    EXPECT_TRUE(becomes([&] { return standIn->contexts == 1; }));
    sound->play();
    const auto start = std::chrono::steady_clock::now();
    sound = nullptr;
    EXPECT_GE(std::chrono::steady_clock::now() - start, 90ms) << "it had a chance to answer";
    EXPECT_EQ(standIn->contexts, 1) << "one thread waits, not one for each sound";
    answerAgain();
    EXPECT_TRUE(isOver(1));
}

TEST_F(AlertSoundTest, endsASoundWhenItIsDropped)
{
    standIn->isSoundShort = false;
    sound->play();
    EXPECT_TRUE(becomes([&] { return !standIn->played.empty(); }));
    const auto start = std::chrono::steady_clock::now();
    sound = nullptr;
    EXPECT_TRUE(isOver(1));
    EXPECT_LT(std::chrono::steady_clock::now() - start, 4s) << "it would have ended after 5 s";
}

TEST_F(AlertSoundTest, isSilentWithoutASoundServer)
{
    standIn->hasServer = false;
    sound->play();
    EXPECT_TRUE(isOver(1));
    EXPECT_THAT(standIn->played, IsEmpty());
    standIn->hasServer = true;
    playUntilContext(2);
    EXPECT_TRUE(isOver(2));
    sound = nullptr; // ends one that may still be played
    EXPECT_THAT(standIn->played, AllOf(Contains("bell"), Each("bell"))) << "there is one now";
}

TEST_F(AlertSoundTest, isSilentWithoutTheLibrary)
{
    AlertSound silent("libcanberra-is-not-here.so");
    silent.play();
    // Destroying it waits for its thread, which would crash if it called one of the functions.
}

} // namespace

} // namespace quillbox
