/* The public headers compile as plain C, lay the records out as the library
 * does, and a C program can drive the handle lifecycle. */
#include "VyxPositionAPI.h"

#include <stddef.h>
#include <stdio.h>
#include <string.h>

_Static_assert(sizeof(T_MarkerInfo) == 6424, "T_MarkerInfo size as seen from C");
_Static_assert(offsetof(T_MarkerInfo, OverLimitFlag) == 5612, "T_MarkerInfo.OverLimitFlag");
_Static_assert(sizeof(T_VyxPosStatusInfo) == 36, "T_VyxPosStatusInfo size as seen from C");
_Static_assert(sizeof(T_ManufactureInfo) == 26, "T_ManufactureInfo size as seen from C");
_Static_assert(sizeof(T_VYXPOS_DATAPARA) == 48, "T_VYXPOS_DATAPARA size as seen from C");
_Static_assert(sizeof(T_ToolFileData) == 2892, "T_ToolFileData size as seen from C");
_Static_assert(sizeof(t_ToolBaseInfo) == 16, "t_ToolBaseInfo size as seen from C");
_Static_assert(sizeof(T_VyxToolDataResult) == 1168, "T_VyxToolDataResult size as seen from C");
_Static_assert(sizeof(T_VyxSingleToolDataResult) == 1156, "flat result size as seen from C");
_Static_assert(sizeof(t_ToolTipCalProInfo) == 16, "t_ToolTipCalProInfo size as seen from C");
_Static_assert(sizeof(T_ToolTipPivotInfo) == 12, "T_ToolTipPivotInfo size as seen from C");
_Static_assert(sizeof(T_ToolTipPivotQuality) == 88, "T_ToolTipPivotQuality size as seen from C");
_Static_assert(sizeof(T_RobotPosePair) == 192, "T_RobotPosePair size as seen from C");
_Static_assert(sizeof(T_RobotCalibrationResult) == 232, "T_RobotCalibrationResult size as seen from C");
_Static_assert(offsetof(T_RobotCalibrationResult, WorstPairIndex) == 228,
               "T_RobotCalibrationResult.WorstPairIndex");
_Static_assert(sizeof(t_ToolFixProInfo) == 16, "t_ToolFixProInfo size as seen from C");
_Static_assert(sizeof(t_ToolMadeProInfo) == 16, "t_ToolMadeProInfo size as seen from C");
_Static_assert(sizeof(E_Interface) == 4 && sizeof(E_DataType) == 4, "enumerations are 32-bit");

/* The library's own version text; a record filled across the boundary (a
 * connect with a null handle still writes "no known model"); a handle created
 * and closed from C. */
int main(void) {
    VyxHandle handle = NULL;
    T_VYXPOS_DATAPARA para;
    memset(&para, 0, sizeof para);
    const int version = strcmp(Vyx_API_GetLibVersion(),
                               "API-V2.3.5 for Linux / Opencv4.7.0 update version / 2025-1-20");
    const int connect = Vyx_ConnectDevice(NULL, Interface_Ethernet, &para);
    const int initial = Vyx_API_Initial(&handle);
    const int closed = Vyx_API_Close(&handle);
    const int failures = (version != 0) + (connect != RV_NULL_HANDLE) + (para.DeviceType != 100) +
                         (initial != RV_SUCCESS) + (closed != RV_SUCCESS) + (handle != NULL);
    printf("version %d, connect %d, device type %u, initial %d, close %d, handle %s\n",
           version, connect, (unsigned)para.DeviceType, initial, closed,
           handle == NULL ? "cleared" : "kept");
    printf("%d passed, %d failed\n", 6 - failures, failures);
    return failures == 0 ? 0 : 1;
}
