// The records crossing the C boundary have a fixed binary layout; these
// assertions stop a build whose compiler or a header edit would change it.
#include "VyxPositionTypes.h"

#include <cstddef>

#define VYX_ASSERT_OFFSET(type, field, offset) \
    static_assert(offsetof(type, field) == (offset), #type "." #field " moved")

static_assert(sizeof(E_ReturnValue) == 4 && sizeof(E_Interface) == 4 && sizeof(E_DataType) == 4 &&
                  sizeof(E_AcquireMode) == 4 && sizeof(E_SystemCommand) == 4 &&
                  sizeof(E_RTDirection) == 4 && sizeof(E_ToolFixRlt) == 4,
              "enumerations are 32-bit");
static_assert(static_cast<int>(RV_FAILED) == -1, "failure is all bits set");

VYX_ASSERT_OFFSET(T_MarkerInfo, ID, 0);
VYX_ASSERT_OFFSET(T_MarkerInfo, MarkerNumber, 4);
VYX_ASSERT_OFFSET(T_MarkerInfo, MarkerCoordinate, 8);
VYX_ASSERT_OFFSET(T_MarkerInfo, MarkerPairIndex, 4808);
VYX_ASSERT_OFFSET(T_MarkerInfo, Reserved0, 5608);
VYX_ASSERT_OFFSET(T_MarkerInfo, OverLimitFlag, 5612);
VYX_ASSERT_OFFSET(T_MarkerInfo, Reserved1, 5616);
VYX_ASSERT_OFFSET(T_MarkerInfo, Reserved2, 5816);
VYX_ASSERT_OFFSET(T_MarkerInfo, Reserved3, 6416);
static_assert(sizeof(T_MarkerInfo) == 6424, "T_MarkerInfo size");

VYX_ASSERT_OFFSET(T_VyxPosStatusInfo, Temperature0, 0);
VYX_ASSERT_OFFSET(T_VyxPosStatusInfo, Temperature1, 4);
VYX_ASSERT_OFFSET(T_VyxPosStatusInfo, SensorValue0, 8);
VYX_ASSERT_OFFSET(T_VyxPosStatusInfo, SensorValue1, 12);
VYX_ASSERT_OFFSET(T_VyxPosStatusInfo, SensorValue2, 16);
VYX_ASSERT_OFFSET(T_VyxPosStatusInfo, SensorValue3, 18);
VYX_ASSERT_OFFSET(T_VyxPosStatusInfo, StateByte0, 20);
VYX_ASSERT_OFFSET(T_VyxPosStatusInfo, StateByte1, 21);
VYX_ASSERT_OFFSET(T_VyxPosStatusInfo, StateWord0, 22);
VYX_ASSERT_OFFSET(T_VyxPosStatusInfo, StateWord1, 24);
VYX_ASSERT_OFFSET(T_VyxPosStatusInfo, LinkState, 28);
VYX_ASSERT_OFFSET(T_VyxPosStatusInfo, HardwareCheck, 32);
static_assert(sizeof(T_VyxPosStatusInfo) == 36, "T_VyxPosStatusInfo size");

VYX_ASSERT_OFFSET(T_ManufactureInfo, ManufactureYear, 0);
VYX_ASSERT_OFFSET(T_ManufactureInfo, ManufactureMonth, 2);
VYX_ASSERT_OFFSET(T_ManufactureInfo, ManufactureDay, 3);
VYX_ASSERT_OFFSET(T_ManufactureInfo, DeviceModel, 4);
VYX_ASSERT_OFFSET(T_ManufactureInfo, DeviceModelLength, 24);
static_assert(sizeof(T_ManufactureInfo) == 26, "T_ManufactureInfo size");

VYX_ASSERT_OFFSET(T_VYXPOS_DATAPARA, DeviceType, 0);
VYX_ASSERT_OFFSET(T_VYXPOS_DATAPARA, MarkerImageWidth, 4);
VYX_ASSERT_OFFSET(T_VYXPOS_DATAPARA, MarkerImageHeight, 8);
VYX_ASSERT_OFFSET(T_VYXPOS_DATAPARA, MarkerImagePixelBytes, 12);
VYX_ASSERT_OFFSET(T_VYXPOS_DATAPARA, ColorImageWidth, 16);
VYX_ASSERT_OFFSET(T_VYXPOS_DATAPARA, ColorImageHeight, 20);
VYX_ASSERT_OFFSET(T_VYXPOS_DATAPARA, ColorImagePixelBytes, 24);
VYX_ASSERT_OFFSET(T_VYXPOS_DATAPARA, DeviceModel, 28);
static_assert(sizeof(T_VYXPOS_DATAPARA) == 48, "T_VYXPOS_DATAPARA size");

VYX_ASSERT_OFFSET(T_ToolFileData, ToolName, 0);
VYX_ASSERT_OFFSET(T_ToolFileData, ToolKind, 200);
VYX_ASSERT_OFFSET(T_ToolFileData, MarkerCount, 204);
VYX_ASSERT_OFFSET(T_ToolFileData, MarkerPosition, 208);
VYX_ASSERT_OFFSET(T_ToolFileData, TipSectionCount, 2608);
VYX_ASSERT_OFFSET(T_ToolFileData, TipPoint, 2612);
VYX_ASSERT_OFFSET(T_ToolFileData, TipAxisPoint, 2624);
VYX_ASSERT_OFFSET(T_ToolFileData, Reserved, 2636);
static_assert(sizeof(T_ToolFileData) == 2892, "T_ToolFileData size");

VYX_ASSERT_OFFSET(t_ToolBaseInfo, ToolName, 0);
VYX_ASSERT_OFFSET(t_ToolBaseInfo, ToolKind, 8);
VYX_ASSERT_OFFSET(t_ToolBaseInfo, MarkerCount, 9);
static_assert(sizeof(t_ToolBaseInfo) == 16, "t_ToolBaseInfo size");

static_assert(sizeof(T_MatchMarkIdx) == 8 && offsetof(T_MatchMarkIdx, ObservedIndex) == 4,
              "T_MatchMarkIdx layout");
static_assert(sizeof(T_MarkError) == 16 && offsetof(T_MarkError, error) == 12,
              "T_MarkError layout");

VYX_ASSERT_OFFSET(T_VyxToolDataResult, ToolType, 0);
VYX_ASSERT_OFFSET(T_VyxToolDataResult, ValidFlag, 4);
VYX_ASSERT_OFFSET(T_VyxToolDataResult, ToolName, 5);
VYX_ASSERT_OFFSET(T_VyxToolDataResult, MeanError, 208);
VYX_ASSERT_OFFSET(T_VyxToolDataResult, ErrorSpread, 212);
VYX_ASSERT_OFFSET(T_VyxToolDataResult, RotationVector, 216);
VYX_ASSERT_OFFSET(T_VyxToolDataResult, Quaternion, 228);
VYX_ASSERT_OFFSET(T_VyxToolDataResult, RotationMatrix, 244);
VYX_ASSERT_OFFSET(T_VyxToolDataResult, Translation, 280);
VYX_ASSERT_OFFSET(T_VyxToolDataResult, OriginCoordinate, 292);
VYX_ASSERT_OFFSET(T_VyxToolDataResult, TipCoordinate, 304);
VYX_ASSERT_OFFSET(T_VyxToolDataResult, TipAxisCoordinate, 316);
VYX_ASSERT_OFFSET(T_VyxToolDataResult, ToolTipsLocal, 328);
VYX_ASSERT_OFFSET(T_VyxToolDataResult, MatchedMarkerCount, 352);
VYX_ASSERT_OFFSET(T_VyxToolDataResult, MatchedMarkerIndex, 356);
VYX_ASSERT_OFFSET(T_VyxToolDataResult, next, 1160);
static_assert(sizeof(T_VyxToolDataResult) == 1168, "T_VyxToolDataResult size");

// The flat record repeats the chained one up to the marker indices.
VYX_ASSERT_OFFSET(T_VyxSingleToolDataResult, ToolName, 5);
VYX_ASSERT_OFFSET(T_VyxSingleToolDataResult, ToolTipsLocal, 328);
VYX_ASSERT_OFFSET(T_VyxSingleToolDataResult, MatchedMarkerCount, 352);
VYX_ASSERT_OFFSET(T_VyxSingleToolDataResult, MatchedMarkerIndex, 356);
static_assert(sizeof(T_VyxSingleToolDataResult) == 1156, "T_VyxSingleToolDataResult size");

VYX_ASSERT_OFFSET(t_ToolTipCalProInfo, calibratorFound, 0);
VYX_ASSERT_OFFSET(t_ToolTipCalProInfo, toolFound, 1);
VYX_ASSERT_OFFSET(t_ToolTipCalProInfo, frameAccepted, 2);
VYX_ASSERT_OFFSET(t_ToolTipCalProInfo, finished, 3);
VYX_ASSERT_OFFSET(t_ToolTipCalProInfo, meanError, 4);
VYX_ASSERT_OFFSET(t_ToolTipCalProInfo, progress, 8);
VYX_ASSERT_OFFSET(t_ToolTipCalProInfo, tipDistanceStdDev, 12);
static_assert(sizeof(t_ToolTipCalProInfo) == 16, "t_ToolTipCalProInfo size");

VYX_ASSERT_OFFSET(T_ToolTipPivotInfo, toolFound, 0);
VYX_ASSERT_OFFSET(T_ToolTipPivotInfo, finished, 1);
VYX_ASSERT_OFFSET(T_ToolTipPivotInfo, progress, 4);
VYX_ASSERT_OFFSET(T_ToolTipPivotInfo, pivotError, 8);
static_assert(sizeof(T_ToolTipPivotInfo) == 12, "T_ToolTipPivotInfo size");

VYX_ASSERT_OFFSET(T_ToolTipPivotQuality, TipPoint, 0);
VYX_ASSERT_OFFSET(T_ToolTipPivotQuality, PivotPoint, 24);
VYX_ASSERT_OFFSET(T_ToolTipPivotQuality, RmsResidual, 48);
VYX_ASSERT_OFFSET(T_ToolTipPivotQuality, MaxResidual, 52);
VYX_ASSERT_OFFSET(T_ToolTipPivotQuality, OutlierCount, 56);
VYX_ASSERT_OFFSET(T_ToolTipPivotQuality, PoseCount, 60);
VYX_ASSERT_OFFSET(T_ToolTipPivotQuality, AngularSpreadDeg, 64);
VYX_ASSERT_OFFSET(T_ToolTipPivotQuality, ShaftSpreadDeg, 68);
VYX_ASSERT_OFFSET(T_ToolTipPivotQuality, SmallestSingularValue, 72);
VYX_ASSERT_OFFSET(T_ToolTipPivotQuality, TipPrecision, 76);
VYX_ASSERT_OFFSET(T_ToolTipPivotQuality, PivotPrecision, 80);
VYX_ASSERT_OFFSET(T_ToolTipPivotQuality, Verdict, 84);
static_assert(sizeof(T_ToolTipPivotQuality) == 88, "T_ToolTipPivotQuality size");
static_assert(sizeof(E_PivotVerdict) == 4, "enumerations are 32-bit");

VYX_ASSERT_OFFSET(T_RobotPosePair, FlangeInBase, 0);
VYX_ASSERT_OFFSET(T_RobotPosePair, ToolInTracker, 96);
static_assert(sizeof(T_RobotPosePair) == 192, "T_RobotPosePair size");

VYX_ASSERT_OFFSET(T_RobotCalibrationResult, TrackerToBase, 0);
VYX_ASSERT_OFFSET(T_RobotCalibrationResult, ToolToFlange, 96);
VYX_ASSERT_OFFSET(T_RobotCalibrationResult, RmsResidualMm, 192);
VYX_ASSERT_OFFSET(T_RobotCalibrationResult, RmsResidualDeg, 200);
VYX_ASSERT_OFFSET(T_RobotCalibrationResult, MaxResidualMm, 208);
VYX_ASSERT_OFFSET(T_RobotCalibrationResult, MaxResidualDeg, 216);
VYX_ASSERT_OFFSET(T_RobotCalibrationResult, PairCount, 224);
VYX_ASSERT_OFFSET(T_RobotCalibrationResult, WorstPairIndex, 228);
static_assert(sizeof(T_RobotCalibrationResult) == 232, "T_RobotCalibrationResult size");

VYX_ASSERT_OFFSET(t_ToolFixProInfo, frameUsed, 0);
VYX_ASSERT_OFFSET(t_ToolFixProInfo, frameCounted, 1);
VYX_ASSERT_OFFSET(t_ToolFixProInfo, frameCount, 4);
VYX_ASSERT_OFFSET(t_ToolFixProInfo, finished, 8);
VYX_ASSERT_OFFSET(t_ToolFixProInfo, meanError, 12);
static_assert(sizeof(t_ToolFixProInfo) == 16, "t_ToolFixProInfo size");

VYX_ASSERT_OFFSET(t_ToolMadeProInfo, madeFlag, 0);
VYX_ASSERT_OFFSET(t_ToolMadeProInfo, progress, 4);
VYX_ASSERT_OFFSET(t_ToolMadeProInfo, finished, 8);
VYX_ASSERT_OFFSET(t_ToolMadeProInfo, meanError, 12);
static_assert(sizeof(t_ToolMadeProInfo) == 16, "t_ToolMadeProInfo size");

VYX_ASSERT_OFFSET(T_AccuracyToolResult, ValidFlag, 0);
VYX_ASSERT_OFFSET(T_AccuracyToolResult, PointCount, 4);
VYX_ASSERT_OFFSET(T_AccuracyToolResult, MeanError, 8);
VYX_ASSERT_OFFSET(T_AccuracyToolResult, PointError, 20);
VYX_ASSERT_OFFSET(T_AccuracyToolResult, RotationMatrix, 820);
VYX_ASSERT_OFFSET(T_AccuracyToolResult, Translation, 856);
VYX_ASSERT_OFFSET(T_AccuracyToolResult, Length, 868);
VYX_ASSERT_OFFSET(T_AccuracyToolResult, LengthError, 872);
VYX_ASSERT_OFFSET(T_AccuracyToolResult, CollectedCount, 876);
static_assert(sizeof(T_AccuracyToolResult) == 880, "T_AccuracyToolResult size");

VYX_ASSERT_OFFSET(T_RecordingInfo, Active, 0);
VYX_ASSERT_OFFSET(T_RecordingInfo, LastError, 4);
VYX_ASSERT_OFFSET(T_RecordingInfo, FramesRecorded, 8);
VYX_ASSERT_OFFSET(T_RecordingInfo, FramesDropped, 16);
VYX_ASSERT_OFFSET(T_RecordingInfo, BytesWritten, 24);
static_assert(sizeof(T_RecordingInfo) == 32, "T_RecordingInfo size");
