// Scene files of the virtual tracker: any text. Refused with SceneFileError
// and nothing else; an accepted scene writes back to text that reads back to
// the same scene.
#include "FuzzSupport.h"

#include "sim/SceneFile.h"

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    vyx::sim::Scene scene;
    try {
        scene = vyx::sim::parseScene(std::string(reinterpret_cast<const char*>(data), size));
    } catch (const vyx::sim::SceneFileError&) {
        return 0;
    }
    const std::string text = vyx::sim::formatScene(scene);
    std::string again;
    try {
        again = vyx::sim::formatScene(vyx::sim::parseScene(text));
    } catch (const vyx::sim::SceneFileError& e) {
        std::fprintf(stderr, "written scene refused: %s\n%s", e.what(), text.c_str());
        FUZZ_CHECK(false);
    }
    FUZZ_CHECK(again == text);
    return 0;
}
