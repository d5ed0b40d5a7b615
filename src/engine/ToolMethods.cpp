// The tool library, tool recognition and the reference tool as the engine
// offers them.
#include "engine/VyxPosFunc.h"

#include "tools/RomConversion.h"
#include "tools/ToolFile.h"

RecognitionSettings VyxPosFunc::recognitionSettings() const {
    RecognitionSettings settings;
    settings.toolFindOffset = toolFindOffset_.load(std::memory_order_relaxed);
    settings.pointMatchOptimize = pointMatchOptimize_;
    settings.direction = rtDirection_;
    return settings;
}

const char* VyxPosFunc::Zelmor_GetToolInfoFilePath() {
    return toolLibrary_.toolInfoFilePath().c_str();
}

int VyxPosFunc::Zelmor_SetToolInfoFilePath(const char* path, bool clearFirst) {
    // A library tool under self-calibration goes away with the library; a
    // tool still being made does not belong to it.
    if (clearFirst && selfCalibration_.tool() != toolMaking_.tool()) selfCalibration_.forget();
    return toolLibrary_.setToolInfoFilePath(path, clearFirst);
}

int VyxPosFunc::Zelmor_AddToolInfoFilePath(const char* path) {
    toolLibrary_.AddToolInfoResult(path);
    return RV_SUCCESS;
}

int VyxPosFunc::Zelmor_CheckToolFile(const char* path, T_ToolFileData& data) {
    return checkToolFile(path, data);
}

int VyxPosFunc::Zelmor_GetCountOfToolDefine(int& count) {
    count = static_cast<int>(toolLibrary_.count());
    return RV_SUCCESS;
}

int VyxPosFunc::Zelmor_GetAllToolFilesBaseInfo(t_ToolBaseInfo* info) {
    return toolLibrary_.getAllToolFilesBaseInfo(info);
}

int VyxPosFunc::Zelmor_GetSpecificToolFileInfoList(const char* name, int& count,
                                                   std::list<float>* values) {
    return toolLibrary_.getSpecificToolFileInfoList(name, count, values);
}

int VyxPosFunc::Zelmor_GetSpecificToolFileInfoArray(const char* name, int& count, float* positions) {
    return toolLibrary_.getSpecificToolFileInfoArray(name, count, positions);
}

int VyxPosFunc::Zelmor_ConvertNDIrom2VYXtool(const char* romPath) {
    return convertRomToToolFile(romPath);
}

int VyxPosFunc::Zelmor_FindAllToolsInfo(T_MarkerInfo& markers, T_VyxToolDataResult* results,
                                        int minMatch) {
    return findAllTools(toolLibrary_.tools(), markers, results, minMatch, recognitionSettings(),
                        resultChain_);
}

int VyxPosFunc::Zelmor_FindSpecificToolInfo(T_MarkerInfo& markers,
                                            const std::vector<std::string>& names,
                                            T_VyxToolDataResult* results, int minMatch) {
    return findNamedTools(toolLibrary_.tools(), markers, names, results, minMatch,
                          recognitionSettings(), resultChain_);
}

// The results are keyed by tool name; every record is the engine's and stays
// valid until the next recognition call on this engine.
int VyxPosFunc::Zelmor_FindToolInfo_Map(T_MarkerInfo& markers, std::vector<std::string>& names,
                                        std::map<std::string, T_VyxToolDataResult*>& results,
                                        int minMatch) {
    results.clear();
    mapFirstResult_ = T_VyxToolDataResult{};
    const int rc = findNamedTools(toolLibrary_.tools(), markers, names, &mapFirstResult_, minMatch,
                                  recognitionSettings(), resultChain_);
    for (T_VyxToolDataResult* r = &mapFirstResult_; r != nullptr; r = r->next)
        if (r->ValidFlag != 0) results[r->ToolName] = r;
    return rc;
}

int VyxPosFunc::Zelmor_SetReferenceTool(const char* name) {
    return reference_.set(toolLibrary_, name);
}

int VyxPosFunc::Zelmor_GetRefToolTrans(T_MarkerInfo& markers, cv::Matx44d& transform,
                                       int minMatch) {
    return reference_.transform(markers, transform, minMatch, recognitionSettings());
}

int VyxPosFunc::Zelmor_GetToolInfoInRef(T_MarkerInfo& markers, std::vector<std::string>& names,
                                        std::map<std::string, T_VyxToolDataResult*>& results,
                                        int minMatch) {
    if (!reference_.isSet()) return RV_FAILED;
    cv::Matx44d pose;
    Zelmor_GetRefToolTrans(markers, pose, minMatch);
    Zelmor_FindToolInfo_Map(markers, names, results, minMatch);
    const cv::Matx44d inverse = pose.inv(cv::DECOMP_LU);
    for (auto& entry : results) reexpressResult(*entry.second, inverse);
    return RV_SUCCESS;
}

int VyxPosFunc::Zelmor_CancelRef() {
    reference_.cancel();
    return RV_SUCCESS;
}
