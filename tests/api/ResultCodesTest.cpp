// The common shape of every exported wrapper: checks that stand before the
// handle, the null handle, the connected state and the argument checks after
// it, each with its own result code and in that order.
#include "VyxPositionAPI.h"

#include <gtest/gtest.h>

#include <limits>
#include <functional>
#include <string>
#include <vector>

namespace {

struct Wrapper {
    std::string name;
    bool needsConnection;
    std::function<int(VyxHandle)> call;  // called with valid arguments
};

// Shared argument storage: valid, writable and big enough for every call.
struct Args {
    T_MarkerInfo markers{};
    T_VyxPosStatusInfo status{};
    T_ManufactureInfo manufacture{};
    T_ToolFileData fileData{};
    t_ToolBaseInfo baseInfo[4]{};
    T_VyxToolDataResult result{};
    T_VyxSingleToolDataResult flat{};
    t_ToolTipCalProInfo tipInfo{};
    T_ToolTipPivotInfo pivotInfo{};
    T_ToolTipPivotQuality pivotQuality{};
    unsigned short port = 0;
    t_ToolFixProInfo fixInfo{};
    t_ToolMadeProInfo madeInfo{};
    T_AccuracyToolResult accuracy{};
    std::vector<char> image = std::vector<char>(8, 0);
    float floats[600]{};
    float offset = 0.0f;
    bool flag = false;
    int count = 0;
    unsigned char ip[4]{};
    char mac[64]{};
    E_RTDirection direction = RTDirection_ToolToTracker;
    std::vector<std::string> names{"tool"};
    std::map<std::string, T_VyxToolDataResult*> resultMap;
    std::list<float> values;
    float points[3][3]{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    double matrixA[3][4]{};
    double matrixB[3][4]{};
    double pose[3][3]{};
    T_RobotPosePair robotPairs[3]{};
    T_RobotCalibrationResult robotCalibration{};
    T_RecordingInfo recording{};
};

std::vector<Wrapper> allWrappers(Args& a) {
    const E_Interface eth = Interface_Ethernet;
    char* img = a.image.data();
    return {
        {"GetToolInfoFilePath", false, [&](VyxHandle h) { return Vyx_GetToolInfoFilePath(h) ? 0 : RV_NULL_HANDLE; }},
        {"SetToolInfoFilePath", false, [&](VyxHandle h) { return Vyx_SetToolInfoFilePath(h, "/nonexistent", false); }},
        {"AddToolInfoFile", false, [&](VyxHandle h) { return Vyx_AddToolInfoFile(h, "/nonexistent/tool"); }},
        {"SetAcquireMode", true, [&](VyxHandle h) { return Vyx_SetAcquireMode(h, eth, AcquireMode_FreeRunning); }},
        {"GetMarkerAndStatusFromHardware", true, [&](VyxHandle h) { return Vyx_GetMarkerAndStatusFromHardware(h, eth, &a.markers, &a.status); }},
        {"GetMarkerStatusAndGreyImageFromHardware", true, [&](VyxHandle h) { return Vyx_GetMarkerStatusAndGreyImageFromHardware(h, eth, &a.markers, &a.status, img, img); }},
        {"GetColorImageFromHardware", true, [&](VyxHandle h) { return Vyx_GetColorImageFromHardware(h, eth, img); }},
        {"GetGreyImageFromHardware", true, [&](VyxHandle h) { return Vyx_GetGreyImageFromHardware(h, eth, img, img); }},
        {"SetAcquireData", true, [&](VyxHandle h) { return Vyx_SetAcquireData(h, eth, DataType_None); }},
        {"GetGreyImageDual", true, [&](VyxHandle h) { return Vyx_GetGreyImageDual(h, eth, img, img); }},
        {"GetColorImageMiddle", true, [&](VyxHandle h) { return Vyx_GetColorImageMiddle(h, eth, img); }},
        {"GetMarkerInfo", true, [&](VyxHandle h) { return Vyx_GetMarkerInfo(h, eth, &a.markers); }},
        {"SetToolFindOffset", false, [&](VyxHandle h) { return Vyx_SetToolFindOffset(h, 1.5f); }},
        {"GetToolFindOffset", false, [&](VyxHandle h) { return Vyx_GetToolFindOffset(h, &a.offset); }},
        {"SetToolFindPointMatchOptimizeEnable", false, [&](VyxHandle h) { return Vyx_SetToolFindPointMatchOptimizeEnable(h, true); }},
        {"GetToolFindPointMatchOptimizeEnable", false, [&](VyxHandle h) { return Vyx_GetToolFindPointMatchOptimizeEnable(h, &a.flag); }},
        {"CheckToolFile", false, [&](VyxHandle h) { return Vyx_CheckToolFile(h, "/nonexistent.vyxtool", &a.fileData); }},
        {"FindToolInfo", true, [&](VyxHandle h) { return Vyx_FindToolInfo(h, &a.markers, &a.result, 0); }},
        {"FindSpecificToolInfo", true, [&](VyxHandle h) { return Vyx_FindSpecificToolInfo(h, &a.markers, a.names, &a.result, 0); }},
        {"SetToolFindRTDirection", true, [&](VyxHandle h) { return Vyx_SetToolFindRTDirection(h, RTDirection_ToolToTracker); }},
        {"GetToolFindRTDirection", true, [&](VyxHandle h) { return Vyx_GetToolFindRTDirection(h, &a.direction); }},
        {"InitToolTipCalibration", true, [&](VyxHandle h) { return Vyx_InitToolTipCalibration(h, 0, 1); }},
        {"InitToolTipCalibrationWithToolId", true, [&](VyxHandle h) { return Vyx_InitToolTipCalibrationWithToolId(h, "a", "b"); }},
        {"ProceedToolTipCalibration", true, [&](VyxHandle h) { return Vyx_ProceedToolTipCalibration(h, &a.markers, &a.tipInfo); }},
        {"SaveToolTipCalibration", true, [&](VyxHandle h) { return Vyx_SaveToolTipCalibration(h); }},
        {"InitToolCoordinateRenewWithToolId", true, [&](VyxHandle h) { return Vyx_InitToolCoordinateRenewWithToolId(h, "a", "b"); }},
        {"ProceedToolCoordinateRenew", true, [&](VyxHandle h) { return Vyx_ProceedToolCoordinateRenew(h, &a.markers, &a.tipInfo); }},
        {"SaveToolCoordinateRenew", true, [&](VyxHandle h) { return Vyx_SaveToolCoordinateRenew(h); }},
        {"InitToolTipPivotWithToolId", true, [&](VyxHandle h) { return Vyx_InitToolTipPivotWithToolId(h, "a", 0); }},
        {"ProceedToolTipPivot", true, [&](VyxHandle h) { return Vyx_ProceedToolTipPivot(h, &a.markers, &a.pivotInfo); }},
        {"SaveToolTipPivot", true, [&](VyxHandle h) { return Vyx_SaveToolTipPivot(h, 0); }},
        {"InitToolSelfCalibration", true, [&](VyxHandle h) { return Vyx_InitToolSelfCalibration(h, 0, &a.count); }},
        {"InitToolSelfCalibrationWithToolId", true, [&](VyxHandle h) { return Vyx_InitToolSelfCalibrationWithToolId(h, "a", &a.count); }},
        {"ProceedToolSelfCalibration", true, [&](VyxHandle h) { return Vyx_ProceedToolSelfCalibration(h, &a.markers, &a.fixInfo); }},
        {"SaveToolSelfCalibration", true, [&](VyxHandle h) { return Vyx_SaveToolSelfCalibration(h, ToolFix_Discard); }},
        {"GetSpecificToolFileInfoList", true, [&](VyxHandle h) { return Vyx_GetSpecificToolFileInfoList(h, "a", &a.count, &a.values); }},
        {"GetSpecificToolFileInfoArray", true, [&](VyxHandle h) { return Vyx_GetSpecificToolFileInfoArray(h, "a", &a.count, a.floats); }},
        {"GetCountOfToolInfo", true, [&](VyxHandle h) { return Vyx_GetCountOfToolInfo(h, &a.count); }},
        {"GetAllToolFilesBaseInfo", true, [&](VyxHandle h) { return Vyx_GetAllToolFilesBaseInfo(h, a.baseInfo); }},
        {"GetStatusInfo", true, [&](VyxHandle h) { return Vyx_GetStatusInfo(h, eth, &a.status); }},
        {"GetManufactureInfo", true, [&](VyxHandle h) { return Vyx_GetManufactureInfo(h, eth, &a.manufacture); }},
        {"SetSystemCommand", true, [&](VyxHandle h) { return Vyx_SetSystemCommand(h, eth, SystemCommand_0); }},
        {"SetDualExpTime", true, [&](VyxHandle h) { return Vyx_SetDualExpTime(h, eth, 100); }},
        {"SetDualExpTimeByDistance", true, [&](VyxHandle h) { return Vyx_SetDualExpTimeByDistance(h, eth, 1000); }},
        {"SetFlashDelay", true, [&](VyxHandle h) { return Vyx_SetFlashDelay(h, eth, 1, 2); }},
        {"SetColorExpTime", true, [&](VyxHandle h) { return Vyx_SetColorExpTime(h, eth, 100); }},
        {"SetCollisinoDetectLevel", true, [&](VyxHandle h) { return Vyx_SetCollisinoDetectLevel(h, eth, 3); }},
        {"SetVyxPositionIP", true, [&](VyxHandle h) { return Vyx_SetVyxPositionIP(h, eth, 127, 0, 0, 1); }},
        {"GetVyxPositionIP", true, [&](VyxHandle h) { return Vyx_GetVyxPositionIP(h, eth, &a.ip[0], &a.ip[1], &a.ip[2], &a.ip[3]); }},
        {"SetEthernetConnectIP", false, [&](VyxHandle h) { return Vyx_SetEthernetConnectIP(h, 127, 0, 0, 1); }},
        {"GetEthernetConnectIP", false, [&](VyxHandle h) { return Vyx_GetEthernetConnectIP(h, &a.ip[0], &a.ip[1], &a.ip[2], &a.ip[3]); }},
        {"SetLCDShowRawPoint", true, [&](VyxHandle h) { return Vyx_SetLCDShowRawPoint(h, eth, true); }},
        {"SetMarkerParameters", true, [&](VyxHandle h) { return Vyx_SetMarkerParameters(h, eth, 1, 2, 3, 4, 5); }},
        {"InitAccuracyCheckTool", true, [&](VyxHandle h) { return Vyx_InitAccuracyCheckTool(h, "a", "b", "c"); }},
        {"AccuracyCheckTool", true, [&](VyxHandle h) { return Vyx_AccuracyCheckTool(h, nullptr, 0, &a.accuracy); }},
        {"CalculateTool", true, [&](VyxHandle h) { return Vyx_CalculateTool(h, &a.markers, &a.accuracy, false); }},
        {"AccuracyCheckToolCalculateError", true, [&](VyxHandle h) { return Vyx_AccuracyCheckToolCalculateError(h, &a.offset, &a.offset, a.floats); }},
        {"AccuracyToolMade", true, [&](VyxHandle h) { return Vyx_AccuracyToolMade(h, nullptr, 0); }},
        {"InitToolMadeInfo", true, [&](VyxHandle h) { return Vyx_InitToolMadeInfo(h, 4, "made"); }},
        {"ProceedToolMade", true, [&](VyxHandle h) { return Vyx_ProceedToolMade(h, &a.markers, &a.madeInfo); }},
        {"SaveToolMadeRlt", true, [&](VyxHandle h) { return Vyx_SaveToolMadeRlt(h, 0); }},
        {"InitMappingPointSetsForMarkerSpaceReg", true, [&](VyxHandle h) { return Vyx_InitMappingPointSetsForMarkerSpaceReg(h, a.points, 3); }},
        {"MappingPointSetsForMarkerSpaceReg", true, [&](VyxHandle h) { a.markers.MarkerNumber = 3; return Vyx_MappingPointSetsForMarkerSpaceReg(h, &a.markers, &a.result, 0); }},
        {"SetRobotCalculateRlt", true, [&](VyxHandle h) { return Vyx_SetRobotCalculateRlt(h, a.matrixA, a.matrixB, "tool"); }},
        {"CalculateRobotTargetPose", true, [&](VyxHandle h) { return Vyx_CalculateRobotTargetPose(h, a.pose, a.floats); }},
        {"GetVyxPositonMacAddress", true, [&](VyxHandle h) { return Vyx_GetVyxPositonMacAddress(h, a.mac); }},
        {"Calculate3DPoints", true, [&](VyxHandle h) { return Vyx_Calculate3DPoints(h, a.floats, 0, a.floats, 0, &a.markers); }},
        {"FindToolInfo_Map", true, [&](VyxHandle h) { return Vyx_FindToolInfo_Map(h, &a.markers, a.names, a.resultMap, 0); }},
        {"SetReferenceTool", true, [&](VyxHandle h) { return Vyx_SetReferenceTool(h, "ref"); }},
        {"GetToolInfoInRef", true, [&](VyxHandle h) { return Vyx_GetToolInfoInRef(h, &a.markers, a.names, a.resultMap, 0); }},
        {"CancelRef", true, [&](VyxHandle h) { return Vyx_CancelRef(h); }},
        {"ConvertNDIrom2Vyxtool", true, [&](VyxHandle h) { return Vyx_ConvertNDIrom2Vyxtool(h, "/nonexistent.rom"); }},
        {"SetColineThreshold", true, [&](VyxHandle h) { return Vyx_SetColineThreshold(h, eth, 5); }},
        {"FindSingleToolInfo", true, [&](VyxHandle h) { return Vyx_FindSingleToolInfo(h, &a.markers, "tool", &a.flat, 0); }},
        // Extensions.
        {"GetToolTipPivotQuality", true, [&](VyxHandle h) { return Vyx_GetToolTipPivotQuality(h, &a.pivotQuality); }},
        {"CalculateRobotCalibration", false, [&](VyxHandle h) { return Vyx_CalculateRobotCalibration(h, a.robotPairs, 3, &a.robotCalibration); }},
        {"SetEthernetConnectPort", false, [&](VyxHandle h) { return Vyx_SetEthernetConnectPort(h, 17001); }},
        {"GetEthernetConnectPort", false, [&](VyxHandle h) { return Vyx_GetEthernetConnectPort(h, &a.port); }},
        {"SetWifiConnectAddress", false, [&](VyxHandle h) { return Vyx_SetWifiConnectAddress(h, 127, 0, 0, 1, 17001); }},
        {"GetWifiConnectAddress", false, [&](VyxHandle h) { return Vyx_GetWifiConnectAddress(h, &a.ip[0], &a.ip[1], &a.ip[2], &a.ip[3], &a.port); }},
        {"StartRecording", true, [&](VyxHandle h) { return Vyx_StartRecording(h, "/nonexistent/rec.vyxrec"); }},
        {"StopRecording", false, [&](VyxHandle h) { return Vyx_StopRecording(h); }},
        {"GetRecordingInfo", false, [&](VyxHandle h) { return Vyx_GetRecordingInfo(h, &a.recording); }},
    };
}

class ResultCodes : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(Vyx_API_Initial(&handle), RV_SUCCESS); }
    void TearDown() override { Vyx_API_Close(&handle); }

