// Tool library, recognition settings, recognition and the reference tool.
#include "api/ApiGuard.h"

#include <algorithm>
#include <cstring>

using namespace vyx::api;

namespace {

// "Nothing found": the state of a result record before a search fills it.
void resetResult(T_VyxToolDataResult& result) {
    result.ValidFlag = 0;
    result.MeanError = 0.0f;
    result.MatchedMarkerCount = 0;
    result.next = nullptr;
}

// Copies a search result into the flat single-tool record: the plain fields,
// then the matched marker indices with their count clamped to 200.
void copyToFlat(const T_VyxToolDataResult& from, T_VyxSingleToolDataResult& to) {
    to.ToolType = from.ToolType;
    to.ValidFlag = from.ValidFlag;
    std::memcpy(to.ToolName, from.ToolName, sizeof to.ToolName);
    to.MeanError = from.MeanError;
    to.ErrorSpread = from.ErrorSpread;
    std::memcpy(to.RotationVector, from.RotationVector, sizeof to.RotationVector);
    std::memcpy(to.Quaternion, from.Quaternion, sizeof to.Quaternion);
    std::memcpy(to.RotationMatrix, from.RotationMatrix, sizeof to.RotationMatrix);
    std::memcpy(to.Translation, from.Translation, sizeof to.Translation);
    std::memcpy(to.OriginCoordinate, from.OriginCoordinate, sizeof to.OriginCoordinate);
    std::memcpy(to.TipCoordinate, from.TipCoordinate, sizeof to.TipCoordinate);
    std::memcpy(to.TipAxisCoordinate, from.TipAxisCoordinate, sizeof to.TipAxisCoordinate);
    std::memcpy(to.ToolTipsLocal, from.ToolTipsLocal, sizeof to.ToolTipsLocal);
    const int count = std::clamp(from.MatchedMarkerCount, 0, VYX_MAX_MARKERS);
    to.MatchedMarkerCount = count;
    std::copy_n(from.MatchedMarkerIndex, count, to.MatchedMarkerIndex);
}

}  // namespace

extern "C" {

VYX_API const char* Vyx_GetToolInfoFilePath(VyxHandle handle) {
    VyxPosFunc* engine = engineFrom(handle);
    if (engine == nullptr) return nullptr;
    std::lock_guard<std::mutex> lock(engine->apiMutex);
    return engine->Zelmor_GetToolInfoFilePath();
}

VYX_API int Vyx_SetToolInfoFilePath(VyxHandle handle, const char* path, bool clearFirst) {
    return lockedCall(handle, path != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_SetToolInfoFilePath(path, clearFirst);
    });
}

VYX_API int Vyx_AddToolInfoFile(VyxHandle handle, const char* path) {
    if (path == nullptr) return RV_FAILED;
    return lockedCall(handle, [&](VyxPosFunc& e) { return e.Zelmor_AddToolInfoFilePath(path); });
}

VYX_API int Vyx_CheckToolFile(VyxHandle handle, const char* path, T_ToolFileData* data) {
    return lockedCall(handle, path != nullptr && data != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_CheckToolFile(path, *data);
    });
}

VYX_API int Vyx_GetCountOfToolInfo(VyxHandle handle, int* count) {
    return connectedCall(handle, count != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_GetCountOfToolDefine(*count);
    });
}

VYX_API int Vyx_GetAllToolFilesBaseInfo(VyxHandle handle, t_ToolBaseInfo* info) {
    return connectedCall(handle, info != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_GetAllToolFilesBaseInfo(info);
    });
}

VYX_API int Vyx_GetSpecificToolFileInfoArray(VyxHandle handle, const char* name, int* count,
                                             float* positions) {
    return connectedCall(handle, count != nullptr, [&](VyxPosFunc& e) {
        int markerCount = 0;
        const int result = e.Zelmor_GetSpecificToolFileInfoArray(name, markerCount, positions);
        *count = markerCount;
        return result;
    });
}

VYX_API int Vyx_GetSpecificToolFileInfoList(VyxHandle handle, const char* name, int* count,
                                            std::list<float>* values) {
    return connectedCall(handle, count != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_GetSpecificToolFileInfoList(name, *count, values);
    });
}

VYX_API int Vyx_ConvertNDIrom2Vyxtool(VyxHandle handle, const char* romPath) {
    return connectedCall(handle, romPath != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_ConvertNDIrom2VYXtool(romPath);
    });
}

// Deliberately lock-free and connection-free: the offset is an atomic.
VYX_API int Vyx_SetToolFindOffset(VyxHandle handle, float offset) {
    VyxPosFunc* engine = engineFrom(handle);
    if (engine == nullptr) return RV_NULL_HANDLE;
    return engine->Zelmor_SetToolFindOffset(offset);
}

