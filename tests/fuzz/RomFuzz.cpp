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
#include <string>
#include <system_error>

namespace {

// A scratch directory of this process for the converter's output, removed at
// exit; in memory where the system has /dev/shm, which runs about three times
// faster than a disk.
struct Scratch {
    std::filesystem::path dir;
    Scratch() {
        std::string pattern = std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : "/tmp";
        pattern += "/vyx_conversion_XXXXXX";
        FUZZ_CHECK(::mkdtemp(pattern.data()) != nullptr);
        dir = pattern;
    }
    ~Scratch() {
        std::error_code ignored;
        std::filesystem::remove_all(dir, ignored);
    }
};

const std::filesystem::path& scratch() {
    static const Scratch scratch;
    return scratch.dir;
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
