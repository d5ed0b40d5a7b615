// Device-link operations of the engine that the link layer does not provide
// yet. Each answers RV_FAILED until its transport and frame handling land.
#include "engine/VyxPosFunc.h"

int VyxPosFunc::Zelmor_USB_Initialize() { return RV_FAILED; }
int VyxPosFunc::Zelmor_WIFI_Initialize() { return RV_FAILED; }
