// vyx tools: the tool library without a tracker.
#include "cli/Commands.h"
#include "cli/Terminal.h"

#include <cstdio>
#include <filesystem>
#include <vector>

namespace vyx::cli {
namespace {

// An engine without a device, for the tool library. The tool calls answer
// only on a connected handle; connecting to a transport value beyond the
// three links marks the engine connected without opening any link.
class OfflineHandle {
public:
    OfflineHandle() {
        check(Vyx_API_Initial(&handle_), "Vyx_API_Initial");
        T_VYXPOS_DATAPARA para{};
        Vyx_ConnectDevice(handle_, static_cast<E_Interface>(3), &para);
    }
    ~OfflineHandle() { Vyx_API_Close(&handle_); }
    OfflineHandle(const OfflineHandle&) = delete;
    OfflineHandle& operator=(const OfflineHandle&) = delete;
    VyxHandle get() const { return handle_; }

private:
    VyxHandle handle_ = nullptr;
};

std::string withSlash(std::string directory) {
    if (!directory.empty() && directory.back() != '/') directory += '/';
    return directory;
}

std::string point(const float* p) { return format("%8.2f %8.2f %8.2f", p[0], p[1], p[2]); }

// Why a tool file is refused, as far as the file shows it.
std::string refusalReason(const std::string& file) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error)) return "no such file";
    if (std::filesystem::path(file).extension() != ".vyxtool")
        return "not a .vyxtool file (convert ROM files with 'vyx tools convert')";
    return "malformed: a name line, the kind T or C, the marker count (3 to 200), one 'x y z "
           "mask' line per marker, then '2' and the tip and second tip-section points";
}

}  // namespace

int runToolsList(const std::string& toolDirectory) {
    OfflineHandle h;
    loadToolDirectory(h.get(), toolDirectory);
    const std::vector<std::string> names = toolNames(h.get());
    if (names.empty()) {
        std::printf("no tools in %s\n", toolDirectory.c_str());
        return 0;
    }
    std::printf("%-20s %-10s %7s   %-26s\n", "name", "kind", "markers", "tip (tool frame, mm)");
    for (const std::string& name : names) {
        T_ToolFileData data{};
        const std::string file = withSlash(toolDirectory) + name + ".vyxtool";
        if (Vyx_CheckToolFile(h.get(), file.c_str(), &data) != RV_SUCCESS) {
            std::printf("%-20s (its file is not named after it)\n", name.c_str());
            continue;
        }
        std::printf("%-20s %-10s %7d   %s\n", name.c_str(),
                    data.ToolKind == 'C' ? "calibrator" : "tool", data.MarkerCount,
                    point(data.TipPoint).c_str());
    }
    return 0;
}

int runToolsCheck(const std::string& file) {
    OfflineHandle h;
    T_ToolFileData data{};
    if (Vyx_CheckToolFile(h.get(), file.c_str(), &data) != RV_SUCCESS) {
        std::fprintf(stderr, "vyx: %s is refused: %s\n", file.c_str(), refusalReason(file).c_str());
        return 1;
    }
    std::printf("%s: valid\n", file.c_str());
    std::printf("  name        %s\n", data.ToolName);
    std::printf("  kind        %s\n", data.ToolKind == 'C' ? "calibrator" : "tool");
    std::printf("  markers     %d\n", data.MarkerCount);
    for (int i = 0; i < data.MarkerCount && i < VYX_MAX_MARKERS; ++i)
        std::printf("    %2d   %s\n", i, point(data.MarkerPosition[i]).c_str());
    std::printf("  tip         %s\n", point(data.TipPoint).c_str());
    std::printf("  tip axis    %s\n", point(data.TipAxisPoint).c_str());
    return 0;
}

int runToolsConvert(const std::string& romFile, const std::string& directory) {
    namespace fs = std::filesystem;
    OfflineHandle h;
    if (Vyx_ConvertNDIrom2Vyxtool(h.get(), romFile.c_str()) != RV_SUCCESS)
        throw CommandError("cannot convert " + romFile +
                           ": it is not a readable ROM tool file, or its directory is not "
                           "writable");
    // The library writes the tool file next to the ROM file.
    fs::path written = romFile;
    written.replace_extension(".vyxtool");
    if (!directory.empty()) {
        std::error_code error;
        fs::create_directories(directory, error);
        const fs::path target = fs::path(directory) / written.filename();
        fs::rename(written, target, error);
        if (error) {
            fs::copy_file(written, target, fs::copy_options::overwrite_existing, error);
            if (!error) fs::remove(written, error);
        }
        if (error)
            throw CommandError("converted, but cannot move " + written.string() + " into " +
                               directory + ": " + error.message());
        written = target;
    }
    std::printf("converted %s into %s\n", romFile.c_str(), written.string().c_str());
    return 0;
}

}  // namespace vyx::cli
