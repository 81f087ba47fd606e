#include "owned_handles.h"

#include <gtest/gtest.h>

#include <type_traits>
#include <vector>

namespace zo {
namespace {

// A resource whose closings can be watched, and which spoils the last error as a real one may.
struct WatchedKind {
    using Handle = int;
    static Handle None() noexcept { return -1; }
    static void Close(Handle handle) noexcept {
        closed.push_back(handle);
        SetLastError(ERROR_INVALID_HANDLE);
    }
    static inline std::vector<int> closed;
};

using Watched = Owned<WatchedKind>;

class OwnedHandle : public testing::Test {
  protected:
    void SetUp() override { WatchedKind::closed.clear(); }
    static std::vector<int>& Closed() { return WatchedKind::closed; }
};

TEST_F(OwnedHandle, ClosesOnceAtTheEndOfItsScope) {
    { const Watched watched(7); }
    { const Watched nothing; }
    EXPECT_EQ(Closed(), (std::vector<int>{7}));
}

TEST_F(OwnedHandle, ZeroIsAHandleLikeAnyOtherWhereNoneIsAnotherValue) {
    { const Watched watched(0); }
    EXPECT_EQ(Closed(), (std::vector<int>{0}));
}

TEST_F(OwnedHandle, MovingIntoALiveOwnerClosesWhatItHeld) {
    Watched first(1);
    Watched second(2);
    first = std::move(second);
    EXPECT_EQ(Closed(), (std::vector<int>{1}));
    EXPECT_EQ(first.Get(), 2);
    EXPECT_FALSE(second);  // NOLINT(bugprone-use-after-move): an emptied owner is defined
}

TEST_F(OwnedHandle, SelfMoveKeepsTheHandle) {
    Watched watched(3);
    Watched& same = watched;
    watched = std::move(same);
    EXPECT_EQ(watched.Get(), 3);
    EXPECT_TRUE(Closed().empty());
}

TEST_F(OwnedHandle, ReleaseGivesTheHandleAwayUnclosed) {
    Watched watched(4);
    EXPECT_EQ(watched.Release(), 4);
    EXPECT_FALSE(watched);
    EXPECT_TRUE(Closed().empty());
}

TEST_F(OwnedHandle, OutClosesWhatWasHeldBeforeItIsFilledAnew) {
    Watched watched(5);
    *watched.Out() = 6;
    EXPECT_EQ(Closed(), (std::vector<int>{5}));
    EXPECT_EQ(watched.Get(), 6);
}

TEST_F(OwnedHandle, ClosingKeepsTheLastErrorOfTheCallBeforeIt) {
    SetLastError(ERROR_ACCESS_DENIED);
    { const Watched watched(8); }
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
}

TEST_F(OwnedHandle, FilesAndKernelObjectsHaveDifferentNones) {
    EXPECT_EQ(OwnedFile().Get(), INVALID_HANDLE_VALUE);
    EXPECT_EQ(OwnedFind().Get(), INVALID_HANDLE_VALUE);
    EXPECT_EQ(OwnedKernelObject().Get(), nullptr);
    static_assert(!std::is_same_v<OwnedFile, OwnedKernelObject>);
    static_assert(!std::is_copy_constructible_v<OwnedFile>);
}

}  // namespace
}  // namespace zo
