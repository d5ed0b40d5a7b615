/*
 * libVyxPosition: host library for a stereo optical position tracker.
 *
 * Every function takes the handle made by Vyx_API_Initial (all but
 * Vyx_API_GetLibVersion) and returns an E_ReturnValue:
 *   0 success; 1 USB device not found; 2 not connected (no successful
 *   Vyx_ConnectDevice, or the addressed transport is not open); 3 read failed,
 *   timed out or frame malformed; 4 write failed; 5 no new frame since the last
 *   call; 6 handle already initialised; 7 null or closed handle; -1 bad argument
 *   or failed step.
 *
 * Calls on one handle are serialised by the handle's own lock; different
 * handles are independent. Vyx_API_Close must not race with other calls on the
 * same handle. A null pointer argument gives -1 (after the handle and connected
 * checks), never a crash. Outputs are written only on success unless a
 * function says otherwise.
 *
 * Exceptions: none cross this interface, except std::system_error when the
 * handle's lock cannot be taken and cv::Exception when a rotation utility is
 * given a matrix of the wrong shape or type.
 *
 * The functions that take C++ containers are declared for C++ callers only;
 * the rest of this header compiles as C99.
 */
#ifndef VYX_POSITION_API_H
#define VYX_POSITION_API_H

#include "VyxPositionTypes.h"

#ifdef __cplusplus
#include <list>
#include <map>
#include <string>
#include <vector>
#endif

#if defined(_WIN32)
#define VYX_API
#else
#define VYX_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Opaque handle of one tracker engine. Null means no engine. */
typedef void* VyxHandle;

/* ---- Lifecycle ---------------------------------------------------------- */

/* Constant version text of the library. Never null. */
VYX_API const char* Vyx_API_GetLibVersion(void);

/*
 * Creates an engine and stores it in *handle. Starts the USB, Ethernet and
 * Wi-Fi receiver threads, which idle until their link is opened.
 * Returns 0; 6 if *handle is not null (the existing engine stays); -1 if
 * handle itself is null.
 */
VYX_API int Vyx_API_Initial(VyxHandle* handle);

/*
 * Stops the receiver threads, closes the links, frees the engine and sets
 * *handle to null. Returns within a bounded time even when the tracker stopped
 * answering. Returns 0, or 7 if handle or *handle is null or not a live engine.
 */
VYX_API int Vyx_API_Close(VyxHandle* handle);

/* ---- Tool library ------------------------------------------------------- */

/*
 * Directory of the tool library, always ending in '/'. The text belongs to the
 * engine and is valid until the next Vyx_SetToolInfoFilePath or close.
 * Returns null for a null handle.
 */
VYX_API const char* Vyx_GetToolInfoFilePath(VyxHandle handle);

/*
 * Scans the directory for ".vyxtool" files, then for ".rom" files, and loads
 * them into the tool library; with clearFirst the library is emptied first.
 * Returns 0 when the directory could be opened, -1 otherwise (and for a null
 * path).
 */
VYX_API int Vyx_SetToolInfoFilePath(VyxHandle handle, const char* path, bool clearFirst);

/*
 * Loads the single tool file path + ".vyxtool". Returns 0 whether or not the
 * file loaded (the tool count tells); -1 for a null path.
 */
VYX_API int Vyx_AddToolInfoFile(VyxHandle handle, const char* path);

/*
 * Parses a tool file into *data without touching the library.
 * Returns 0, or -1 for a missing or malformed file or a null argument.
 */
VYX_API int Vyx_CheckToolFile(VyxHandle handle, const char* path, T_ToolFileData* data);

/* Number of tools in the library. Needs a connection (2 otherwise). */
VYX_API int Vyx_GetCountOfToolInfo(VyxHandle handle, int* count);

/*
 * Fills one t_ToolBaseInfo per loaded tool, in library order; the caller's
 * array must hold as many entries as Vyx_GetCountOfToolInfo reports.
 * Returns -1 when the library is empty.
 */
VYX_API int Vyx_GetAllToolFilesBaseInfo(VyxHandle handle, t_ToolBaseInfo* info);

/*
 * Marker positions (x, y, z per marker, tool frame) of the named tool into the
 * caller's array of 3 * 200 floats; *count receives the marker count (0 on
 * failure). An unknown name yields the last tool of the library. -1 when the
 * library is empty.
 */
VYX_API int Vyx_GetSpecificToolFileInfoArray(VyxHandle handle, const char* name, int* count,
                                             float* positions);

