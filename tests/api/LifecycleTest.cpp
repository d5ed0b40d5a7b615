// Handle lifecycle through the exported interface: creation, double
// initialisation, close, stale handles, and the engine's receiver threads.
#include "VyxPositionAPI.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace {

// Number of threads of this process, from the kernel's view.
int processThreadCount() {
    std::ifstream status("/proc/self/status");
    for (std::string key; status >> key;)
        if (key == "Threads:" && status >> key) return std::stoi(key);
    return -1;
}

}  // namespace

TEST(Lifecycle, InitialAndCloseAcceptOnlyLiveHandles) {
    EXPECT_EQ(Vyx_API_Initial(nullptr), RV_FAILED);
    VyxHandle handle = nullptr;
    EXPECT_EQ(Vyx_API_Close(&handle), RV_NULL_HANDLE);
    EXPECT_EQ(Vyx_API_Close(nullptr), RV_NULL_HANDLE);
    ASSERT_EQ(Vyx_API_Initial(&handle), RV_SUCCESS);
    ASSERT_NE(handle, nullptr);
    // A second initial keeps the first engine, which still answers.
    const VyxHandle first = handle;
    EXPECT_EQ(Vyx_API_Initial(&handle), RV_ALREADY_INITIALISED);
    EXPECT_EQ(handle, first);
    float offset = 0.0f;
    EXPECT_EQ(Vyx_GetToolFindOffset(handle, &offset), RV_SUCCESS);
    EXPECT_EQ(Vyx_API_Close(&handle), RV_SUCCESS);
    EXPECT_EQ(handle, nullptr);

    // A copy of a closed handle and a foreign pointer are recognised, not
    // dereferenced.
    int notAnEngine = 0;
    for (const VyxHandle bad : {first, static_cast<VyxHandle>(&notAnEngine)}) {
        VyxHandle copy = bad;
        EXPECT_EQ(Vyx_API_Close(&copy), RV_NULL_HANDLE);
        EXPECT_EQ(copy, bad);
        EXPECT_EQ(Vyx_GetToolFindOffset(bad, &offset), RV_NULL_HANDLE);
        EXPECT_EQ(Vyx_SetToolFindOffset(bad, 1.0f), RV_NULL_HANDLE);
        EXPECT_EQ(Vyx_GetToolInfoFilePath(bad), nullptr);
    }
}

TEST(Lifecycle, EachEngineRunsThreeReceiverThreadsUntilClosed) {
    // A first engine lets runtime helper threads (a sanitizer's, say) start
    // before the count is taken.
    VyxHandle warmUp = nullptr;
    ASSERT_EQ(Vyx_API_Initial(&warmUp), RV_SUCCESS);
    ASSERT_EQ(Vyx_API_Close(&warmUp), RV_SUCCESS);
    const int before = processThreadCount();
    ASSERT_GT(before, 0);
    std::vector<VyxHandle> handles(16, nullptr);
    for (auto& h : handles) ASSERT_EQ(Vyx_API_Initial(&h), RV_SUCCESS);
    EXPECT_EQ(processThreadCount(), before + 3 * 16);
    for (auto& h : handles) ASSERT_EQ(Vyx_API_Close(&h), RV_SUCCESS);
    // Close joins the threads, so they are gone when it returns.
    EXPECT_EQ(processThreadCount(), before);
}

// Handles created and closed on several threads at once, while the same
// threads also call one shared handle: the unlocked offset setter and the
// locked getters must only ever show a value that was written.
TEST(Lifecycle, HandlesAndCallsOnSeveralThreadsAtOnce) {
    VyxHandle shared = nullptr;
    ASSERT_EQ(Vyx_API_Initial(&shared), RV_SUCCESS);
    std::atomic<int> failures{0};
    std::vector<std::thread> workers;
    for (int w = 0; w < 4; ++w) {
        workers.emplace_back([&failures, shared, w] {
            for (int i = 0; i < 25; ++i) {
                VyxHandle h = nullptr;
                failures += Vyx_API_Initial(&h) != RV_SUCCESS;
                failures += Vyx_SetToolFindOffset(h, 2.0f) != RV_SUCCESS;
                failures += Vyx_API_Close(&h) != RV_SUCCESS || h != nullptr;
                for (int k = 0; k < 20; ++k) {
                    float offset = 0.0f;
                    unsigned char a, b, c, d;
                    Vyx_SetToolFindOffset(shared, (w + k) % 2 ? 0.5f : 2.5f);
                    Vyx_GetEthernetConnectIP(shared, &a, &b, &c, &d);
                    Vyx_GetToolFindOffset(shared, &offset);
                    failures += offset != 0.5f && offset != 2.5f;
                }
            }
        });
    }
    for (auto& t : workers) t.join();
    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(Vyx_API_Close(&shared), RV_SUCCESS);
}