    // Interface 3 is no transport: the connect marks the engine connected
    // without opening any link.
    void connectWithoutTransport() {
        T_VYXPOS_DATAPARA para{};
        ASSERT_EQ(Vyx_ConnectDevice(handle, static_cast<E_Interface>(3), &para), RV_SUCCESS);
    }

    VyxHandle handle = nullptr;
    Args args;
};

}  // namespace

TEST_F(ResultCodes, NullHandleFirstThenNotConnectedOnlyForConnectionBoundWrappers) {
    for (const Wrapper& w : allWrappers(args)) {
        EXPECT_EQ(w.call(nullptr), RV_NULL_HANDLE) << w.name;
        EXPECT_EQ(w.call(handle) == RV_NOT_CONNECTED, w.needsConnection) << w.name;
    }
}

TEST_F(ResultCodes, ChecksBeforeTheHandleWinOverANullHandle) {
    EXPECT_EQ(Vyx_InitAccuracyCheckTool(nullptr, nullptr, "b", "c"), RV_FAILED);
    EXPECT_EQ(Vyx_InitAccuracyCheckTool(nullptr, "a", "b", nullptr), RV_FAILED);
    EXPECT_EQ(Vyx_InitMappingPointSetsForMarkerSpaceReg(nullptr, nullptr, 3), RV_FAILED);
    EXPECT_EQ(Vyx_InitMappingPointSetsForMarkerSpaceReg(nullptr, args.points, 2), RV_FAILED);
    args.markers.MarkerNumber = 2;
    EXPECT_EQ(Vyx_MappingPointSetsForMarkerSpaceReg(nullptr, &args.markers, &args.result, 0),
              RV_FAILED);
    EXPECT_EQ(Vyx_SetRobotCalculateRlt(nullptr, args.matrixA, args.matrixB, nullptr), RV_FAILED);
    EXPECT_EQ(Vyx_CalculateRobotTargetPose(nullptr, args.pose, nullptr), RV_FAILED);
    EXPECT_EQ(Vyx_AddToolInfoFile(nullptr, nullptr), RV_FAILED);
    // The same checks come before the connected check on a live handle.
    EXPECT_EQ(Vyx_InitAccuracyCheckTool(handle, nullptr, "b", "c"), RV_FAILED);
    EXPECT_EQ(Vyx_InitMappingPointSetsForMarkerSpaceReg(handle, args.points, 2), RV_FAILED);
}

