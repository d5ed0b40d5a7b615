// Settings of tool recognition kept by the engine.
#include "engine/VyxPosFunc.h"

namespace {
// Accepted range of the inter-marker distance tolerance, mm.
constexpr float kMinToolFindOffset = 0.3f;
constexpr float kMaxToolFindOffset = 3.0f;
}  // namespace

// Called without the API lock (the wrapper calls straight through), so the
// offset is an atomic.
int VyxPosFunc::Zelmor_SetToolFindOffset(float offset) {
    if (!(offset >= kMinToolFindOffset && offset <= kMaxToolFindOffset)) return RV_FAILED;
    toolFindOffset_.store(offset, std::memory_order_relaxed);
    return RV_SUCCESS;
}

int VyxPosFunc::Zelmor_GetToolFindOffset(float& offset) {
    offset = toolFindOffset_.load(std::memory_order_relaxed);
    return RV_SUCCESS;
}

int VyxPosFunc::Zelmor_SetToolFindPointMatchOptimizeEnable(bool enable) {
    pointMatchOptimize_ = enable;
    return RV_SUCCESS;
}

int VyxPosFunc::Zelmor_GetToolFindPointMatchOptimizeEnable(bool& enable) {
    enable = pointMatchOptimize_;
    return RV_SUCCESS;
}

// Stored without validation: any non-zero value means the inverse mapping.
int VyxPosFunc::Zelmor_SetToolFindRTDirection(E_RTDirection direction) {
    rtDirection_ = direction;
    return RV_SUCCESS;
}

int VyxPosFunc::Zelmor_GetToolFindRTDirection(E_RTDirection& direction) {
    direction = rtDirection_;
    return RV_SUCCESS;
}
