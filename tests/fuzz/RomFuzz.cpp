// ROM tool files: any bytes. The reader refuses without touching its output;
// whatever it accepts converts into a tool file that reads back with the
// same name and markers.
#include "FuzzSupport.h"

#include "tools/RomConversion.h"
#include "tools/ToolFile.h"

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace {

// A scratch directory of this process, for the converter's output.
const std::filesystem::path& scratch() {
    static const std::filesystem::path dir = [] {
        char pattern[] = "/tmp/vyx_conversion_XXXXXX";
        FUZZ_CHECK(::mkdtemp(pattern) != nullptr);
        return std::filesystem::path(pattern);
    }();
    return dir;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const vyx::fuzz::InputFile input(data, size);
    RomToolContent content;
    content.toolName = "untouched";
    const bool withVectors = size % 2 == 1;
    if (!readRomToolFile(input.path().c_str(), content, withVectors)) {
        FUZZ_CHECK(content.toolName == "untouched" && content.markerPositions.empty());
        return 0;
    }
    FUZZ_CHECK(content.markerCount >= 1 && content.markerCount <= 200);
    FUZZ_CHECK(content.markerPositions.size() == 3u * static_cast<std::size_t>(content.markerCount));
    FUZZ_CHECK(content.markerVectors.size() == (withVectors ? content.markerPositions.size() : 0u));
    for (float v : content.markerPositions) FUZZ_CHECK(std::isfinite(v));

    const std::filesystem::path rom = scratch() / "tool.rom";
    std::ofstream(rom, std::ios::binary).write(reinterpret_cast<const char*>(data), static_cast<long>(size));
    FUZZ_CHECK(convertRomToToolFile(rom.c_str()) == 0);
    ToolFileContent converted;
    FUZZ_CHECK(readToolFile(convertedToolFilePath(rom).c_str(), converted));
    FUZZ_CHECK(converted.toolName == content.toolName && converted.markerCount == content.markerCount);
    return 0;
}
