// The common shape of every exported wrapper: checks that stand before the
// handle, the null handle, the connected state and the argument checks after
// it, each with its own result code and in that order.
#include "VyxPositionAPI.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <list>
#include <map>
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
    t_ToolBaseInfo baseInfo[4]{};
    T_VyxToolDataResult result{};
    T_VyxSingleToolDataResult flat{};
    t_ToolTipCalProInfo tipInfo{};
    T_ToolTipPivotInfo pivotInfo{};
    T_ToolTipPivotQuality pivotQuality{};
    t_ToolFixProInfo fixInfo{};
    t_ToolMadeProInfo madeInfo{};
    T_AccuracyToolResult accuracy{};
    char image[8]{};
    float floats[600]{};
    float offset = 0.0f;
    int count = 0;
    unsigned char ip[4]{};
    E_RTDirection direction = RTDirection_ToolToTracker;
    std::vector<std::string> names{"tool"};
    std::vector<std::string> noNames;
    std::map<std::string, T_VyxToolDataResult*> resultMap;
    std::list<float> values;
    float points[3][3]{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    double matrixA[3][4]{}, matrixB[3][4]{};
    double pose[3][3]{};
    T_RobotPosePair robotPairs[3]{};
    T_RobotCalibrationResult robotCalibration{};
};

