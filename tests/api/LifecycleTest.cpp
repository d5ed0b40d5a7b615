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
    constexpr int kEngines = 16;
    std::vector<VyxHandle> handles(kEngines, nullptr);
    for (auto& h : handles) ASSERT_EQ(Vyx_API_Initial(&h), RV_SUCCESS);
    EXPECT_EQ(processThreadCount(), before + 3 * kEngines);
    for (auto& h : handles) ASSERT_EQ(Vyx_API_Close(&h), RV_SUCCESS);
    // Close joins the threads, so they are gone when it returns.
    EXPECT_EQ(processThreadCount(), before);
}

TEST(Lifecycle, ManyHandlesCreatedAndClosedFromSeveralThreads) {
    constexpr int kWorkers = 4;
    constexpr int kRounds = 25;
    std::atomic<int> failures{0};
    std::vector<std::thread> workers;
    for (int w = 0; w < kWorkers; ++w) {
        workers.emplace_back([&failures] {
            for (int i = 0; i < kRounds; ++i) {
                VyxHandle h = nullptr;
                if (Vyx_API_Initial(&h) != RV_SUCCESS) ++failures;
                if (Vyx_SetToolFindOffset(h, 2.0f) != RV_SUCCESS) ++failures;
                if (Vyx_API_Close(&h) != RV_SUCCESS || h != nullptr) ++failures;
            }
        });
    }
    for (auto& t : workers) t.join();
    EXPECT_EQ(failures.load(), 0);
}

TEST(Lifecycle, CallsOnOneHandleFromSeveralThreadsAreSerialised) {
    VyxHandle handle = nullptr;
    ASSERT_EQ(Vyx_API_Initial(&handle), RV_SUCCESS);
    std::atomic<bool> stop{false};
    std::atomic<int> badReads{0};
    // The offset setter takes no lock; readers must still only ever see one
    // of the values written.
    std::thread writer([&] {
        for (int i = 0; i < 2000; ++i) Vyx_SetToolFindOffset(handle, (i % 2) ? 0.5f : 2.5f);
        stop = true;
    });
    std::vector<std::thread> readers;
    for (int r = 0; r < 2; ++r) {
        readers.emplace_back([&] {
            while (!stop) {
                float offset = 0.0f;
                unsigned char a, b, c, d;
                Vyx_GetToolFindOffset(handle, &offset);
                Vyx_GetEthernetConnectIP(handle, &a, &b, &c, &d);
                if (offset != 0.5f && offset != 2.5f && offset != 1.5f) ++badReads;
            }
        });
    }
    writer.join();
    for (auto& t : readers) t.join();
    EXPECT_EQ(badReads.load(), 0);
    EXPECT_EQ(Vyx_API_Close(&handle), RV_SUCCESS);
}
