// Device-link operations of the engine that the link layer does not provide
// yet. Each answers RV_FAILED until its transport and frame handling land.
#include "engine/VyxPosFunc.h"

int VyxPosFunc::Zelmor_USB_Initialize() { return RV_FAILED; }
int VyxPosFunc::Zelmor_WIFI_Initialize() { return RV_FAILED; }
int VyxPosFunc::Zelmor_GetMarkerInfo(E_Interface, T_MarkerInfo&) { return RV_FAILED; }
int VyxPosFunc::Zelmor_GetMarkerAndStatusByTrig(E_Interface, T_MarkerInfo&, T_VyxPosStatusInfo&) {
    return RV_FAILED;
}
int VyxPosFunc::Zelmor_GetMarkerStatusAndImageByTrig(E_Interface, T_MarkerInfo&,
                                                     T_VyxPosStatusInfo&, char*, char*) {
    return RV_FAILED;
}
int VyxPosFunc::Zelmor_GetColorImageFromHardware(E_Interface, char*) { return RV_FAILED; }
int VyxPosFunc::Zelmor_GetGreyImageFromHardware(E_Interface, char*, char*) { return RV_FAILED; }
int VyxPosFunc::Zelmor_Calculate3DPoints(float*, int, float*, int, T_MarkerInfo&) {
    return RV_FAILED;
}
int VyxPosFunc::Zelmor_SetColineThreshold(E_Interface, int) { return RV_FAILED; }
