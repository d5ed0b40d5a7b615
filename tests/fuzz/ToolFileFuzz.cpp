// Tool files as text: any bytes. A refused file leaves the caller's content
// as it was; an accepted one holds a usable constellation.
#include "FuzzSupport.h"

#include "tools/ToolFile.h"

#include <cmath>
#include <sstream>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
    ToolFileContent content;
    content.toolName = "untouched";
    content.markerCount = -7;
    content.markerPositions = {1.5f};
    if (!parseToolStream(in, content)) {
        FUZZ_CHECK(content.toolName == "untouched" && content.markerCount == -7 &&
                   content.markerPositions.size() == 1 && content.markerPositions[0] == 1.5f);
        return 0;
    }
    FUZZ_CHECK(content.markerCount >= 1 && content.markerCount <= 200);
    FUZZ_CHECK(content.markerPositions.size() == 3u * static_cast<std::size_t>(content.markerCount));
    FUZZ_CHECK(!content.toolName.empty());
    const auto record = makeToolRecord(content, "fuzz.vyxtool");
    FUZZ_CHECK(record != nullptr);
    return 0;
}
