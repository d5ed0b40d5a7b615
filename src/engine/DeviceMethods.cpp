// Opening the USB and Wi-Fi links. Neither transport is available in this
// build: opening one fails, and calls addressed to them answer "not open".
#include "engine/VyxPosFunc.h"

int VyxPosFunc::Zelmor_USB_Initialize() { return RV_FAILED; }
int VyxPosFunc::Zelmor_WIFI_Initialize() { return RV_FAILED; }
