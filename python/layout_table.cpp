// Writes the binary layout of every record the Python package passes through
// ctypes, as the Python module _layout.py: each record's size and, per field,
// its offset and size, as this compiler lays them out from the public header.
// The package compares its own ctypes declarations with this table at import.
//
// Usage: vyx_layout_table OUTPUT.py
#include "VyxPositionAPI.h"

#include <cstddef>
#include <cstdio>

#define RECORD(type) std::fprintf(out, "    \"%s\": (%zu, [\n", #type, sizeof(type))
#define FIELD(type, field)                                                                   \
    std::fprintf(out, "        (\"%s\", %zu, %zu),\n", #field, offsetof(type, field),                \
                sizeof(static_cast<type*>(nullptr)->field))
#define END() std::fprintf(out, "    ]),\n")

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s OUTPUT.py\n", argv[0]);
        return 2;
    }
    std::FILE* out = std::fopen(argv[1], "w");
    if (out == nullptr) {
        std::perror(argv[1]);
        return 1;
    }
    std::fprintf(out, "# Generated at build time by python/layout_table.cpp from the public headers:\n"
                "# record name: (size, [(field, offset, size), ...]). Do not edit.\n\n"
                "SONAME = \"%s\"\n\n"
                "SCALARS = {\"bool\": %zu, \"enum\": %zu, \"pointer\": %zu}\n\n"
                "RECORDS = {\n",
                VYX_SONAME, sizeof(bool), sizeof(E_Interface), sizeof(void*));

    RECORD(T_MarkerInfo);
    FIELD(T_MarkerInfo, ID);
    FIELD(T_MarkerInfo, MarkerNumber);
    FIELD(T_MarkerInfo, MarkerCoordinate);
    FIELD(T_MarkerInfo, MarkerPairIndex);
    FIELD(T_MarkerInfo, Reserved0);
    FIELD(T_MarkerInfo, OverLimitFlag);
    FIELD(T_MarkerInfo, Reserved1);
    FIELD(T_MarkerInfo, Reserved2);
    FIELD(T_MarkerInfo, Reserved3);
    END();

    RECORD(T_VyxPosStatusInfo);
    FIELD(T_VyxPosStatusInfo, Temperature0);
    FIELD(T_VyxPosStatusInfo, Temperature1);
    FIELD(T_VyxPosStatusInfo, SensorValue0);
    FIELD(T_VyxPosStatusInfo, SensorValue1);
    FIELD(T_VyxPosStatusInfo, SensorValue2);
    FIELD(T_VyxPosStatusInfo, SensorValue3);
    FIELD(T_VyxPosStatusInfo, StateByte0);
    FIELD(T_VyxPosStatusInfo, StateByte1);
    FIELD(T_VyxPosStatusInfo, StateWord0);
    FIELD(T_VyxPosStatusInfo, StateWord1);
    FIELD(T_VyxPosStatusInfo, LinkState);
    FIELD(T_VyxPosStatusInfo, HardwareCheck);
    END();

    RECORD(T_ManufactureInfo);
    FIELD(T_ManufactureInfo, ManufactureYear);
    FIELD(T_ManufactureInfo, ManufactureMonth);
    FIELD(T_ManufactureInfo, ManufactureDay);
    FIELD(T_ManufactureInfo, DeviceModel);
    FIELD(T_ManufactureInfo, DeviceModelLength);
    END();

    RECORD(T_VYXPOS_DATAPARA);
    FIELD(T_VYXPOS_DATAPARA, DeviceType);
    FIELD(T_VYXPOS_DATAPARA, MarkerImageWidth);
    FIELD(T_VYXPOS_DATAPARA, MarkerImageHeight);
    FIELD(T_VYXPOS_DATAPARA, MarkerImagePixelBytes);
    FIELD(T_VYXPOS_DATAPARA, ColorImageWidth);
    FIELD(T_VYXPOS_DATAPARA, ColorImageHeight);
    FIELD(T_VYXPOS_DATAPARA, ColorImagePixelBytes);
    FIELD(T_VYXPOS_DATAPARA, DeviceModel);
    END();

    RECORD(T_ToolFileData);
    FIELD(T_ToolFileData, ToolName);
    FIELD(T_ToolFileData, ToolKind);
    FIELD(T_ToolFileData, MarkerCount);
    FIELD(T_ToolFileData, MarkerPosition);
    FIELD(T_ToolFileData, TipSectionCount);
    FIELD(T_ToolFileData, TipPoint);
    FIELD(T_ToolFileData, TipAxisPoint);
    FIELD(T_ToolFileData, Reserved);
    END();

    RECORD(t_ToolBaseInfo);
    FIELD(t_ToolBaseInfo, ToolName);
    FIELD(t_ToolBaseInfo, ToolKind);
    FIELD(t_ToolBaseInfo, MarkerCount);
    END();