/* Converts a ".rom" tool file into a ".vyxtool" file. Returns 0 or -1. */
VYX_API int Vyx_ConvertNDIrom2Vyxtool(VyxHandle handle, const char* romPath);

/* ---- Connection and acquisition ----------------------------------------- */

/*
 * Opens the link (0 USB, 1 Ethernet, 2 Wi-Fi), reads the device configuration
 * and fills *para. para->DeviceType is set to 100 before anything else, even
 * for a null handle. Any other interface value marks the engine connected
 * without opening a link. Returns 0 or the link's failure code; -1 for a null
 * para. The Wi-Fi link carries marker and status frames, the configuration
 * and the simple setters (exposure, collision level, colour exposure, device
 * address, system commands); images, trigger, acquisition mode, flash delay,
 * LCD and marker parameters answer -1 on it. The USB link is not available in
 * this build: connecting over it answers -1.
 */
VYX_API int Vyx_ConnectDevice(VyxHandle handle, E_Interface iface, T_VYXPOS_DATAPARA* para);

/* Sets the free-running (0) or a trigger mode (1, 2). */
VYX_API int Vyx_SetAcquireMode(VyxHandle handle, E_Interface iface, E_AcquireMode mode);

/* Chooses what the receiver thread acquires on its own. */
VYX_API int Vyx_SetAcquireData(VyxHandle handle, E_Interface iface, E_DataType type);

/* Newest marker frame, reconstructed into 3D markers. 5 when nothing is new. */
VYX_API int Vyx_GetMarkerInfo(VyxHandle handle, E_Interface iface, T_MarkerInfo* markers);

/* Status record of the newest frame. */
VYX_API int Vyx_GetStatusInfo(VyxHandle handle, E_Interface iface, T_VyxPosStatusInfo* status);

/* Triggered acquisition: one trigger, one frame. */
VYX_API int Vyx_GetMarkerAndStatusFromHardware(VyxHandle handle, E_Interface iface,
                                               T_MarkerInfo* markers, T_VyxPosStatusInfo* status);

/* Triggered acquisition of a frame and both grey images (buffers of one grey image each). */
VYX_API int Vyx_GetMarkerStatusAndGreyImageFromHardware(VyxHandle handle, E_Interface iface,
                                                        T_MarkerInfo* markers,
                                                        T_VyxPosStatusInfo* status,
                                                        char* leftImage, char* rightImage);

/* Triggered acquisition of the colour image. */
VYX_API int Vyx_GetColorImageFromHardware(VyxHandle handle, E_Interface iface, char* image);

/* Triggered acquisition of both grey images. */
VYX_API int Vyx_GetGreyImageFromHardware(VyxHandle handle, E_Interface iface, char* leftImage,
                                         char* rightImage);

/* Newest pair of grey images. 5 when nothing is new; -1 for a null buffer. */
VYX_API int Vyx_GetGreyImageDual(VyxHandle handle, E_Interface iface, char* leftImage,
                                 char* rightImage);

/* Newest colour image. 5 when nothing is new; -1 for a null buffer. */
VYX_API int Vyx_GetColorImageMiddle(VyxHandle handle, E_Interface iface, char* image);

/*
 * 3D markers from caller-supplied 2D centres (count pairs of x, y floats per
 * camera), with the connected device's calibration.
 */
VYX_API int Vyx_Calculate3DPoints(VyxHandle handle, float* leftPoints, int leftCount,
                                  float* rightPoints, int rightCount, T_MarkerInfo* markers);

/* Epipolar threshold of the stereo pair matching, in pixels. */
VYX_API int Vyx_SetColineThreshold(VyxHandle handle, E_Interface iface, int threshold);

/* ---- Device settings ---------------------------------------------------- */

VYX_API int Vyx_GetManufactureInfo(VyxHandle handle, E_Interface iface, T_ManufactureInfo* info);
VYX_API int Vyx_SetSystemCommand(VyxHandle handle, E_Interface iface, E_SystemCommand command);
VYX_API int Vyx_SetDualExpTime(VyxHandle handle, E_Interface iface, int exposure);
VYX_API int Vyx_SetDualExpTimeByDistance(VyxHandle handle, E_Interface iface, int distanceMm);
VYX_API int Vyx_SetFlashDelay(VyxHandle handle, E_Interface iface, int firstDelay, int secondDelay);
VYX_API int Vyx_SetColorExpTime(VyxHandle handle, E_Interface iface, int exposure);
/* Collision detection level 1..10 (0 is sent as 1, above 10 as 10). */
VYX_API int Vyx_SetCollisinoDetectLevel(VyxHandle handle, E_Interface iface, unsigned char level);
/* Writes the device's own IP address. */
VYX_API int Vyx_SetVyxPositionIP(VyxHandle handle, E_Interface iface, unsigned char a,
                                 unsigned char b, unsigned char c, unsigned char d);