// The wrappers with a refused argument in badCalls() below are checked there,
// in every state; here the others.
std::vector<Wrapper> allWrappers(Args& a) {
    const E_Interface eth = Interface_Ethernet;
    return {
        {"GetToolInfoFilePath", false, [&](VyxHandle h) { return Vyx_GetToolInfoFilePath(h) ? 0 : RV_NULL_HANDLE; }},
        {"SetToolInfoFilePath", false, [&](VyxHandle h) { return Vyx_SetToolInfoFilePath(h, "/nonexistent", false); }},
        {"AddToolInfoFile", false, [&](VyxHandle h) { return Vyx_AddToolInfoFile(h, "/nonexistent/tool"); }},
        {"SetAcquireMode", true, [&](VyxHandle h) { return Vyx_SetAcquireMode(h, eth, AcquireMode_FreeRunning); }},
        {"GetMarkerAndStatusFromHardware", true, [&](VyxHandle h) { return Vyx_GetMarkerAndStatusFromHardware(h, eth, &a.markers, &a.status); }},
        {"GetMarkerStatusAndGreyImageFromHardware", true, [&](VyxHandle h) { return Vyx_GetMarkerStatusAndGreyImageFromHardware(h, eth, &a.markers, &a.status, a.image, a.image); }},
        {"GetColorImageFromHardware", true, [&](VyxHandle h) { return Vyx_GetColorImageFromHardware(h, eth, a.image); }},
        {"GetGreyImageFromHardware", true, [&](VyxHandle h) { return Vyx_GetGreyImageFromHardware(h, eth, a.image, a.image); }},
        {"SetAcquireData", true, [&](VyxHandle h) { return Vyx_SetAcquireData(h, eth, DataType_None); }},
        {"SetToolFindOffset", false, [&](VyxHandle h) { return Vyx_SetToolFindOffset(h, 1.5f); }},
        {"SetToolFindPointMatchOptimizeEnable", false, [&](VyxHandle h) { return Vyx_SetToolFindPointMatchOptimizeEnable(h, true); }},
        {"SetToolFindRTDirection", true, [&](VyxHandle h) { return Vyx_SetToolFindRTDirection(h, RTDirection_ToolToTracker); }},
        {"GetToolFindRTDirection", true, [&](VyxHandle h) { return Vyx_GetToolFindRTDirection(h, &a.direction); }},
        {"ProceedToolTipCalibration", true, [&](VyxHandle h) { return Vyx_ProceedToolTipCalibration(h, &a.markers, &a.tipInfo); }},
        {"SaveToolTipCalibration", true, [&](VyxHandle h) { return Vyx_SaveToolTipCalibration(h); }},
        {"ProceedToolCoordinateRenew", true, [&](VyxHandle h) { return Vyx_ProceedToolCoordinateRenew(h, &a.markers, &a.tipInfo); }},
        {"SaveToolCoordinateRenew", true, [&](VyxHandle h) { return Vyx_SaveToolCoordinateRenew(h); }},
        {"ProceedToolTipPivot", true, [&](VyxHandle h) { return Vyx_ProceedToolTipPivot(h, &a.markers, &a.pivotInfo); }},
        {"SaveToolTipPivot", true, [&](VyxHandle h) { return Vyx_SaveToolTipPivot(h, 0); }},
        {"ProceedToolSelfCalibration", true, [&](VyxHandle h) { return Vyx_ProceedToolSelfCalibration(h, &a.markers, &a.fixInfo); }},
        {"SaveToolSelfCalibration", true, [&](VyxHandle h) { return Vyx_SaveToolSelfCalibration(h, ToolFix_Discard); }},
        {"GetSpecificToolFileInfoList", true, [&](VyxHandle h) { return Vyx_GetSpecificToolFileInfoList(h, "a", &a.count, &a.values); }},
        {"GetSpecificToolFileInfoArray", true, [&](VyxHandle h) { return Vyx_GetSpecificToolFileInfoArray(h, "a", &a.count, a.floats); }},
        {"GetAllToolFilesBaseInfo", true, [&](VyxHandle h) { return Vyx_GetAllToolFilesBaseInfo(h, a.baseInfo); }},
        {"SetSystemCommand", true, [&](VyxHandle h) { return Vyx_SetSystemCommand(h, eth, SystemCommand_0); }},
        {"SetDualExpTime", true, [&](VyxHandle h) { return Vyx_SetDualExpTime(h, eth, 100); }},
        {"SetDualExpTimeByDistance", true, [&](VyxHandle h) { return Vyx_SetDualExpTimeByDistance(h, eth, 1000); }},
        {"SetFlashDelay", true, [&](VyxHandle h) { return Vyx_SetFlashDelay(h, eth, 1, 2); }},
        {"SetColorExpTime", true, [&](VyxHandle h) { return Vyx_SetColorExpTime(h, eth, 100); }},
        {"SetCollisinoDetectLevel", true, [&](VyxHandle h) { return Vyx_SetCollisinoDetectLevel(h, eth, 3); }},
        {"SetVyxPositionIP", true, [&](VyxHandle h) { return Vyx_SetVyxPositionIP(h, eth, 127, 0, 0, 1); }},
        {"GetVyxPositionIP", true, [&](VyxHandle h) { return Vyx_GetVyxPositionIP(h, eth, &a.ip[0], &a.ip[1], &a.ip[2], &a.ip[3]); }},
        {"SetEthernetConnectIP", false, [&](VyxHandle h) { return Vyx_SetEthernetConnectIP(h, 127, 0, 0, 1); }},
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
        {"Calculate3DPoints", true, [&](VyxHandle h) { return Vyx_Calculate3DPoints(h, a.floats, 0, a.floats, 0, &a.markers); }},
        {"FindToolInfo_Map", true, [&](VyxHandle h) { return Vyx_FindToolInfo_Map(h, &a.markers, a.names, a.resultMap, 0); }},
        {"SetReferenceTool", true, [&](VyxHandle h) { return Vyx_SetReferenceTool(h, "ref"); }},
        {"CancelRef", true, [&](VyxHandle h) { return Vyx_CancelRef(h); }},
        {"ConvertNDIrom2Vyxtool", true, [&](VyxHandle h) { return Vyx_ConvertNDIrom2Vyxtool(h, "/nonexistent.rom"); }},
        {"SetColineThreshold", true, [&](VyxHandle h) { return Vyx_SetColineThreshold(h, eth, 5); }},
        // Extensions.
        {"GetToolTipPivotQuality", true, [&](VyxHandle h) { return Vyx_GetToolTipPivotQuality(h, &a.pivotQuality); }},
        {"StopRecording", false, [&](VyxHandle h) { return Vyx_StopRecording(h); }},
    };
}

// Where a call's argument check stands: before the handle is resolved, right
// after it (calls that need no connection), or after the connected check.
enum Order { BeforeHandle, AfterHandle, AfterConnected };

struct BadCall {
    std::string name;
    Order order;
    std::function<int(VyxHandle)> call;  // called with a refused argument
};