#define TOOL_RESULT_FIELDS(type)          \
    FIELD(type, ToolType);                \
    FIELD(type, ValidFlag);               \
    FIELD(type, ToolName);                \
    FIELD(type, MeanError);               \
    FIELD(type, ErrorSpread);             \
    FIELD(type, RotationVector);          \
    FIELD(type, Quaternion);              \
    FIELD(type, RotationMatrix);          \
    FIELD(type, Translation);             \
    FIELD(type, OriginCoordinate);        \
    FIELD(type, TipCoordinate);           \
    FIELD(type, TipAxisCoordinate);       \
    FIELD(type, ToolTipsLocal);           \
    FIELD(type, MatchedMarkerCount);      \
    FIELD(type, MatchedMarkerIndex)

    RECORD(T_VyxToolDataResult);
    TOOL_RESULT_FIELDS(T_VyxToolDataResult);
    FIELD(T_VyxToolDataResult, next);
    END();

    RECORD(T_VyxSingleToolDataResult);
    TOOL_RESULT_FIELDS(T_VyxSingleToolDataResult);
    END();

    RECORD(t_ToolTipCalProInfo);
    FIELD(t_ToolTipCalProInfo, calibratorFound);
    FIELD(t_ToolTipCalProInfo, toolFound);
    FIELD(t_ToolTipCalProInfo, frameAccepted);
    FIELD(t_ToolTipCalProInfo, finished);
    FIELD(t_ToolTipCalProInfo, meanError);
    FIELD(t_ToolTipCalProInfo, progress);
    FIELD(t_ToolTipCalProInfo, tipDistanceStdDev);
    END();

    RECORD(T_ToolTipPivotInfo);
    FIELD(T_ToolTipPivotInfo, toolFound);
    FIELD(T_ToolTipPivotInfo, finished);
    FIELD(T_ToolTipPivotInfo, progress);
    FIELD(T_ToolTipPivotInfo, pivotError);
    END();

    RECORD(T_ToolTipPivotQuality);
    FIELD(T_ToolTipPivotQuality, TipPoint);
    FIELD(T_ToolTipPivotQuality, PivotPoint);
    FIELD(T_ToolTipPivotQuality, RmsResidual);
    FIELD(T_ToolTipPivotQuality, MaxResidual);
    FIELD(T_ToolTipPivotQuality, OutlierCount);
    FIELD(T_ToolTipPivotQuality, PoseCount);
    FIELD(T_ToolTipPivotQuality, AngularSpreadDeg);
    FIELD(T_ToolTipPivotQuality, ShaftSpreadDeg);
    FIELD(T_ToolTipPivotQuality, SmallestSingularValue);
    FIELD(T_ToolTipPivotQuality, TipPrecision);
    FIELD(T_ToolTipPivotQuality, PivotPrecision);
    FIELD(T_ToolTipPivotQuality, Verdict);
    END();

    RECORD(T_RobotPosePair);
    FIELD(T_RobotPosePair, FlangeInBase);
    FIELD(T_RobotPosePair, ToolInTracker);
    END();

    RECORD(T_RobotCalibrationResult);
    FIELD(T_RobotCalibrationResult, TrackerToBase);
    FIELD(T_RobotCalibrationResult, ToolToFlange);
    FIELD(T_RobotCalibrationResult, RmsResidualMm);
    FIELD(T_RobotCalibrationResult, RmsResidualDeg);
    FIELD(T_RobotCalibrationResult, MaxResidualMm);
    FIELD(T_RobotCalibrationResult, MaxResidualDeg);
    FIELD(T_RobotCalibrationResult, PairCount);
    FIELD(T_RobotCalibrationResult, WorstPairIndex);
    END();

    RECORD(t_ToolFixProInfo);
    FIELD(t_ToolFixProInfo, frameUsed);
    FIELD(t_ToolFixProInfo, frameCounted);
    FIELD(t_ToolFixProInfo, frameCount);
    FIELD(t_ToolFixProInfo, finished);
    FIELD(t_ToolFixProInfo, meanError);
    END();

    RECORD(t_ToolMadeProInfo);
    FIELD(t_ToolMadeProInfo, madeFlag);
    FIELD(t_ToolMadeProInfo, progress);
    FIELD(t_ToolMadeProInfo, finished);
    FIELD(t_ToolMadeProInfo, meanError);
    END();

    RECORD(T_AccuracyToolResult);
    FIELD(T_AccuracyToolResult, ValidFlag);
    FIELD(T_AccuracyToolResult, PointCount);
    FIELD(T_AccuracyToolResult, MeanError);
    FIELD(T_AccuracyToolResult, RMSError);
    FIELD(T_AccuracyToolResult, MaxError);
    FIELD(T_AccuracyToolResult, PointError);
    FIELD(T_AccuracyToolResult, RotationMatrix);
    FIELD(T_AccuracyToolResult, Translation);
    FIELD(T_AccuracyToolResult, Length);
    FIELD(T_AccuracyToolResult, LengthError);
    FIELD(T_AccuracyToolResult, CollectedCount);
    END();

    RECORD(T_RecordingInfo);
    FIELD(T_RecordingInfo, Active);
    FIELD(T_RecordingInfo, LastError);
    FIELD(T_RecordingInfo, FramesRecorded);
    FIELD(T_RecordingInfo, FramesDropped);
    FIELD(T_RecordingInfo, BytesWritten);
    END();

    std::fprintf(out, "}\n");
    return std::fclose(out) == 0 ? 0 : 1;
}