TEST_F(ResultCodes, ArgumentAndOutputChecksComeAfterTheConnectedCheck) {
    // Not connected: the connection is reported even for bad arguments.
    EXPECT_EQ(Vyx_FindToolInfo(handle, &args.markers, &args.result, 1), RV_NOT_CONNECTED);
    EXPECT_EQ(Vyx_GetGreyImageDual(handle, Interface_Ethernet, nullptr, nullptr), RV_NOT_CONNECTED);
    EXPECT_EQ(Vyx_InitToolTipCalibration(handle, -1, 0), RV_NOT_CONNECTED);

    connectWithoutTransport();
    for (int minMatch : {-1, 1, 2}) {
        EXPECT_EQ(Vyx_FindToolInfo(handle, &args.markers, &args.result, minMatch), RV_FAILED);
        EXPECT_EQ(Vyx_FindSpecificToolInfo(handle, &args.markers, args.names, &args.result, minMatch),
                  RV_FAILED);
        EXPECT_EQ(Vyx_FindSingleToolInfo(handle, &args.markers, "tool", &args.flat, minMatch),
                  RV_FAILED);
    }
    EXPECT_EQ(Vyx_FindToolInfo(handle, &args.markers, nullptr, 0), RV_FAILED);
    EXPECT_EQ(Vyx_FindSpecificToolInfo(handle, &args.markers, {}, &args.result, 0), RV_FAILED);
    EXPECT_EQ(Vyx_FindSingleToolInfo(handle, &args.markers, nullptr, &args.flat, 0), RV_FAILED);
    EXPECT_EQ(Vyx_GetGreyImageDual(handle, Interface_Ethernet, args.image.data(), nullptr), RV_FAILED);
    EXPECT_EQ(Vyx_GetColorImageMiddle(handle, Interface_Ethernet, nullptr), RV_FAILED);
    EXPECT_EQ(Vyx_InitToolTipCalibration(handle, 0, -1), RV_FAILED);
    EXPECT_EQ(Vyx_InitToolTipCalibrationWithToolId(handle, "a", nullptr), RV_FAILED);
    EXPECT_EQ(Vyx_InitToolCoordinateRenewWithToolId(handle, nullptr, "b"), RV_FAILED);
    EXPECT_EQ(Vyx_InitToolTipPivotWithToolId(handle, nullptr, 1), RV_FAILED);
    EXPECT_EQ(Vyx_InitToolSelfCalibration(handle, -1, &args.count), RV_FAILED);
    EXPECT_EQ(Vyx_InitToolSelfCalibrationWithToolId(handle, nullptr, &args.count), RV_FAILED);
    std::vector<std::string> noNames;
    EXPECT_EQ(Vyx_GetToolInfoInRef(handle, &args.markers, noNames, args.resultMap, 0), RV_FAILED);
    EXPECT_EQ(Vyx_GetToolInfoInRef(handle, &args.markers, args.names, args.resultMap, 2), RV_FAILED);
    // Null outputs are refused, not dereferenced.
    EXPECT_EQ(Vyx_GetMarkerInfo(handle, Interface_Ethernet, nullptr), RV_FAILED);
    EXPECT_EQ(Vyx_GetStatusInfo(handle, Interface_Ethernet, nullptr), RV_FAILED);
    EXPECT_EQ(Vyx_GetManufactureInfo(handle, Interface_Ethernet, nullptr), RV_FAILED);
    EXPECT_EQ(Vyx_GetToolFindOffset(handle, nullptr), RV_FAILED);
    EXPECT_EQ(Vyx_GetToolFindPointMatchOptimizeEnable(handle, nullptr), RV_FAILED);
    EXPECT_EQ(Vyx_GetCountOfToolInfo(handle, nullptr), RV_FAILED);
    EXPECT_EQ(Vyx_CheckToolFile(handle, "x.vyxtool", nullptr), RV_FAILED);
    EXPECT_EQ(Vyx_GetVyxPositonMacAddress(handle, nullptr), RV_FAILED);
    EXPECT_EQ(Vyx_GetRecordingInfo(handle, nullptr), RV_FAILED);
    // No path, or no link whose configuration was read, to record.
    for (const char* path : {static_cast<const char*>(nullptr), "", "/tmp/vyx_never_written.vyxrec"})
        EXPECT_EQ(Vyx_StartRecording(handle, path), RV_FAILED) << (path ? path : "null");

    // FindToolInfo resets the first record only once the arguments pass:
    // refused minMatch values (1 and 2) leave it alone; accepted ones reach
    // the search, which starts from "nothing found".
    T_VyxToolDataResult stale{};
    stale.ValidFlag = 1;
    for (int minMatch : {0, 1, 2, 3}) {
        T_VyxToolDataResult r = stale;
        Vyx_FindToolInfo(handle, &args.markers, &r, minMatch);
        EXPECT_EQ(r.ValidFlag, minMatch == 1 || minMatch == 2 ? 1 : 0) << minMatch;
        EXPECT_EQ(r.next, nullptr);
    }
}

