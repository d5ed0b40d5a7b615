// Handle lifecycle and connection.
#include "api/ApiGuard.h"

#include <new>

using namespace vyx::api;

extern "C" {

VYX_API const char* Vyx_API_GetLibVersion(void) { return kLibraryVersionText; }

VYX_API int Vyx_API_Initial(VyxHandle* handle) {
    if (handle == nullptr) return RV_FAILED;
    if (*handle != nullptr) return RV_ALREADY_INITIALISED;
    VyxPosFunc* engine = nullptr;
    try {
        engine = new VyxPosFunc();
        registerEngine(engine);
    } catch (...) {
        // Thread creation or allocation failed: nothing is left behind.
        delete engine;
        return RV_FAILED;
    }
    *handle = engine;
    return RV_SUCCESS;
}

VYX_API int Vyx_API_Close(VyxHandle* handle) {
    if (handle == nullptr) return RV_NULL_HANDLE;
    VyxPosFunc* engine = engineFrom(*handle);
    if (engine == nullptr) return RV_NULL_HANDLE;
    unregisterEngine(engine);
    delete engine;
    *handle = nullptr;
    return RV_SUCCESS;
}

VYX_API int Vyx_ConnectDevice(VyxHandle handle, E_Interface iface, T_VYXPOS_DATAPARA* para) {
    if (para == nullptr) return RV_FAILED;
    // Written first, whatever follows: a failed connect leaves "no known model".
    para->DeviceType = kUnknownModelIndex;
    VyxPosFunc* engine = engineFrom(handle);
    if (engine == nullptr) return RV_NULL_HANDLE;
    return callLocked(*engine, [&](VyxPosFunc& e) {
        int result = RV_SUCCESS;
        switch (iface) {
            case Interface_USB: result = e.Zelmor_USB_Initialize(); break;
            case Interface_Ethernet: result = e.Zelmor_ETHERNET_Initialize(); break;
            case Interface_WiFi: result = e.Zelmor_WIFI_Initialize(); break;
            default: break;  // any other value connects without opening a link
        }
        if (result != RV_SUCCESS) {
            e.connected.store(false, std::memory_order_relaxed);
            return result;
        }
        e.Zelmor_SetPosDevPara(*para);
        e.connected.store(true, std::memory_order_relaxed);
        return static_cast<int>(RV_SUCCESS);
    });
}

}  // extern "C"
