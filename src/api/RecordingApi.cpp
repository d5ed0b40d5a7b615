// Recording of the connected link into a file (extension).
#include "api/ApiGuard.h"

using namespace vyx::api;

extern "C" {

VYX_API int Vyx_StartRecording(VyxHandle handle, const char* path) {
    return connectedCall(handle, path != nullptr && *path != '\0', [&](VyxPosFunc& e) {
        return e.Zelmor_StartRecording(path);
    });
}

VYX_API int Vyx_StopRecording(VyxHandle handle) {
    return lockedCall(handle, [&](VyxPosFunc& e) { return e.Zelmor_StopRecording(); });
}

VYX_API int Vyx_GetRecordingInfo(VyxHandle handle, T_RecordingInfo* info) {
    return lockedCall(handle, info != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_GetRecordingInfo(*info);
    });
}

}  // extern "C"