std::vector<BadCall> badCalls(Args& a) {
    const E_Interface eth = Interface_Ethernet;
    std::vector<BadCall> calls = {
        {"ConnectDevice, no parameters", BeforeHandle, [&](VyxHandle h) { return Vyx_ConnectDevice(h, eth, nullptr); }},
        {"AddToolInfoFile, no path", BeforeHandle, [&](VyxHandle h) { return Vyx_AddToolInfoFile(h, nullptr); }},
        {"InitAccuracyCheckTool, no artefact", BeforeHandle, [&](VyxHandle h) { return Vyx_InitAccuracyCheckTool(h, nullptr, "b", "c"); }},
        {"InitAccuracyCheckTool, no end B", BeforeHandle, [&](VyxHandle h) { return Vyx_InitAccuracyCheckTool(h, "a", "b", nullptr); }},
        {"InitMappingPointSets, no points", BeforeHandle, [&](VyxHandle h) { return Vyx_InitMappingPointSetsForMarkerSpaceReg(h, nullptr, 3); }},
        {"InitMappingPointSets, two points", BeforeHandle, [&](VyxHandle h) { return Vyx_InitMappingPointSetsForMarkerSpaceReg(h, a.points, 2); }},
        {"MappingPointSets, two markers", BeforeHandle, [&](VyxHandle h) { a.markers.MarkerNumber = 2; return Vyx_MappingPointSetsForMarkerSpaceReg(h, &a.markers, &a.result, 0); }},
        {"SetRobotCalculateRlt, no tool name", BeforeHandle, [&](VyxHandle h) { return Vyx_SetRobotCalculateRlt(h, a.matrixA, a.matrixB, nullptr); }},
        {"CalculateRobotTargetPose, no output", BeforeHandle, [&](VyxHandle h) { return Vyx_CalculateRobotTargetPose(h, a.pose, nullptr); }},
        {"GetToolFindOffset, no output", AfterHandle, [&](VyxHandle h) { return Vyx_GetToolFindOffset(h, nullptr); }},
        {"GetToolFindPointMatchOptimizeEnable, no output", AfterHandle, [&](VyxHandle h) { return Vyx_GetToolFindPointMatchOptimizeEnable(h, nullptr); }},
        {"CheckToolFile, no output", AfterHandle, [&](VyxHandle h) { return Vyx_CheckToolFile(h, "x.vyxtool", nullptr); }},
        {"GetRecordingInfo, no output", AfterHandle, [&](VyxHandle h) { return Vyx_GetRecordingInfo(h, nullptr); }},
        {"SetEthernetConnectPort 0", AfterHandle, [&](VyxHandle h) { return Vyx_SetEthernetConnectPort(h, 0); }},
        {"GetEthernetConnectIP, no second byte", AfterHandle, [&](VyxHandle h) { return Vyx_GetEthernetConnectIP(h, &a.ip[0], nullptr, &a.ip[2], &a.ip[3]); }},
        {"GetEthernetConnectPort, no output", AfterHandle, [&](VyxHandle h) { return Vyx_GetEthernetConnectPort(h, nullptr); }},
        {"SetWifiConnectAddress, port 0", AfterHandle, [&](VyxHandle h) { return Vyx_SetWifiConnectAddress(h, 127, 0, 0, 9, 0); }},
        {"GetWifiConnectAddress, no port", AfterHandle, [&](VyxHandle h) { return Vyx_GetWifiConnectAddress(h, &a.ip[0], &a.ip[1], &a.ip[2], &a.ip[3], nullptr); }},
        {"CalculateRobotCalibration, two pairs", AfterHandle, [&](VyxHandle h) { return Vyx_CalculateRobotCalibration(h, a.robotPairs, 2, &a.robotCalibration); }},
        {"CalculateRobotCalibration, no pairs", AfterHandle, [&](VyxHandle h) { return Vyx_CalculateRobotCalibration(h, nullptr, 3, &a.robotCalibration); }},
        {"CalculateRobotCalibration, no output", AfterHandle, [&](VyxHandle h) { return Vyx_CalculateRobotCalibration(h, a.robotPairs, 3, nullptr); }},
        {"FindToolInfo, no result", AfterConnected, [&](VyxHandle h) { return Vyx_FindToolInfo(h, &a.markers, nullptr, 0); }},
        {"FindSpecificToolInfo, no names", AfterConnected, [&](VyxHandle h) { return Vyx_FindSpecificToolInfo(h, &a.markers, a.noNames, &a.result, 0); }},
        {"FindSingleToolInfo, no name", AfterConnected, [&](VyxHandle h) { return Vyx_FindSingleToolInfo(h, &a.markers, nullptr, &a.flat, 0); }},
        {"GetToolInfoInRef, no names", AfterConnected, [&](VyxHandle h) { return Vyx_GetToolInfoInRef(h, &a.markers, a.noNames, a.resultMap, 0); }},
        {"GetGreyImageDual, no right image", AfterConnected, [&](VyxHandle h) { return Vyx_GetGreyImageDual(h, eth, a.image, nullptr); }},
        {"GetColorImageMiddle, no image", AfterConnected, [&](VyxHandle h) { return Vyx_GetColorImageMiddle(h, eth, nullptr); }},
        {"GetMarkerInfo, no output", AfterConnected, [&](VyxHandle h) { return Vyx_GetMarkerInfo(h, eth, nullptr); }},
        {"GetStatusInfo, no output", AfterConnected, [&](VyxHandle h) { return Vyx_GetStatusInfo(h, eth, nullptr); }},
        {"GetManufactureInfo, no output", AfterConnected, [&](VyxHandle h) { return Vyx_GetManufactureInfo(h, eth, nullptr); }},
        {"GetCountOfToolInfo, no output", AfterConnected, [&](VyxHandle h) { return Vyx_GetCountOfToolInfo(h, nullptr); }},
        {"GetVyxPositonMacAddress, no output", AfterConnected, [&](VyxHandle h) { return Vyx_GetVyxPositonMacAddress(h, nullptr); }},
        {"InitToolTipCalibration, calibrator -1", AfterConnected, [&](VyxHandle h) { return Vyx_InitToolTipCalibration(h, -1, 0); }},
        {"InitToolTipCalibration, tool -1", AfterConnected, [&](VyxHandle h) { return Vyx_InitToolTipCalibration(h, 0, -1); }},
        {"InitToolTipCalibrationWithToolId, no tool", AfterConnected, [&](VyxHandle h) { return Vyx_InitToolTipCalibrationWithToolId(h, "a", nullptr); }},
        {"InitToolCoordinateRenewWithToolId, no calibrator", AfterConnected, [&](VyxHandle h) { return Vyx_InitToolCoordinateRenewWithToolId(h, nullptr, "b"); }},
        {"InitToolTipPivotWithToolId, no tool", AfterConnected, [&](VyxHandle h) { return Vyx_InitToolTipPivotWithToolId(h, nullptr, 1); }},
        {"InitToolSelfCalibration, tool -1", AfterConnected, [&](VyxHandle h) { return Vyx_InitToolSelfCalibration(h, -1, &a.count); }},
        {"InitToolSelfCalibrationWithToolId, no tool", AfterConnected, [&](VyxHandle h) { return Vyx_InitToolSelfCalibrationWithToolId(h, nullptr, &a.count); }},
        // No path, or no link whose configuration was read, to record.
        {"StartRecording, no path", AfterConnected, [&](VyxHandle h) { return Vyx_StartRecording(h, nullptr); }},
        {"StartRecording, empty path", AfterConnected, [&](VyxHandle h) { return Vyx_StartRecording(h, ""); }},
        {"StartRecording, no link", AfterConnected, [&](VyxHandle h) { return Vyx_StartRecording(h, "/tmp/vyx_never_written.vyxrec"); }},
    };
    // Refused minMatch values: negative, and too few points for a rigid fit.
    for (int m : {-1, 1, 2}) {
        const std::string with = ", minMatch " + std::to_string(m);
        calls.push_back({"FindToolInfo" + with, AfterConnected, [&a, m](VyxHandle h) { return Vyx_FindToolInfo(h, &a.markers, &a.result, m); }});
        calls.push_back({"FindSpecificToolInfo" + with, AfterConnected, [&a, m](VyxHandle h) { return Vyx_FindSpecificToolInfo(h, &a.markers, a.names, &a.result, m); }});
        calls.push_back({"FindSingleToolInfo" + with, AfterConnected, [&a, m](VyxHandle h) { return Vyx_FindSingleToolInfo(h, &a.markers, "tool", &a.flat, m); }});
        calls.push_back({"GetToolInfoInRef" + with, AfterConnected, [&a, m](VyxHandle h) { return Vyx_GetToolInfoInRef(h, &a.markers, a.names, a.resultMap, m); }});
    }
    return calls;
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

TEST_F(ResultCodes, RefusedArgumentsAreCheckedInTheirPlaceAmongTheHandleAndConnectedChecks) {
    const std::vector<BadCall> calls = badCalls(args);
    for (const BadCall& c : calls) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.call(nullptr), c.order == BeforeHandle ? RV_FAILED : RV_NULL_HANDLE);
        EXPECT_EQ(c.call(handle), c.order == AfterConnected ? RV_NOT_CONNECTED : RV_FAILED);
    }
    connectWithoutTransport();
    for (const BadCall& c : calls) EXPECT_EQ(c.call(handle), RV_FAILED) << c.name;
    // Interface 3 connected without a link: no configuration was read, so the
    // device address is still all zero.
    unsigned char ip[4] = {9, 9, 9, 9};
    EXPECT_EQ(Vyx_GetVyxPositionIP(handle, Interface_Ethernet, &ip[0], &ip[1], &ip[2], &ip[3]),
              RV_SUCCESS);
    EXPECT_EQ(ip[0] | ip[1] | ip[2] | ip[3], 0);

    // FindToolInfo resets the first record only once the arguments pass:
    // refused minMatch values (1 and 2) leave it alone; accepted ones reach
    // the search, which starts from "nothing found".
    for (int minMatch : {0, 1, 2, 3}) {
        T_VyxToolDataResult r{};
        r.ValidFlag = 1;
        Vyx_FindToolInfo(handle, &args.markers, &r, minMatch);
        EXPECT_EQ(r.ValidFlag, minMatch == 1 || minMatch == 2 ? 1 : 0) << minMatch;
        EXPECT_EQ(r.next, nullptr);
    }
}