TEST_F(ResultCodes, ConnectWritesNoKnownModelFirstEvenForANullHandle) {
    T_VYXPOS_DATAPARA para{};
    para.DeviceType = 7;
    EXPECT_EQ(Vyx_ConnectDevice(nullptr, Interface_Ethernet, &para), RV_NULL_HANDLE);
    EXPECT_EQ(para.DeviceType, 100u);
    EXPECT_EQ(Vyx_ConnectDevice(handle, Interface_Ethernet, nullptr), RV_FAILED);
}

TEST_F(ResultCodes, ConnectWithAnUnknownInterfaceConnectsWithoutALink) {
    connectWithoutTransport();
    unsigned char ip[4] = {9, 9, 9, 9};
    EXPECT_EQ(Vyx_GetVyxPositionIP(handle, Interface_Ethernet, &ip[0], &ip[1], &ip[2], &ip[3]),
              RV_SUCCESS);
    // No configuration was read, so the device address is still all zero.
    EXPECT_EQ(ip[0] | ip[1] | ip[2] | ip[3], 0);
}

TEST_F(ResultCodes, ToolFindOffsetIsAcceptedOnlyWithinItsBounds) {
    const auto offset = [&] {
        float value = 0.0f;
        EXPECT_EQ(Vyx_GetToolFindOffset(handle, &value), RV_SUCCESS);
        return value;
    };
    EXPECT_FLOAT_EQ(offset(), 1.5f);
    for (float refused : {0.29f, 3.01f, std::numeric_limits<float>::quiet_NaN()})
        EXPECT_EQ(Vyx_SetToolFindOffset(handle, refused), RV_FAILED) << refused;
    EXPECT_FLOAT_EQ(offset(), 1.5f);
    EXPECT_EQ(Vyx_SetToolFindOffset(handle, 0.3f), RV_SUCCESS);
    EXPECT_EQ(Vyx_SetToolFindOffset(handle, 3.0f), RV_SUCCESS);
    EXPECT_EQ(Vyx_SetToolFindOffset(handle, 3.01f), RV_FAILED);  // keeps 3.0, not the default
    EXPECT_FLOAT_EQ(offset(), 3.0f);
}

