// Opening the USB link. The transport is not available in this build:
// opening it fails, and calls addressed to it answer "not open".
#include "engine/VyxPosFunc.h"

int VyxPosFunc::Zelmor_USB_Initialize() { return RV_FAILED; }
