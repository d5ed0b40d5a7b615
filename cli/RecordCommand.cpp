// vyx record: marker and status frames into a recording file, for replay.
#include "cli/Commands.h"
#include "cli/Terminal.h"

#include <chrono>
#include <cstdio>

namespace vyx::cli {

int runRecord(const ConnectionOptions& connection, const RecordOptions& options) {
    Session session(connection, "workbench");
    const VyxHandle h = session.handle();
    session.startAcquisition();
    if (Vyx_StartRecording(h, options.file.c_str()) != RV_SUCCESS)
        throw CommandError("cannot record into " + options.file +
                           ": check that its directory exists and is writable");
    std::printf("Recording into %s%s\n", options.file.c_str(),
                options.seconds ? "" : " until Ctrl+C");

    LiveBlock view(stdoutIsTerminal());
    const auto start = std::chrono::steady_clock::now();
    auto nextShow = start;
    T_MarkerInfo markers{};
    T_RecordingInfo info{};
    bool endedEarly = false;
    for (;;) {
        const double elapsed =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (stopRequested() || (options.seconds && elapsed >= *options.seconds)) break;
        session.nextFrame(markers, 0.1);  // keeps the frames flowing to the host, too
        Vyx_GetRecordingInfo(h, &info);
        if (!info.Active) {  // the link was lost or the disk failed
            endedEarly = true;
            break;
        }
        if (std::chrono::steady_clock::now() < nextShow) continue;
        nextShow += std::chrono::seconds(1);
        view.show({format("%5.1f s  %llu frames  %llu dropped  %.2f MB", elapsed,
                          static_cast<unsigned long long>(info.FramesRecorded),
                          static_cast<unsigned long long>(info.FramesDropped),
                          static_cast<double>(info.BytesWritten) / 1e6)});
    }
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    Vyx_StopRecording(h);
    Vyx_GetRecordingInfo(h, &info);
    std::printf("Recorded %llu frames in %.1f s into %s (%.2f MB); %llu dropped\n",
                static_cast<unsigned long long>(info.FramesRecorded), seconds, options.file.c_str(),
                static_cast<double>(info.BytesWritten) / 1e6,
                static_cast<unsigned long long>(info.FramesDropped));
    if (info.LastError != 0)
        throw CommandError("writing " + options.file + " failed (result " +
                           std::to_string(info.LastError) +
                           "): the file is whole up to the failure; free disk space and record again");
    if (endedEarly)
        throw CommandError("the link to the tracker was lost; the recording ends there and "
                           "replays up to that point");
    if (info.FramesRecorded == 0)
        throw CommandError("no frames arrived: check that the tracker is sending");
    return 0;
}

}  // namespace vyx::cli
