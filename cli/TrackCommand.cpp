// vyx track: a live table of the tools, and optionally every frame as CSV
// and a recording of the session.
#include "cli/Commands.h"
#include "cli/Terminal.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <deque>
#include <map>
#include <memory>
#include <vector>

namespace vyx::cli {
namespace {

using Clock = std::chrono::steady_clock;

struct ToolRow {
    bool seen = false;
    T_VyxToolDataResult result{};
};

std::string xyz(const float* v) { return format("%8.2f %8.2f %8.2f", v[0], v[1], v[2]); }

// The rotation as a rotation vector in degrees: its direction the axis, its
// length the angle.
std::string rotationDegrees(const float* rv) {
    const double k = 180.0 / 3.14159265358979;
    return format("%7.2f %7.2f %7.2f", rv[0] * k, rv[1] * k, rv[2] * k);
}

// One CSV file: a row per marker and per tool of every frame.
class CsvWriter {
public:
    explicit CsvWriter(const std::string& path) : file_(std::fopen(path.c_str(), "w")) {
        if (!file_) throw CommandError("cannot write " + path + ": check the directory exists");
        std::fputs("time_s,frame,kind,name,seen,x,y,z,qw,qx,qy,qz,tip_x,tip_y,tip_z,error_mm\n",
                   file_.get());
    }
    void marker(double t, std::uint32_t frame, std::uint32_t index, const double* p) {
        std::fprintf(file_.get(), "%.6f,%u,marker,%u,1,%.6f,%.6f,%.6f,,,,,,,,\n", t, frame, index,
                     p[0], p[1], p[2]);
    }
    void tool(double t, std::uint32_t frame, const std::string& name, const ToolRow& row) {
        if (!row.seen) {
            std::fprintf(file_.get(), "%.6f,%u,tool,%s,0,,,,,,,,,,,\n", t, frame, name.c_str());
            return;
        }
        const T_VyxToolDataResult& r = row.result;
        std::fprintf(file_.get(),
                     "%.6f,%u,tool,%s,1,%.6f,%.6f,%.6f,%.6f,%.6f,%.6f,%.6f,%.6f,%.6f,%.6f,%.6f\n", t,
                     frame, name.c_str(), r.Translation[0], r.Translation[1], r.Translation[2],
                     r.Quaternion[0], r.Quaternion[1], r.Quaternion[2], r.Quaternion[3],
                     r.TipCoordinate[0], r.TipCoordinate[1], r.TipCoordinate[2], r.MeanError);
    }

private:
    struct Closer {
        void operator()(std::FILE* f) const { std::fclose(f); }
    };
    std::unique_ptr<std::FILE, Closer> file_;
};

}  // namespace

int runTrack(const ConnectionOptions& connection, const TrackOptions& options) {
    Session session(connection, "workbench");
    const VyxHandle h = session.handle();
    const std::vector<std::string> library = toolNames(h);
    const std::vector<std::string> names = options.tools.empty() ? library : options.tools;
    for (const std::string& name : names)
        if (std::find(library.begin(), library.end(), name) == library.end())
            throw CommandError("no tool '" + name + "' in " + connection.toolDirectory +
                               " ('vyx tools list' shows the library)");
    if (!options.reference.empty() && Vyx_SetReferenceTool(h, options.reference.c_str()) != RV_SUCCESS)
        throw CommandError("no tool '" + options.reference + "' to use as the reference");

    std::unique_ptr<CsvWriter> csv;
    if (!options.csvFile.empty()) csv = std::make_unique<CsvWriter>(options.csvFile);
    session.startAcquisition();
    if (!options.recordFile.empty())
        check(Vyx_StartRecording(h, options.recordFile.c_str()), "starting the recording into " + options.recordFile);

    const bool terminal = stdoutIsTerminal();
    LiveBlock view(terminal);
    const auto start = Clock::now();
    auto nextDraw = start;
    std::deque<Clock::time_point> recent;  // frame arrivals of the last second
    std::map<std::string, ToolRow> rows;
    T_MarkerInfo markers{};
    T_VyxPosStatusInfo status{};
    std::uint64_t frames = 0;
    T_VyxToolDataResult first{};
    bool stalled = false;

    const auto elapsed = [&] { return std::chrono::duration<double>(Clock::now() - start).count(); };
    while (!stopRequested() && (!options.seconds || elapsed() < *options.seconds)) {
        if (!session.nextFrame(markers, 0.2)) {
            if (stopRequested()) break;
            stalled = std::chrono::duration<double>(Clock::now() - (recent.empty() ? start : recent.back())).count() > 3.0;
            if (stalled) break;
            continue;
        }
        const auto now = Clock::now();
        ++frames;
        recent.push_back(now);
        while (!recent.empty() && now - recent.front() > std::chrono::seconds(1)) recent.pop_front();
        Vyx_GetStatusInfo(h, session.link(), &status);

        for (auto& [name, row] : rows) row.seen = false;
        first = T_VyxToolDataResult{};
        if (!names.empty() &&
            Vyx_FindSpecificToolInfo(h, &markers, names, &first, 0) == RV_SUCCESS) {
            for (const T_VyxToolDataResult* r = &first; r != nullptr; r = r->next)
                if (r->ValidFlag) rows[r->ToolName] = ToolRow{true, *r};
        }
        const double t = std::chrono::duration<double>(now - start).count();
        if (csv) {
            for (std::uint32_t i = 0; i < markers.MarkerNumber && i < VYX_MAX_MARKERS; ++i)
                csv->marker(t, markers.ID, i, markers.MarkerCoordinate[i]);
            for (const std::string& name : names) csv->tool(t, markers.ID, name, rows[name]);
        }
        if (now < nextDraw) continue;
        nextDraw = now + (terminal ? std::chrono::milliseconds(100) : std::chrono::seconds(1));
        std::vector<std::string> lines;
        lines.push_back(format("%5.1f s  frame %u  %zu frames/s  %u markers  %.1f degrees C%s",
                               t, markers.ID, recent.size(), markers.MarkerNumber, status.Temperature1,
                               options.reference.empty() ? "" : ("  in " + options.reference + "'s frame").c_str()));
        lines.push_back(format("%-14s %-4s %-26s %-26s %-23s %8s", "tool", "seen", "tip x y z (mm)",
                               "position x y z (mm)", "rotation vector (deg)", "error mm"));
        for (const std::string& name : names) {
            const ToolRow& row = rows[name];
            if (!row.seen) {
                lines.push_back(format("%-14s %-4s", name.c_str(), "no"));
                continue;
            }
            lines.push_back(format("%-14s %-4s %-26s %-26s %-23s %8.3f", name.c_str(), "yes",
                                   xyz(row.result.TipCoordinate).c_str(), xyz(row.result.Translation).c_str(),
                                   rotationDegrees(row.result.RotationVector).c_str(), row.result.MeanError));
        }
        view.show(lines);
    }

    const double seconds = elapsed();
    std::printf("%llu frames in %.1f s (%.1f per second)\n", static_cast<unsigned long long>(frames),
                seconds, seconds > 0 ? static_cast<double>(frames) / seconds : 0.0);
    if (!options.recordFile.empty()) {
        Vyx_StopRecording(h);
        T_RecordingInfo info{};
        Vyx_GetRecordingInfo(h, &info);
        std::printf("recorded %llu frames into %s, %llu dropped\n",
                    static_cast<unsigned long long>(info.FramesRecorded), options.recordFile.c_str(),
                    static_cast<unsigned long long>(info.FramesDropped));
    }
    if (stalled) throw CommandError("no frame for 3 s: the tracker stopped sending; check the link");
    return 0;
}

}  // namespace vyx::cli