/* Device IP as last reported by the device (0.0.0.0 before). The interface is ignored. */
VYX_API int Vyx_GetVyxPositionIP(VyxHandle handle, E_Interface iface, unsigned char* a,
                                 unsigned char* b, unsigned char* c, unsigned char* d);
/* Address that the next Ethernet connect uses (default 192.168.31.10); no device traffic. */
VYX_API int Vyx_SetEthernetConnectIP(VyxHandle handle, unsigned char a, unsigned char b,
                                     unsigned char c, unsigned char d);
VYX_API int Vyx_GetEthernetConnectIP(VyxHandle handle, unsigned char* a, unsigned char* b,
                                     unsigned char* c, unsigned char* d);
VYX_API int Vyx_SetLCDShowRawPoint(VyxHandle handle, E_Interface iface, bool show);
VYX_API int Vyx_SetMarkerParameters(VyxHandle handle, E_Interface iface, int a, int b, int c,
                                    int d, int e);
/* Device MAC address as text into the caller's buffer (at least 18 bytes). */
VYX_API int Vyx_GetVyxPositonMacAddress(VyxHandle handle, char* text);

/* ---- Tool recognition --------------------------------------------------- */

/* Tolerance of inter-marker distance matching, mm, accepted in 0.3..3.0. Takes no lock. */
VYX_API int Vyx_SetToolFindOffset(VyxHandle handle, float offset);
VYX_API int Vyx_GetToolFindOffset(VyxHandle handle, float* offset);
/* Outlier rejection during the tool fit (default on). */
VYX_API int Vyx_SetToolFindPointMatchOptimizeEnable(VyxHandle handle, bool enable);
VYX_API int Vyx_GetToolFindPointMatchOptimizeEnable(VyxHandle handle, bool* enable);
VYX_API int Vyx_SetToolFindRTDirection(VyxHandle handle, E_RTDirection direction);
VYX_API int Vyx_GetToolFindRTDirection(VyxHandle handle, E_RTDirection* direction);

/*
 * Recognises every library tool in the frame, in library order; each marker
 * serves at most one tool. Layout of the results: *results (the caller's
 * record) is reset to nothing found, then holds the first tool found; each
 * further record is reached through `next` and belongs to the engine. Look at
 * ValidFlag: the chain may end in a record that found nothing. The engine's
 * records stay valid until the next recognition call on this handle (copy
 * what you keep) or until the handle is closed; the caller frees nothing.
 * minMatch: least matched markers per tool (0 leaves it to the matching
 * rule); 1 and 2 are refused with -1. Returns 0, -1 for an empty library.
 */
VYX_API int Vyx_FindToolInfo(VyxHandle handle, T_MarkerInfo* markers, T_VyxToolDataResult* results,
                             int minMatch);

/* Recognises one named tool into a flat record. minMatch 1 and 2 are refused. */
VYX_API int Vyx_FindSingleToolInfo(VyxHandle handle, T_MarkerInfo* markers, const char* name,
                                   T_VyxSingleToolDataResult* result, int minMatch);

/*
 * Reference tool: a library tool (for instance one fixed to the patient) whose
 * frame replaces the tracker's. Vyx_SetReferenceTool keeps its own copy of the
 * named tool (the first of that name), so reloading the tool library leaves the
 * reference intact. From then on every frame delivered by Vyx_GetMarkerInfo and
 * the triggered calls has its markers expressed in the reference tool's frame
 * whenever the reference is recognised in that frame; when it is not, the
 * frame stays in tracker coordinates. To tell which, look for the reference
 * itself in the frame: Vyx_FindSingleToolInfo with its name finds it at the
 * identity pose in a re-expressed frame, and not at all when it was not seen.
 * Returns 0; -1 when the library is empty or holds no tool of exactly that
 * name (the previous reference, if any, stays).
 */
