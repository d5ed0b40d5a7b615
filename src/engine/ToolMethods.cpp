// Tool-library, recognition and reference-tool operations of the engine that
// are not built yet. Each answers RV_FAILED (a null path for the directory
// query) until the tool subsystem lands.
#include "engine/VyxPosFunc.h"

const char* VyxPosFunc::Zelmor_GetToolInfoFilePath() { return nullptr; }
int VyxPosFunc::Zelmor_SetToolInfoFilePath(const char*, bool) { return RV_FAILED; }
int VyxPosFunc::Zelmor_AddToolInfoFilePath(const char*) { return RV_FAILED; }
int VyxPosFunc::Zelmor_CheckToolFile(const char*, T_ToolFileData&) { return RV_FAILED; }
int VyxPosFunc::Zelmor_GetCountOfToolDefine(int&) { return RV_FAILED; }
int VyxPosFunc::Zelmor_GetAllToolFilesBaseInfo(t_ToolBaseInfo*) { return RV_FAILED; }
int VyxPosFunc::Zelmor_GetSpecificToolFileInfoList(const char*, int&, std::list<float>*) {
    return RV_FAILED;
}
int VyxPosFunc::Zelmor_GetSpecificToolFileInfoArray(const char*, int&, float*) {
    return RV_FAILED;
}
int VyxPosFunc::Zelmor_ConvertNDIrom2VYXtool(const char*) { return RV_FAILED; }
int VyxPosFunc::Zelmor_FindAllToolsInfo(T_MarkerInfo&, T_VyxToolDataResult*, int) {
    return RV_FAILED;
}
int VyxPosFunc::Zelmor_FindSpecificToolInfo(T_MarkerInfo&, const std::vector<std::string>&,
                                            T_VyxToolDataResult*, int) {
    return RV_FAILED;
}
int VyxPosFunc::Zelmor_FindToolInfo_Map(T_MarkerInfo&, std::vector<std::string>&,
                                        std::map<std::string, T_VyxToolDataResult*>&, int) {
    return RV_FAILED;
}
int VyxPosFunc::Zelmor_SetReferenceTool(const char*) { return RV_FAILED; }
int VyxPosFunc::Zelmor_GetToolInfoInRef(T_MarkerInfo&, std::vector<std::string>&,
                                        std::map<std::string, T_VyxToolDataResult*>&, int) {
    return RV_FAILED;
}
int VyxPosFunc::Zelmor_CancelRef() { return RV_FAILED; }
