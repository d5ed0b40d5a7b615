// The one shape of every exported wrapper: resolve the handle, check the
// connection and the arguments, take the engine lock, call, return the
// engine's result unchanged.
//
// Only two kinds of exception leave a wrapper: std::system_error when the
// engine lock cannot be taken, and cv::Exception raised by a rotation utility
// on a matrix of the wrong shape or type. Anything else thrown below the
// boundary (allocation failure, a standard-library error) becomes RV_FAILED.
#pragma once

#include "VyxPositionAPI.h"
#include "engine/VyxPosFunc.h"

#include <opencv2/core.hpp>

#include <mutex>
#include <system_error>
#include <utility>

namespace vyx::api {

// Returns the engine behind a handle, or nullptr when the handle is null or
// not a live engine of this library (never created, or already closed).
VyxPosFunc* engineFrom(VyxHandle handle);

// Live-engine registry, maintained by Vyx_API_Initial and Vyx_API_Close.
void registerEngine(VyxPosFunc* engine);
void unregisterEngine(VyxPosFunc* engine);

inline bool isConnected(const VyxPosFunc& engine) {
    return engine.connected.load(std::memory_order_relaxed);
}

// Runs body(engine) under the engine lock.
template <class Body>
int callLocked(VyxPosFunc& engine, Body&& body) {
    std::lock_guard<std::mutex> lock(engine.apiMutex);
    try {
        return static_cast<int>(std::forward<Body>(body)(engine));
    } catch (const cv::Exception&) {
        throw;
    } catch (const std::system_error&) {
        throw;
    } catch (...) {
        return RV_FAILED;
    }
}

// Handle check, then the locked call.
template <class Body>
int lockedCall(VyxHandle handle, Body&& body) {
    VyxPosFunc* engine = engineFrom(handle);
    if (engine == nullptr) return RV_NULL_HANDLE;
    return callLocked(*engine, std::forward<Body>(body));
}

// Handle check, argument check, then the locked call.
template <class Body>
int lockedCall(VyxHandle handle, bool argumentsValid, Body&& body) {
    VyxPosFunc* engine = engineFrom(handle);
    if (engine == nullptr) return RV_NULL_HANDLE;
    if (!argumentsValid) return RV_FAILED;
    return callLocked(*engine, std::forward<Body>(body));
}

// Handle check, connected check, then the locked call.
template <class Body>
int connectedCall(VyxHandle handle, Body&& body) {
    VyxPosFunc* engine = engineFrom(handle);
    if (engine == nullptr) return RV_NULL_HANDLE;
    if (!isConnected(*engine)) return RV_NOT_CONNECTED;
    return callLocked(*engine, std::forward<Body>(body));
}

// Handle check, connected check, argument check, then the locked call.
template <class Body>
int connectedCall(VyxHandle handle, bool argumentsValid, Body&& body) {
    VyxPosFunc* engine = engineFrom(handle);
    if (engine == nullptr) return RV_NULL_HANDLE;
    if (!isConnected(*engine)) return RV_NOT_CONNECTED;
    if (!argumentsValid) return RV_FAILED;
    return callLocked(*engine, std::forward<Body>(body));
}

// minMatch values refused at the boundary: negative, 1 and 2 (a rigid fit
// needs three points, and 0 leaves the choice to the matching rule).
inline bool isAcceptedMinMatch(int minMatch) {
    return minMatch >= 0 && minMatch != 1 && minMatch != 2;
}

}  // namespace vyx::api