VYX_API int Vyx_SetReferenceTool(VyxHandle handle, const char* name);
/* Ends the reference: frames are in tracker coordinates again. Returns 0. */
VYX_API int Vyx_CancelRef(VyxHandle handle);

/* ---- Tool calibration procedures ---------------------------------------- */

/*
 * Tip calibration against a calibrator (a tool of kind 'C' whose tip section
 * describes its hole: the bottom, then a point up the hole's axis). The user
 * rests the tool's tip in the hole with both in view; each Proceed call takes
 * one frame, recognises the calibrator and then the tool among the markers
 * left over, and expresses the hole in the tool's frame. A frame counts when
 * its tool fit error lies within 0.25 mm of the mean error of the frames
 * counted so far; after 200 counted frames the tool's tip and second point
 * become the mean hole position of the counted frames whose error was below
 * the running threshold, and tracking uses them at once. Save writes the tip
 * section of the tool's file.
 *
 * Init by library positions (-1 if either is negative or not below the tool
 * count), or by names in either order: one must name a tool ('T'), the other a
 * calibrator ('C'); where names repeat, the last definition wins; -1 otherwise.
 * Init zeroes the tool's tip in memory and starts over.
 * Proceed: the caller clears info->frameAccepted before each call. Returns 0
 * (the flags tell what was recognised and counted), -1 when the frame holds
 * fewer than 3 or more than 199 markers or fewer than 3 are left for the tool.
 * info->finished becomes 1 on the 200th counted frame, with meanError and
 * tipDistanceStdDev (spread of the tip-to-first-marker distance, mm).
 * Save: 0, or -1 when the tool file cannot be rewritten. It does not check
 * that the calibration finished.
 */
VYX_API int Vyx_InitToolTipCalibration(VyxHandle handle, int calibratorIndex, int toolIndex);
VYX_API int Vyx_InitToolTipCalibrationWithToolId(VyxHandle handle, const char* name1,
                                                 const char* name2);
VYX_API int Vyx_ProceedToolTipCalibration(VyxHandle handle, T_MarkerInfo* markers,
                                          t_ToolTipCalProInfo* info);
VYX_API int Vyx_SaveToolTipCalibration(VyxHandle handle);

VYX_API int Vyx_InitToolCoordinateRenewWithToolId(VyxHandle handle, const char* name1,
                                                  const char* name2);
VYX_API int Vyx_ProceedToolCoordinateRenew(VyxHandle handle, T_MarkerInfo* markers,
                                           t_ToolTipCalProInfo* info);
VYX_API int Vyx_SaveToolCoordinateRenew(VyxHandle handle);

/*
 * Pivot calibration: the user rests the tool's tip in a fixed dimple and
 * swings the tool about it. Each Proceed call adds the tool's pose in one
 * frame (frames where it is not recognised add nothing); the 200th pose solves
 * R_i t + T_i = P in the least-squares sense for the tip t (tool frame) and
 * the pivot point P, stores t as the tool's tip in memory at once, and reports
 * pivotError, the mean |R_i t + T_i - P| (mm). The poses should tilt the shaft
 * by 15 degrees or more in several directions; Vyx_GetToolTipPivotQuality
 * tells whether they did.
 *
 * Init: by name (where names repeat, the last definition wins); zeroes the tip
 * in memory, and the second tip-section point too when resetAxis is non-zero.
 * -1 for an empty library or an unknown name.
 * Proceed: 0; -1 when the tool is not in the frame, and -1 for every call once
 * finished, until the next Init.
 * Save: rewrites the tip section of the tool's file. mode 1: the result is the
 * tip, the file's second point is kept unless it is (0, 0, 0), in which case
 * the one in memory is written; mode 2: the result becomes the second point,
 * the file's tip is kept unless it is (0, 0, 0), in which case the points in
 * memory are written (the result first). Any other mode leaves only the count.
 * -1 when the tool is gone from the library or its file cannot be read or
 * written.
 */
VYX_API int Vyx_InitToolTipPivotWithToolId(VyxHandle handle, const char* name, int resetAxis);
VYX_API int Vyx_ProceedToolTipPivot(VyxHandle handle, T_MarkerInfo* markers,
                                    T_ToolTipPivotInfo* info);
VYX_API int Vyx_SaveToolTipPivot(VyxHandle handle, int mode);

