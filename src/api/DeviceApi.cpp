// Acquisition, images, status and device settings.
#include "api/ApiGuard.h"

using namespace vyx::api;

extern "C" {

VYX_API int Vyx_SetAcquireMode(VyxHandle handle, E_Interface iface, E_AcquireMode mode) {
    return connectedCall(handle, [&](VyxPosFunc& e) { return e.Zelmor_SetAcquireMode(iface, mode); });
}

VYX_API int Vyx_GetMarkerAndStatusFromHardware(VyxHandle handle, E_Interface iface,
                                               T_MarkerInfo* markers, T_VyxPosStatusInfo* status) {
    return connectedCall(handle, markers != nullptr && status != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_GetMarkerAndStatusByTrig(iface, *markers, *status);
    });
}

VYX_API int Vyx_GetMarkerStatusAndGreyImageFromHardware(VyxHandle handle, E_Interface iface,
                                                        T_MarkerInfo* markers,
                                                        T_VyxPosStatusInfo* status,
                                                        char* leftImage, char* rightImage) {
    const bool valid = markers != nullptr && status != nullptr && leftImage != nullptr &&
                       rightImage != nullptr;
    return connectedCall(handle, valid, [&](VyxPosFunc& e) {
        return e.Zelmor_GetMarkerStatusAndImageByTrig(iface, *markers, *status, leftImage,
                                                      rightImage);
    });
}

VYX_API int Vyx_GetColorImageFromHardware(VyxHandle handle, E_Interface iface, char* image) {
    return connectedCall(handle, image != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_GetColorImageFromHardware(iface, image);
    });
}

VYX_API int Vyx_GetGreyImageFromHardware(VyxHandle handle, E_Interface iface, char* leftImage,
                                         char* rightImage) {
    return connectedCall(handle, leftImage != nullptr && rightImage != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_GetGreyImageFromHardware(iface, leftImage, rightImage);
    });
}

VYX_API int Vyx_SetAcquireData(VyxHandle handle, E_Interface iface, E_DataType type) {
    return connectedCall(handle, [&](VyxPosFunc& e) { return e.Zelmor_SetAcquireData(iface, type); });
}

VYX_API int Vyx_GetGreyImageDual(VyxHandle handle, E_Interface iface, char* leftImage,
                                 char* rightImage) {
    return connectedCall(handle, leftImage != nullptr && rightImage != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_GetGreyImageDual(iface, leftImage, rightImage);
    });
}

VYX_API int Vyx_GetColorImageMiddle(VyxHandle handle, E_Interface iface, char* image) {
    return connectedCall(handle, image != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_GetColorImageMiddle(iface, image);
    });
}

VYX_API int Vyx_GetMarkerInfo(VyxHandle handle, E_Interface iface, T_MarkerInfo* markers) {
    return connectedCall(handle, markers != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_GetMarkerInfo(iface, *markers);
    });
}

VYX_API int Vyx_GetStatusInfo(VyxHandle handle, E_Interface iface, T_VyxPosStatusInfo* status) {
    return connectedCall(handle, status != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_GetStatusInfo(iface, *status);
    });
}

VYX_API int Vyx_GetManufactureInfo(VyxHandle handle, E_Interface iface, T_ManufactureInfo* info) {
    return connectedCall(handle, info != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_GetManufactureInfo(iface, *info);
    });
}

VYX_API int Vyx_SetSystemCommand(VyxHandle handle, E_Interface iface, E_SystemCommand command) {
    return connectedCall(handle, [&](VyxPosFunc& e) { return e.Zelmor_SetSystemCommand(iface, command); });
}

VYX_API int Vyx_SetDualExpTime(VyxHandle handle, E_Interface iface, int exposure) {
    return connectedCall(handle, [&](VyxPosFunc& e) { return e.Zelmor_SetDualExpTime(iface, exposure); });
}

VYX_API int Vyx_SetDualExpTimeByDistance(VyxHandle handle, E_Interface iface, int distanceMm) {
    return connectedCall(handle, [&](VyxPosFunc& e) {
        return e.Zelmor_SetDualExpTimeByDistance(iface, distanceMm);
    });
}

VYX_API int Vyx_SetFlashDelay(VyxHandle handle, E_Interface iface, int firstDelay, int secondDelay) {
    return connectedCall(handle, [&](VyxPosFunc& e) {
        return e.Zelmor_SetFlashDelay(iface, firstDelay, secondDelay);
    });
}

VYX_API int Vyx_SetColorExpTime(VyxHandle handle, E_Interface iface, int exposure) {
    return connectedCall(handle, [&](VyxPosFunc& e) { return e.Zelmor_SetColorExpTime(iface, exposure); });
}

