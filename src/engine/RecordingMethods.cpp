// Recording of the link that connected last: its configuration replies as
// the connect received them, then the frames its receiver thread offers to
// the recorder (device/FrameRecorder.h).
#include "engine/VyxPosFunc.h"

using namespace vyx::device;

void VyxPosFunc::endRecordingForNewConnect(E_Interface iface) {
    if (connectReplies_ && connectReplies_->link == static_cast<int>(iface)) connectReplies_.reset();
    if (recorder_.link() == static_cast<int>(iface)) recorder_.finish();
}

int VyxPosFunc::Zelmor_StartRecording(const char* path) {
    if (path == nullptr || *path == '\0' || !connectReplies_) return RV_FAILED;
    const LinkState* link = linkFor(static_cast<E_Interface>(connectReplies_->link));
    if (link == nullptr || !link->open.load(std::memory_order_acquire) ||
        !link->configValid.load(std::memory_order_relaxed))
        return RV_FAILED;
    return recorder_.start(path, *connectReplies_) ? RV_SUCCESS : RV_FAILED;
}

int VyxPosFunc::Zelmor_StopRecording() { return recorder_.finish() ? RV_SUCCESS : RV_FAILED; }

int VyxPosFunc::Zelmor_GetRecordingInfo(T_RecordingInfo& info) {
    const RecordingStats stats = recorder_.stats();
    info.Active = stats.active ? 1u : 0u;
    info.LastError = stats.lastError;
    info.FramesRecorded = stats.framesRecorded;
    info.FramesDropped = stats.framesDropped;
    info.BytesWritten = stats.bytesWritten;
    return RV_SUCCESS;
}