/*
 * Tool self-calibration: refines a tool's marker positions from what the
 * tracker sees. Hold the tool in view and move it about; each Proceed call
 * takes one frame, fits the tool's pose and, when the mean fit residual is
 * below the tool-find offset (Vyx_SetToolFindOffset, default 1.5 mm), adds
 * each matched marker's residual (seen minus defined, tool frame, mm). After
 * 100 frames (frames over the limit count without adding anything) each
 * marker moves by its mean residual; recognition uses the new positions at
 * once. Then Save decides: ToolFix_Save writes them to the tool file,
 * ToolFix_Discard restores the positions as read, ToolFix_Retry restores them
 * and starts again.
 *
 * Init: by library position or by name (the first of that name); *markerCount
 * gets the tool's marker count. -1 for an empty library, an unknown name or a
 * position out of range.
 * Proceed: 0 (info->frameUsed tells whether the frame counted;
 * info->frameCount is the count before this frame, the final count on
 * completion); -1 for a frame of fewer than 3 or more than 199 markers, no
 * tool selected, or a frame in which the tool is not recognised. Once finished
 * it answers 0 and changes nothing until Save with ToolFix_Retry or a new
 * Init. info->meanError: 100 until completion, then the mean over the tool's
 * markers of each marker's mean residual length (mm).
 * Save: 0; -1 when no tool is selected or the file cannot be written.
 */
VYX_API int Vyx_InitToolSelfCalibration(VyxHandle handle, int toolIndex, int* markerCount);
VYX_API int Vyx_InitToolSelfCalibrationWithToolId(VyxHandle handle, const char* name,
                                                  int* markerCount);
VYX_API int Vyx_ProceedToolSelfCalibration(VyxHandle handle, T_MarkerInfo* markers,
                                           t_ToolFixProInfo* info);
VYX_API int Vyx_SaveToolSelfCalibration(VyxHandle handle, E_ToolFixRlt decision);

VYX_API int Vyx_InitAccuracyCheckTool(VyxHandle handle, const char* name1, const char* name2,
                                      const char* name3);
VYX_API int Vyx_AccuracyCheckTool(VyxHandle handle, double** points, int count,
                                  T_AccuracyToolResult* result);
VYX_API int Vyx_CalculateTool(VyxHandle handle, T_MarkerInfo* markers,
                              T_AccuracyToolResult* result, bool flag);
VYX_API int Vyx_AccuracyCheckToolCalculateError(VyxHandle handle, float* meanError,
                                                float* maxError, float* errors);
VYX_API int Vyx_AccuracyToolMade(VyxHandle handle, double** points, int count);

/*
 * Tool making: a new tool from a rigid body whose markers, and nothing else,
 * are in view. Init names the tool and its marker count (3..200; -1 for a
 * null name or another count; a tool made but not saved is dropped). Proceed
 * refuses (-1) a frame whose marker count differs. The first frame builds the
 * tool's frame: origin at the markers' centroid, Z along the normal of their
 * best-fit plane, X towards the first marker of that frame; progress 0.1. The
 * next 100 frames refine the positions by self-calibration (progress the
 * refinement count / 100, so 0.0, 0.01, ...; madeFlag 1 when a frame did not
 * count), then finished. Save(1) writes "<tool directory><name>.vyxtool" and
 * adds the tool to the library; Save(0) drops it. Save answers -1 before
 * completion or when the file cannot be written; Proceed answers -1 after
 * completion until the next Init.
 */
VYX_API int Vyx_InitToolMadeInfo(VyxHandle handle, int markerCount, const char* name);
VYX_API int Vyx_ProceedToolMade(VyxHandle handle, T_MarkerInfo* markers, t_ToolMadeProInfo* info);
VYX_API int Vyx_SaveToolMadeRlt(VyxHandle handle, int save);

/* ---- Registration and robot --------------------------------------------- */

/*
 * Marker-space registration: finds a point set given in another space (for
 * instance fiducials planned in an image volume) among a frame's markers.
 * Init hands over count >= 3 points (x, y, z, mm) once; they replace any
 * earlier set and are matched with a fixed distance tolerance of 1.8 mm,
 * whatever Vyx_SetToolFindOffset holds. Mapping treats the set as a tool
 * named "" and recognises it in the frame: result gets the transform from the
 * point set's space into the tracker's (rotation, translation, fit error,
 * matched marker per point), as for a tool; result->next is not touched.
 * Mapping returns 0 when the set was found, -1 when it was not (result says
 * not valid), when no set was handed over, or when the frame holds fewer than
 * 3 or more than 199 markers.
 */