VYX_API int Vyx_SetCollisinoDetectLevel(VyxHandle handle, E_Interface iface, unsigned char level) {
    return connectedCall(handle, [&](VyxPosFunc& e) {
        return e.Zelmor_SetCollisionDetectLevel(iface, level);
    });
}

VYX_API int Vyx_SetVyxPositionIP(VyxHandle handle, E_Interface iface, unsigned char a,
                                 unsigned char b, unsigned char c, unsigned char d) {
    return connectedCall(handle, [&](VyxPosFunc& e) {
        return e.Zelmor_SetVyxPositionIP(iface, a, b, c, d);
    });
}

VYX_API int Vyx_GetVyxPositionIP(VyxHandle handle, E_Interface /*iface*/, unsigned char* a,
                                 unsigned char* b, unsigned char* c, unsigned char* d) {
    const bool valid = a != nullptr && b != nullptr && c != nullptr && d != nullptr;
    return connectedCall(handle, valid, [&](VyxPosFunc& e) {
        return e.Zelmor_GetVyxPositionIP(*a, *b, *c, *d);
    });
}

VYX_API int Vyx_SetEthernetConnectIP(VyxHandle handle, unsigned char a, unsigned char b,
                                     unsigned char c, unsigned char d) {
    return lockedCall(handle, [&](VyxPosFunc& e) { return e.Zelmor_SetEthernetConnectIP(a, b, c, d); });
}

VYX_API int Vyx_GetEthernetConnectIP(VyxHandle handle, unsigned char* a, unsigned char* b,
                                     unsigned char* c, unsigned char* d) {
    const bool valid = a != nullptr && b != nullptr && c != nullptr && d != nullptr;
    return lockedCall(handle, valid, [&](VyxPosFunc& e) {
        return e.Zelmor_GetEthernetConnectIP(*a, *b, *c, *d);
    });
}

VYX_API int Vyx_SetEthernetConnectPort(VyxHandle handle, unsigned short port) {
    return lockedCall(handle, [&](VyxPosFunc& e) { return e.Zelmor_SetEthernetConnectPort(port); });
}

VYX_API int Vyx_GetEthernetConnectPort(VyxHandle handle, unsigned short* port) {
    return lockedCall(handle, port != nullptr, [&](VyxPosFunc& e) {
        std::uint16_t value = 0;
        const int rc = e.Zelmor_GetEthernetConnectPort(value);
        *port = value;
        return rc;
    });
}

VYX_API int Vyx_SetWifiConnectAddress(VyxHandle handle, unsigned char a, unsigned char b,
                                      unsigned char c, unsigned char d, unsigned short port) {
    return lockedCall(handle, [&](VyxPosFunc& e) {
        return e.Zelmor_SetWifiConnectAddress(a, b, c, d, port);
    });
}

VYX_API int Vyx_GetWifiConnectAddress(VyxHandle handle, unsigned char* a, unsigned char* b,
                                      unsigned char* c, unsigned char* d, unsigned short* port) {
    const bool valid = a != nullptr && b != nullptr && c != nullptr && d != nullptr && port != nullptr;
    return lockedCall(handle, valid, [&](VyxPosFunc& e) {
        std::uint16_t value = 0;
        const int rc = e.Zelmor_GetWifiConnectAddress(*a, *b, *c, *d, value);
        *port = value;
        return rc;
    });
}

VYX_API int Vyx_SetLCDShowRawPoint(VyxHandle handle, E_Interface iface, bool show) {
    return connectedCall(handle, [&](VyxPosFunc& e) { return e.Zelmor_SetLCDShowRawPoint(iface, show); });
}

VYX_API int Vyx_SetMarkerParameters(VyxHandle handle, E_Interface iface, int a, int b, int c, int d,
                                    int e5) {
    return connectedCall(handle, [&](VyxPosFunc& e) {
        return e.Zelmor_SetMarkerParameters(iface, a, b, c, d, e5);
    });
}

VYX_API int Vyx_GetVyxPositonMacAddress(VyxHandle handle, char* text) {
    return connectedCall(handle, text != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_GetVyxPositonMacAddress(text);
    });
}

VYX_API int Vyx_Calculate3DPoints(VyxHandle handle, float* leftPoints, int leftCount,
                                  float* rightPoints, int rightCount, T_MarkerInfo* markers) {
    return connectedCall(handle, markers != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_Calculate3DPoints(leftPoints, leftCount, rightPoints, rightCount, *markers);
    });
}

VYX_API int Vyx_SetColineThreshold(VyxHandle handle, E_Interface iface, int threshold) {
    return connectedCall(handle, [&](VyxPosFunc& e) {
        return e.Zelmor_SetColineThreshold(iface, threshold);
    });
}

}  // extern "C"
