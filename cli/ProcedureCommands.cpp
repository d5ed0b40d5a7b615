// vyx pivot, tipcal, selfcal and maketool: each drives its procedure frame by
// frame with a progress bar, shows the result and saves it only when the
// user confirms or gave --save.
#include "cli/Commands.h"
#include "cli/Terminal.h"
#include "sim/SceneTools.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <functional>

namespace vyx::cli {
namespace {

// One step of a procedure on one frame: its progress (0 to 1), whether it
// finished, and a note for the progress line.
struct Step {
    double progress = 0.0;
    bool finished = false;
    std::string note;
};

// Feeds frames to `proceed` until it finishes. Throws when the time runs
// out or the user interrupts.
void drive(Session& session, const std::string& label, double timeoutSeconds,
           const std::function<Step(T_MarkerInfo&)>& proceed, const std::string& advice) {
    LiveBlock view(stdoutIsTerminal());
    session.startAcquisition();
    const auto deadline = std::chrono::steady_clock::now() +
                          std::chrono::milliseconds(static_cast<long>(timeoutSeconds * 1000.0));
    T_MarkerInfo markers{};
    Step step;
    while (!step.finished) {
        if (stopRequested()) throw CommandError(label + " interrupted; nothing was saved");
        if (std::chrono::steady_clock::now() > deadline)
            throw CommandError(format("%s did not finish within %.0f s (%.0f%% done): %s",
                                      label.c_str(), timeoutSeconds, step.progress * 100.0,
                                      advice.c_str()));
        if (!session.nextFrame(markers, 0.5)) continue;
        step = proceed(markers);
        view.progress(label, step.progress, step.note);
    }
}

// The tool as the library now holds it (tip in its own frame), from one
// frame in which it is seen.
bool currentTool(Session& session, const std::string& name, T_VyxSingleToolDataResult& tool) {
    T_MarkerInfo markers{};
    for (int attempt = 0; attempt < 100; ++attempt) {
        if (!session.nextFrame(markers, 0.5)) continue;
        tool = T_VyxSingleToolDataResult{};
        if (Vyx_FindSingleToolInfo(session.handle(), &markers, name.c_str(), &tool, 0) == RV_SUCCESS &&
            tool.ValidFlag)
            return true;
    }
    return false;
}

// The tool's true tip in the virtual tracker's scene, when there is one.
const vyx::sim::RigidBody* sceneBody(const Session& session, const std::string& name) {
    if (session.scene() == nullptr) return nullptr;
    for (const auto& body : session.scene()->bodies)
        if (body.name == name) return &body;
    return nullptr;
}

void printTruth(const Session& session, const std::string& name, const double* tip) {
    const vyx::sim::RigidBody* body = sceneBody(session, name);
    if (body == nullptr) return;
    const double dx = tip[0] - body->tip.x, dy = tip[1] - body->tip.y, dz = tip[2] - body->tip.z;
    std::printf("  true tip        %8.3f %8.3f %8.3f   (virtual tracker; off by %.3f mm)\n",
                body->tip.x, body->tip.y, body->tip.z, std::sqrt(dx * dx + dy * dy + dz * dz));
}

bool decideToSave(const ProcedureOptions& options, const std::string& question) {
    if (options.save) return true;
    if (confirm(question)) return true;
    std::printf("Not saved (give --save to save without asking).\n");
    return false;
}

const char* verdictText(int verdict) {
    switch (verdict) {
        case PivotVerdict_Good: return "good";
        case PivotVerdict_Singular:
            return "singular: the tool turned about one axis only; swing it in several directions";
        case PivotVerdict_TooLittleRotation:
            return "too little rotation: swing the shaft through 15 degrees or more";
        default: return "residual too high: the tip slipped in the dimple or the tool bent";
    }
}

int runPivot(Session& session, const ProcedureOptions& options) {
    const VyxHandle h = session.handle();
    const char* name = options.tool.c_str();
    if (Vyx_InitToolTipPivotWithToolId(h, name, 0) != RV_SUCCESS)
        throw CommandError("no tool '" + options.tool + "' in the tool directory");
    std::printf("Rest the tip of %s in a dimple and swing the tool through a cone of 15 degrees or more.\n", name);
    drive(session, "pivot", options.timeoutSeconds, [&](T_MarkerInfo& markers) {
        T_ToolTipPivotInfo info{};
        Vyx_ProceedToolTipPivot(h, &markers, &info);
        return Step{info.progress, info.finished, info.toolFound ? "tool seen" : "tool not seen"};
    }, "keep the tool in view while pivoting");

    T_ToolTipPivotQuality q{};
    check(Vyx_GetToolTipPivotQuality(h, &q), "reading the pivot quality");
    std::printf("Pivot calibration of %s over %d poses\n", name, q.PoseCount);
    std::printf("  tip             %8.3f %8.3f %8.3f   (tool frame, mm)\n", q.TipPoint[0], q.TipPoint[1], q.TipPoint[2]);
    printTruth(session, options.tool, q.TipPoint);
    std::printf("  pivot point     %8.3f %8.3f %8.3f   (tracker frame, mm)\n", q.PivotPoint[0], q.PivotPoint[1], q.PivotPoint[2]);
    std::printf("  residual        RMS %.3f mm, largest %.3f mm, %d outlying poses\n", q.RmsResidual, q.MaxResidual, q.OutlierCount);
    std::printf("  rotation        tool %.1f degrees, shaft %.1f degrees\n", q.AngularSpreadDeg, q.ShaftSpreadDeg);
    std::printf("  precision       tip %.3f mm, pivot point %.3f mm (1 sigma)\n", q.TipPrecision, q.PivotPrecision);
    std::printf("  verdict         %s\n", verdictText(q.Verdict));
    if (q.Verdict != PivotVerdict_Good) {
        std::printf("Not saved: repeat the pivot.\n");
        return 1;
    }
    if (decideToSave(options, "Save this tip into " + options.tool + ".vyxtool?")) {
        check(Vyx_SaveToolTipPivot(h, 1), "saving the tip");
        std::printf("Saved the tip into %s.vyxtool.\n", name);
    }
    return 0;
}

int runTipCalibration(Session& session, const ProcedureOptions& options) {
    const VyxHandle h = session.handle();
    if (Vyx_InitToolTipCalibrationWithToolId(h, options.tool.c_str(), options.calibrator.c_str()) != RV_SUCCESS)
        throw CommandError("cannot pair '" + options.tool + "' and '" + options.calibrator +
                           "': one must be a tool and the other a calibrator of the tool directory");
    std::printf("Rest the tip of %s in the hole of %s and hold both in view.\n", options.tool.c_str(),
                options.calibrator.c_str());
    t_ToolTipCalProInfo result{};
    drive(session, "tipcal", options.timeoutSeconds, [&](T_MarkerInfo& markers) {
        t_ToolTipCalProInfo info{};
        Vyx_ProceedToolTipCalibration(h, &markers, &info);
        result = info;
        return Step{info.progress, info.finished,
                    !info.calibratorFound ? "calibrator not seen" : !info.toolFound ? "tool not seen" : "both seen"};
    }, "keep the tool and the calibrator in view");

    std::printf("Tip calibration of %s in %s\n", options.tool.c_str(), options.calibrator.c_str());
    T_VyxSingleToolDataResult tool{};
    if (currentTool(session, options.tool, tool)) {
        const double tip[3] = {tool.ToolTipsLocal[0], tool.ToolTipsLocal[1], tool.ToolTipsLocal[2]};
        std::printf("  tip             %8.3f %8.3f %8.3f   (tool frame, mm)\n", tip[0], tip[1], tip[2]);
        printTruth(session, options.tool, tip);
    }
    std::printf("  spread          %.3f mm (tip to first marker, 1 sigma)\n", result.tipDistanceStdDev);
    std::printf("  fit threshold   %.3f mm\n", result.meanError);
    if (decideToSave(options, "Save this tip into " + options.tool + ".vyxtool?")) {
        check(Vyx_SaveToolTipCalibration(h), "saving the tip");
        std::printf("Saved the tip into %s.vyxtool.\n", options.tool.c_str());
    }
    return 0;
}

int runSelfCalibration(Session& session, const ProcedureOptions& options) {
    const VyxHandle h = session.handle();
    const char* name = options.tool.c_str();
    float before[VYX_MAX_MARKERS * 3] = {};
    int count = 0;
    if (Vyx_InitToolSelfCalibrationWithToolId(h, name, &count) != RV_SUCCESS ||
        Vyx_GetSpecificToolFileInfoArray(h, name, &count, before) != RV_SUCCESS)
        throw CommandError("no tool '" + options.tool + "' in the tool directory");
    std::printf("Move %s about in view.\n", name);
    float meanError = 0.0f;
    drive(session, "selfcal", options.timeoutSeconds, [&](T_MarkerInfo& markers) {
        t_ToolFixProInfo info{};
        const int rc = Vyx_ProceedToolSelfCalibration(h, &markers, &info);
        meanError = info.meanError;
        return Step{info.frameCount / 100.0, info.finished, rc == RV_SUCCESS ? "tool seen" : "tool not seen"};
    }, "keep the tool in view and move it");

    float after[VYX_MAX_MARKERS * 3] = {};
    Vyx_GetSpecificToolFileInfoArray(h, name, &count, after);
    std::printf("Self-calibration of %s: mean residual %.3f mm\n", name, meanError);
    for (int i = 0; i < count && i < VYX_MAX_MARKERS; ++i) {
        const float* b = before + 3 * i;
        const float* a = after + 3 * i;
        std::printf("  marker %-2d %8.3f %8.3f %8.3f   moved %.3f mm\n", i, a[0], a[1], a[2],
                    std::sqrt((a[0] - b[0]) * (a[0] - b[0]) + (a[1] - b[1]) * (a[1] - b[1]) +
                              (a[2] - b[2]) * (a[2] - b[2])));
    }
    const bool save = decideToSave(options, "Save these marker positions into " + options.tool + ".vyxtool?");
    check(Vyx_SaveToolSelfCalibration(h, save ? ToolFix_Save : ToolFix_Discard),
          save ? "saving the marker positions" : "discarding the result");
    if (save) std::printf("Saved the marker positions into %s.vyxtool.\n", name);
    return 0;
}

int runToolMaking(Session& session, const ProcedureOptions& options) {
    const VyxHandle h = session.handle();
    const char* name = options.tool.c_str();
    if (Vyx_InitToolMadeInfo(h, options.markers, name) != RV_SUCCESS)
        throw CommandError("cannot make a tool named '" + options.tool + "' of " +
                           std::to_string(options.markers) + " markers");
    std::printf("Show the new tool alone, its %d markers in view, and move it about.\n", options.markers);
    float meanError = 0.0f;
    drive(session, "maketool", options.timeoutSeconds, [&](T_MarkerInfo& markers) {
        t_ToolMadeProInfo info{};
        const int rc = Vyx_ProceedToolMade(h, &markers, &info);
        meanError = info.meanError;
        return Step{info.progress, info.finished,
                    rc == RV_SUCCESS ? "markers seen" : format("%u markers in view", markers.MarkerNumber)};
    }, "show exactly the new tool's markers");
    std::printf("Made %s: %d markers, mean residual %.3f mm\n", name, options.markers, meanError);
    if (!decideToSave(options, "Save " + options.tool + ".vyxtool into the tool directory?")) {
        Vyx_SaveToolMadeRlt(h, 0);
        return 0;
    }
    check(Vyx_SaveToolMadeRlt(h, 1), "saving the tool file");
    std::printf("Saved %s%s.vyxtool.\n", Vyx_GetToolInfoFilePath(h), name);
    return 0;
}

std::string defaultScene(const ProcedureOptions& options) {
    if (options.procedure == "tipcal") return "tipcal";
    if (options.procedure == "selfcal") return "selfcal";
    if (options.procedure == "maketool") return options.markers == 5 ? "maketool5" : "maketool";
    return "workbench";
}

}  // namespace

int runProcedure(const ConnectionOptions& connection, const ProcedureOptions& options) {
    Session session(connection, defaultScene(options));
    if (options.procedure == "pivot") return runPivot(session, options);
    if (options.procedure == "tipcal") return runTipCalibration(session, options);
    if (options.procedure == "selfcal") return runSelfCalibration(session, options);
    return runToolMaking(session, options);
}

}  // namespace vyx::cli