VYX_API int Vyx_InitMappingPointSetsForMarkerSpaceReg(VyxHandle handle, const float (*points)[3],
                                                      int count);
VYX_API int Vyx_MappingPointSetsForMarkerSpaceReg(VyxHandle handle, T_MarkerInfo* markers,
                                                  T_VyxToolDataResult* result, int minMatch);
VYX_API int Vyx_SetRobotCalculateRlt(VyxHandle handle, const double (*first)[4],
                                     const double (*second)[4], const char* name);
VYX_API int Vyx_CalculateRobotTargetPose(VyxHandle handle, const double (*pose)[3], float* target);

/* ---- Extensions ---------------------------------------------------------- */

/*
 * Extension: the quality of the last finished pivot calibration (see
 * T_ToolTipPivotQuality and E_PivotVerdict). It reports on the same 200 poses
 * as the pivot's own result, solved again in double precision, and changes
 * nothing. Returns 0; -1 when quality is null or no pivot calibration has
 * finished since the last Vyx_InitToolTipPivotWithToolId.
 */
VYX_API int Vyx_GetToolTipPivotQuality(VyxHandle handle, T_ToolTipPivotQuality* quality);

/*
 * Extension: the TCP port of the Ethernet link (default 7, the tracker's).
 * Like Vyx_SetEthernetConnectIP it needs no connection and takes effect at
 * the next Vyx_ConnectDevice; a port other than 7 serves a virtual tracker
 * run without root. Set: 0, or -1 for port 0. Get: 0, or -1 for a null port.
 */
VYX_API int Vyx_SetEthernetConnectPort(VyxHandle handle, unsigned short port);
VYX_API int Vyx_GetEthernetConnectPort(VyxHandle handle, unsigned short* port);

/*
 * Extension: the address and TCP port of the tracker's Wi-Fi module (default
 * 10.10.100.254, port 8899), used from the next Wi-Fi connect on; no
 * connection needed. Set: 0, or -1 for port 0. Get: 0, or -1 for a null
 * pointer.
 */
VYX_API int Vyx_SetWifiConnectAddress(VyxHandle handle, unsigned char a, unsigned char b,
                                      unsigned char c, unsigned char d, unsigned short port);
VYX_API int Vyx_GetWifiConnectAddress(VyxHandle handle, unsigned char* a, unsigned char* b,
                                      unsigned char* c, unsigned char* d, unsigned short* port);

#ifdef __cplusplus
} /* extern "C" */

/* C linkage, but with C++ container arguments: for C++ callers only. */
extern "C" {

/*
 * Recognises the named tools, in the order of the names; an earlier name wins
 * a shared marker. Result chain as for Vyx_FindToolInfo.
 */
VYX_API int Vyx_FindSpecificToolInfo(VyxHandle handle, T_MarkerInfo* markers,
                                     const std::vector<std::string>& names,
                                     T_VyxToolDataResult* results, int minMatch);

/*
 * As Vyx_FindSpecificToolInfo, keyed by tool name. The mapped records belong
 * to the engine and stay valid until the next recognition call or close.
 */
VYX_API int Vyx_FindToolInfo_Map(VyxHandle handle, T_MarkerInfo* markers,
                                 std::vector<std::string>& names,
                                 std::map<std::string, T_VyxToolDataResult*>& results,
                                 int minMatch);

/*
 * As Vyx_FindToolInfo_Map, with the found tools' poses, origins and tips
 * expressed in the reference tool's frame. When the reference is not in the
 * frame, the call still returns 0 and the poses stay in tracker coordinates:
 * put the reference tool's own name among the names to tell, since it is then
 * in the map (at the identity pose) exactly when it was seen. Frames delivered
 * while the reference is set are already in its frame, and give the same
 * answer. Returns -1 when no reference is set, the names are empty or
 * minMatch is negative, 1 or 2.
 */
VYX_API int Vyx_GetToolInfoInRef(VyxHandle handle, T_MarkerInfo* markers,
                                 std::vector<std::string>& names,
                                 std::map<std::string, T_VyxToolDataResult*>& results,
                                 int minMatch);

/* Marker positions of the named tool appended to *values as x, y, z per marker. */
VYX_API int Vyx_GetSpecificToolFileInfoList(VyxHandle handle, const char* name, int* count,
                                            std::list<float>* values);

} /* extern "C" */
#endif

#endif /* VYX_POSITION_API_H */
