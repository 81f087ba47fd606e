#include "owned_handles.h"

#include <gtest/gtest.h>

#include <type_traits>
#include <vector>

namespace zo {
namespace {

// A resource whose closings can be watched, and which spoils the last error as a real one may. 0 is a handle like any
// other here.
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

TEST(OwnedHandle, ClosesWhatItHoldsOnceAndOnlyThen) {
    using Closed = std::vector<int>;
    SetLastError(ERROR_ACCESS_DENIED);
    {
        Watched first(0);
        Watched second(2);
        Watched third(3);
        Watched& same = third;
        third = std::move(same);
        EXPECT_EQ(third.Get(), 3);
        EXPECT_EQ(WatchedKind::closed, Closed());
        third = std::move(second);
        EXPECT_EQ(WatchedKind::closed, Closed({3})) << "a move into a live owner";
        EXPECT_EQ(third.Get(), 2);
        EXPECT_FALSE(second);  // NOLINT(bugprone-use-after-move): an emptied owner is defined
        *third.Out() = 4;
        EXPECT_EQ(WatchedKind::closed, Closed({3, 2})) << "filling anew";
        Watched released(5);
        EXPECT_EQ(released.Release(), 5);
        EXPECT_FALSE(released);
    }
    EXPECT_EQ(WatchedKind::closed, Closed({3, 2, 4, 0}));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED)) << "closing keeps the error of the call before";
}

TEST(OwnedHandle, FilesAndKernelObjectsHaveDifferentNones) {
    EXPECT_EQ(OwnedFile().Get(), INVALID_HANDLE_VALUE);
    EXPECT_EQ(OwnedFind().Get(), INVALID_HANDLE_VALUE);
    EXPECT_EQ(OwnedKernelObject().Get(), nullptr);
    static_assert(!std::is_same_v<OwnedFile, OwnedKernelObject>);
    static_assert(!std::is_copy_constructible_v<OwnedFile>);
}

}  // namespace
}  // namespace zo