TEST_F(ResultCodes, ConnectAddressesDefaultToTheTrackersOwn) {
    unsigned char ip[4] = {};
    unsigned short port = 0;
    const auto ethernet = [&] {
        EXPECT_EQ(Vyx_GetEthernetConnectIP(handle, &ip[0], &ip[1], &ip[2], &ip[3]), RV_SUCCESS);
        EXPECT_EQ(Vyx_GetEthernetConnectPort(handle, &port), RV_SUCCESS);
        return std::vector<int>{ip[0], ip[1], ip[2], ip[3], port};
    };
    const auto wifi = [&] {
        EXPECT_EQ(Vyx_GetWifiConnectAddress(handle, &ip[0], &ip[1], &ip[2], &ip[3], &port), RV_SUCCESS);
        return std::vector<int>{ip[0], ip[1], ip[2], ip[3], port};
    };
    EXPECT_EQ(ethernet(), (std::vector<int>{192, 168, 31, 10, 7}));
    EXPECT_EQ(wifi(), (std::vector<int>{10, 10, 100, 254, 8899}));

    EXPECT_EQ(Vyx_SetEthernetConnectPort(handle, 0), RV_FAILED);
    EXPECT_EQ(Vyx_SetWifiConnectAddress(handle, 127, 0, 0, 9, 0), RV_FAILED);
    ASSERT_EQ(Vyx_SetEthernetConnectIP(handle, 127, 0, 0, 9), RV_SUCCESS);
    ASSERT_EQ(Vyx_SetEthernetConnectPort(handle, 17009), RV_SUCCESS);
    ASSERT_EQ(Vyx_SetWifiConnectAddress(handle, 127, 0, 0, 8, 17008), RV_SUCCESS);
    EXPECT_EQ(ethernet(), (std::vector<int>{127, 0, 0, 9, 17009}));
    EXPECT_EQ(wifi(), (std::vector<int>{127, 0, 0, 8, 17008}));

    EXPECT_EQ(Vyx_GetEthernetConnectIP(handle, &ip[0], nullptr, &ip[2], &ip[3]), RV_FAILED);
    EXPECT_EQ(Vyx_GetEthernetConnectPort(handle, nullptr), RV_FAILED);
    EXPECT_EQ(Vyx_GetWifiConnectAddress(handle, &ip[0], &ip[1], &ip[2], &ip[3], nullptr), RV_FAILED);
}