VYX_API int Vyx_GetToolFindOffset(VyxHandle handle, float* offset) {
    return lockedCall(handle, offset != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_GetToolFindOffset(*offset);
    });
}

VYX_API int Vyx_SetToolFindPointMatchOptimizeEnable(VyxHandle handle, bool enable) {
    return lockedCall(handle, [&](VyxPosFunc& e) {
        return e.Zelmor_SetToolFindPointMatchOptimizeEnable(enable);
    });
}

VYX_API int Vyx_GetToolFindPointMatchOptimizeEnable(VyxHandle handle, bool* enable) {
    return lockedCall(handle, enable != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_GetToolFindPointMatchOptimizeEnable(*enable);
    });
}

VYX_API int Vyx_SetToolFindRTDirection(VyxHandle handle, E_RTDirection direction) {
    return connectedCall(handle, [&](VyxPosFunc& e) { return e.Zelmor_SetToolFindRTDirection(direction); });
}

VYX_API int Vyx_GetToolFindRTDirection(VyxHandle handle, E_RTDirection* direction) {
    return connectedCall(handle, direction != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_GetToolFindRTDirection(*direction);
    });
}

VYX_API int Vyx_FindToolInfo(VyxHandle handle, T_MarkerInfo* markers, T_VyxToolDataResult* results,
                             int minMatch) {
    const bool valid = markers != nullptr && results != nullptr && isAcceptedMinMatch(minMatch);
    VyxPosFunc* engine = engineFrom(handle);
    if (engine == nullptr) return RV_NULL_HANDLE;
    if (!isConnected(*engine)) return RV_NOT_CONNECTED;
    if (!valid) return RV_FAILED;
    resetResult(*results);
    return callLocked(*engine, [&](VyxPosFunc& e) {
        return e.Zelmor_FindAllToolsInfo(*markers, results, minMatch);
    });
}

VYX_API int Vyx_FindSpecificToolInfo(VyxHandle handle, T_MarkerInfo* markers,
                                     const std::vector<std::string>& names,
                                     T_VyxToolDataResult* results, int minMatch) {
    const bool valid = markers != nullptr && !names.empty() && results != nullptr &&
                       isAcceptedMinMatch(minMatch);
    VyxPosFunc* engine = engineFrom(handle);
    if (engine == nullptr) return RV_NULL_HANDLE;
    if (!isConnected(*engine)) return RV_NOT_CONNECTED;
    if (!valid) return RV_FAILED;
    resetResult(*results);
    return callLocked(*engine, [&](VyxPosFunc& e) {
        return e.Zelmor_FindSpecificToolInfo(*markers, names, results, minMatch);
    });
}

VYX_API int Vyx_FindSingleToolInfo(VyxHandle handle, T_MarkerInfo* markers, const char* name,
                                   T_VyxSingleToolDataResult* result, int minMatch) {
    const bool valid = markers != nullptr && name != nullptr && result != nullptr &&
                       isAcceptedMinMatch(minMatch);
    return connectedCall(handle, valid, [&](VyxPosFunc& e) {
        const std::vector<std::string> names{std::string(name)};
        T_VyxToolDataResult found{};
        resetResult(found);
        const int rc = e.Zelmor_FindSpecificToolInfo(*markers, names, &found, minMatch);
        copyToFlat(found, *result);
        return rc;
    });
}

VYX_API int Vyx_FindToolInfo_Map(VyxHandle handle, T_MarkerInfo* markers,
                                 std::vector<std::string>& names,
                                 std::map<std::string, T_VyxToolDataResult*>& results,
                                 int minMatch) {
    return connectedCall(handle, markers != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_FindToolInfo_Map(*markers, names, results, minMatch);
    });
}

VYX_API int Vyx_SetReferenceTool(VyxHandle handle, const char* name) {
    return connectedCall(handle, name != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_SetReferenceTool(name);
    });
}

VYX_API int Vyx_GetToolInfoInRef(VyxHandle handle, T_MarkerInfo* markers,
                                 std::vector<std::string>& names,
                                 std::map<std::string, T_VyxToolDataResult*>& results,
                                 int minMatch) {
    return connectedCall(handle, markers != nullptr, [&](VyxPosFunc& e) {
        // This call checks its arguments under the lock.
        if (names.empty() || !isAcceptedMinMatch(minMatch)) return static_cast<int>(RV_FAILED);
        return e.Zelmor_GetToolInfoInRef(*markers, names, results, minMatch);
    });
}

VYX_API int Vyx_CancelRef(VyxHandle handle) {
    return connectedCall(handle, [&](VyxPosFunc& e) { return e.Zelmor_CancelRef(); });
}

}  // extern "C"
