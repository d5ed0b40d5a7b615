// vyx info: what the tracker says about itself.
#include "cli/Commands.h"
#include "cli/Terminal.h"

#include <cstdio>

namespace vyx::cli {
namespace {

std::string hardwareCheckText(std::uint32_t code) {
    switch (code) {
        case 0: return "healthy";
        case 1: case 3: case 5:
            return format("check %u failed: sensor %u reads below its range", code, (code + 1) / 2);
        case 2: case 4: case 6:
            return format("check %u failed: sensor %u reads above its range", code, code / 2);
        case 7: return "check 7 failed: the device reports a hardware fault";
        default: return format("unknown code %u", code);
    }
}

}  // namespace

int runInfo(const ConnectionOptions& connection) {
    Session session(connection, "workbench");
    const VyxHandle h = session.handle();
    const T_VYXPOS_DATAPARA& d = session.device();
    T_ManufactureInfo made{};
    check(Vyx_GetManufactureInfo(h, session.link(), &made), "reading the manufacture record");
    char mac[32] = {0};
    Vyx_GetVyxPositonMacAddress(h, mac);
    unsigned char ip[4] = {0, 0, 0, 0};
    Vyx_GetVyxPositionIP(h, session.link(), &ip[0], &ip[1], &ip[2], &ip[3]);

    std::printf("model             %.*s (model index %u)\n", static_cast<int>(made.DeviceModelLength),
                made.DeviceModel, d.DeviceType);
    std::printf("grey images       %u x %u, %u byte per pixel\n", d.MarkerImageWidth,
                d.MarkerImageHeight, d.MarkerImagePixelBytes);
    std::printf("colour image      %u x %u, %u bytes per pixel\n", d.ColorImageWidth,
                d.ColorImageHeight, d.ColorImagePixelBytes);
    std::printf("manufactured      %04u-%02u-%02u\n", made.ManufactureYear, made.ManufactureMonth,
                made.ManufactureDay);
    std::printf("MAC address       %s\n", mac);
    std::printf("device IP         %u.%u.%u.%u\n", ip[0], ip[1], ip[2], ip[3]);

    session.startAcquisition();
    T_MarkerInfo markers{};
    T_VyxPosStatusInfo status{};
    if (!session.nextFrame(markers, 3.0) ||
        Vyx_GetStatusInfo(h, session.link(), &status) != RV_SUCCESS) {
        std::printf("status            no frame within 3 s\n");
        return 1;
    }
    std::printf("temperatures      %.2f and %.2f degrees C\n", status.Temperature0,
                status.Temperature1);
    std::printf("link state        %u\n", status.LinkState);
    std::printf("hardware check    %s\n", hardwareCheckText(status.HardwareCheck).c_str());
    std::printf("markers in view   %u\n", markers.MarkerNumber);
    return 0;
}

}  // namespace vyx::cli