TEST_F(ResultCodes, ARefusedToolFindOffsetKeepsTheOneInForce) {
    const auto offset = [&] {
        float value = 0.0f;
        EXPECT_EQ(Vyx_GetToolFindOffset(handle, &value), RV_SUCCESS);
        return value;
    };
    // The default, then each bound accepted; refused values leave every one
    // of them in force.
    for (float inForce : {1.5f, 0.3f, 3.0f}) {
        if (inForce != 1.5f) {
            ASSERT_EQ(Vyx_SetToolFindOffset(handle, inForce), RV_SUCCESS);
        }
        for (float refused : {0.29f, 3.01f, std::numeric_limits<float>::quiet_NaN()})
            EXPECT_EQ(Vyx_SetToolFindOffset(handle, refused), RV_FAILED) << refused;
        EXPECT_FLOAT_EQ(offset(), inForce);
    }
}

// Setting them is used by every end-to-end test, and read back by the Python
// package's tests.
TEST_F(ResultCodes, ConnectAddressesDefaultToTheTrackersOwn) {
    unsigned char e[4] = {}, w[4] = {};
    unsigned short ethernetPort = 0, wifiPort = 0;
    EXPECT_EQ(Vyx_GetEthernetConnectIP(handle, &e[0], &e[1], &e[2], &e[3]), RV_SUCCESS);
    EXPECT_EQ(Vyx_GetEthernetConnectPort(handle, &ethernetPort), RV_SUCCESS);
    EXPECT_EQ(Vyx_GetWifiConnectAddress(handle, &w[0], &w[1], &w[2], &w[3], &wifiPort), RV_SUCCESS);
    EXPECT_EQ((std::vector<int>{e[0], e[1], e[2], e[3], ethernetPort}),
              (std::vector<int>{192, 168, 31, 10, 7}));
    EXPECT_EQ((std::vector<int>{w[0], w[1], w[2], w[3], wifiPort}),
              (std::vector<int>{10, 10, 100, 254, 8899}));
}
