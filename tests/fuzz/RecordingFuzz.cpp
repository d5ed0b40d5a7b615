// Recording files: any bytes. Refused with RecordingError and nothing else;
// an accepted recording holds only records of the right size for their type,
// and a replay of it serves its frames or refuses it.
#include "FuzzSupport.h"

#include "device/RecordingFormat.h"
#include "sim/Replay.h"

using namespace vyx::device;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const vyx::fuzz::InputFile input(data, size);
    Recording recording;
    try {
        recording = readRecording(input.path());
    } catch (const RecordingError& e) {
        FUZZ_CHECK(e.offset() <= size);
        return 0;
    }
    FUZZ_CHECK(recording.link >= 0 && recording.link <= 2);
    FUZZ_CHECK(!recording.truncatedAt || *recording.truncatedAt < size);
    for (const RecordingRecord& r : recording.records)
        FUZZ_CHECK(payloadSizeFits(r.type, recording.link, r.payload.size()));
    try {
        vyx::sim::Replay replay(input.path());
        FUZZ_CHECK(replay.frameCount() >= 1);
        auto source = replay.frameSource({0.0, false, {}});
        for (std::uint64_t i = 0; i < 3; ++i) source(i);
    } catch (const RecordingError&) {
    }
    return 0;
}
