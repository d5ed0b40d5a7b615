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
 * LCD and marker parameters answer -1 on it. The USB link finds the tracker
 * by its vendor and product id (0x1209:0x0001, a pair from a range reserved
 * for prototypes), needs read and write access to its device node (a udev
 * rule, or root), and answers 1 when no such device can be opened (after
 * printing a line that says so). When the device does not deliver its
 * configuration, it is sent the reset byte 0xEE and tried again, three times
 * in all, before 3 is returned.
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

/*
 * Tool coordinate renewal: gives an instrument a new tool frame with its
 * origin at the tip and its Z axis along the shaft, so that tracking reports
 * the tip as the pose's translation and the shaft as the pose's Z axis. The
 * user rests the tool's tip in a calibrator's hole, as for a tip calibration,
 * and the frames are taken and counted exactly as there (200 counted
 * frames); the tool keeps tracking as before meanwhile. On the 200th counted
 * frame the mean hole, in the tool's current frame, gives the new frame:
 * origin at the hole's bottom (the tip); Z along the hole axis, pointing from
 * the tip towards the tool's markers; X towards the first marker's projection
 * on the plane through the tip normal to Z (a marker within 1 mm of the axis
 * passes X on to the next one); Y = Z x X. The tool's marker positions are
 * re-expressed in it, its tip becomes (0, 0, 0) and its second tip-section
 * point (0, 0, d), d the distance from the hole's bottom to the calibrator's
 * axis point; tracking uses the new frame at once. Save writes the tool's
 * whole file. Millimetres throughout.
 *
 * Init: names in either order, one of a tool ('T'), one of a calibrator
 * ('C'); where names repeat, the last definition wins. 0; -1 (nothing
 * changed) when either is missing or a name is null.
 * Proceed: the caller clears info->frameAccepted before each call; the record
 * is filled as by Vyx_ProceedToolTipCalibration, and info->finished becomes 1
 * on the 200th counted frame, when the tool is renewed. Returns 0; -1 when the
 * frame holds fewer than 3 or more than 199 markers or fewer than 3 are left
 * for the tool, and -1 on the completing frame when no frame can be built
 * (the calibrator's axis point coincides with its hole's bottom, or every
 * marker lies on the axis): the tool is then left as it was.
 * Save: 0; -1 before a renewal completed, when the tool is no longer in the
 * library, or when its file cannot be written.
 * All three: 7 for a null handle, 2 when not connected.
 */
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

/*
 * Accuracy check: a length-bar test of the tracker. The artefact is a rigid
 * bar with four markers at each end, end A = markers 0..3, end B = markers
 * 4..7, whose marker coordinates are certified (in any frame, mm). Moved
 * through the measuring volume, it is measured frame by frame: the length
 * between the two ends' centroids against the certified one (the length
 * error, the figure of merit), and each end's shape against the certificate.
 *
 * Sequence: define the artefact (Vyx_AccuracyToolMade, or by an eight-marker
 * library tool in Vyx_InitAccuracyCheckTool), Vyx_InitAccuracyCheckTool, then
 * Vyx_CalculateTool per frame with collect set, then
 * Vyx_AccuracyCheckToolCalculateError. Vyx_AccuracyCheckTool compares points
 * measured by other means.
 *
 * Vyx_AccuracyToolMade: points holds count row pointers, each to x, y, z
 * (certified coordinates, certificate order). Defines the artefact: its own
 * frame (origin at end A's centroid, X from end B's centroid towards end A's),
 * each end's frame (origin at the end's centroid, Z normal to its markers'
 * best-fit plane) and the certified length. Replaces the artefact in force and
 * clears the collected errors. -1 (nothing changed) for a null array or row,
 * a count other than 8, a non-finite value, ends whose centroids lie less
 * than 1 mm apart, or an end whose frame cannot be built.
 *
 * Vyx_InitAccuracyCheckTool: artefact names an eight-marker library tool whose
 * marker positions become the certificate (where names repeat, the last
 * definition wins); an empty text keeps the artefact in force. endA and endB
 * are registered in the library as four-marker tools in their end frames (tip
 * section (0, 0, 0) twice), so that either end can be tracked like any tool;
 * they live in memory only (no file; a reload of the tool directory drops
 * them), and a second Init replaces them. Clears the collected errors. -1
 * (nothing changed) when any text is null (checked before the handle), for an
 * unknown artefact name or a tool of another marker count, an empty text with
 * no artefact in force, end names that are empty, equal, longer than 199
 * characters or hold white space, or an end name taken by a library tool that
 * has a file.
 *
 * Vyx_CalculateTool: recognises both ends in the frame (end A first, end B
 * among the markers it left; all four markers of each, within the tool-find
 * offset) and fills *result: PointCount 8, each marker's shape error (its
 * residual after a least-squares rigid fit of its end onto the certified
 * end), their mean, RMS and largest value, end A's pose (its end frame as
 * built from the measured markers, into tracker coordinates, p = R q + T),
 * Length (between the measured end centroids) and LengthError (Length minus
 * the certified length, signed). With collect non-zero the frame's length
 * error is kept, up to 200 frames (later ones are not kept); CollectedCount
 * tells how many are. Returns 0 when both ends were found; -1, with only
 * result->ValidFlag written (0), without an artefact, for a frame of fewer
 * than 8 or more than 200 markers, or when an end is not found.
 *
 * Vyx_AccuracyCheckTool: points holds count row pointers to measured x, y, z
 * in certificate order: 4 (end A: shape errors and end A's pose; Length and
 * LengthError 0) or 8 (as Vyx_CalculateTool). Nothing is collected. 0; -1
 * (result untouched) without an artefact, for a null array or row, another
 * count, or degenerate points.
 *
 * Vyx_AccuracyCheckToolCalculateError: over the collected frames, the mean
 * and the largest absolute length error (mm); errors, when not null, must have
 * room for 200 floats and gets each frame's signed error in collection order,
 * then NaN up to entry 199. The count is CollectedCount of the last result,
 * or the number of entries before the first NaN. 0; -1 (nothing written) when
 * no error has been collected. meanError and maxError must not be null (-1).
 *
 * All five: 7 for a null handle, 2 when not connected; result and the frame
 * must not be null (-1).
 */
VYX_API int Vyx_InitAccuracyCheckTool(VyxHandle handle, const char* artefact, const char* endA,
                                      const char* endB);
VYX_API int Vyx_AccuracyCheckTool(VyxHandle handle, double** points, int count,
                                  T_AccuracyToolResult* result);
VYX_API int Vyx_CalculateTool(VyxHandle handle, T_MarkerInfo* markers,
                              T_AccuracyToolResult* result, bool collect);
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

/*
 * Robot guidance: a robot arm carries a library tool on its flange, and the
 * tracker plans where the tool must go. The sequence:
 *   1. Calibrate once per set-up: move the arm to 10 or more poses that turn
 *      the flange about different axes by 10 degrees or more, the tool in
 *      view at each; at each, with the arm at rest, record the flange pose
 *      the controller reports and the tool's recognised pose, and pass the
 *      pairs to Vyx_CalculateRobotCalibration (an extension, below).
 *   2. Vyx_SetRobotCalculateRlt with its two results and the tool's name.
 *   3. Per target, Vyx_CalculateRobotTargetPose, and send the pose to the
 *      robot.
 * Frames: tracker coordinates (those of the delivered frames, so the
 * reference tool's frame while one is set: it must then stay fixed to the
 * robot's base), robot base coordinates (the controller's), flange
 * coordinates and the tool's own frame (its tool file's). An [R|t] is three
 * rows of four doubles: R a rotation, t in mm; "a into b" maps a point p of
 * frame a to R p + t in frame b. Lengths in mm, angles in radians.
 *
 * Vyx_SetRobotCalculateRlt: first = tracker into robot base coordinates;
 * second = the tool's coordinates into flange coordinates; name = the tool on
 * the flange (the first library tool of that name), whose tip and second
 * tip-section point are copied now: set the calibration again after changing
 * the tool's tip. It replaces the previous calibration. Returns 0; 7 for a
 * null handle; -1 for a null name (even with a null handle); 2 when not
 * connected; -1 for a null matrix, an unknown tool, a value that is not
 * finite, or a rotation part that is not a rotation (R^T R off the identity
 * by more than 1e-3 in an entry, or det R <= 0). On -1 the previous
 * calibration stays.
 *
 * Vyx_CalculateRobotTargetPose: pose = three points in tracker coordinates:
 * the target, an entry point and a roll reference. target = six floats:
 * x, y, z (mm) and rx, ry, rz (a rotation vector, radians, length at most
 * pi) of the flange pose in robot base coordinates that puts the tool's tip
 * on the target with its tip axis (from the tip towards its second tip-section
 * point) pointing from the target towards the entry, turned about that axis
 * so that the tool's X axis points, across the axis, towards the roll
 * reference. Returns 0; 7 for a null handle; -1 for a null target (even with
 * a null handle); 2 when not connected; -1 for null points, no calibration
 * set, a tool whose tip axis is shorter than 0.001 mm or runs along its X
 * axis, points that are not finite, a target and entry closer than 0.001 mm,
 * or a roll reference within 0.001 mm of the line through them. target is
 * written only on success.
 */
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
 * Extension: the robot hand-eye calibration for Vyx_SetRobotCalculateRlt,
 * from count pose pairs (see T_RobotPosePair and the robot guidance above).
 * Both unknowns, tracker into base (Z) and tool into flange (X), are solved
 * from FlangeInBase_i X = Z ToolInTracker_i: a closed-form solution, refined
 * by least squares over the pairs' position residuals and their orientation
 * residuals weighted at 50 mm per radian. result gets both [R|t], the RMS
 * and largest residuals and the worst pair (drop it and calibrate again when
 * its residual stands out). Pure computation: needs no connection and
 * changes no state. Returns 0; 7 for a null handle; -1 for null pointers,
 * a count below 3 or above VYX_MAX_ROBOT_POSE_PAIRS, a matrix with a value
 * that is not finite or a rotation part that is not a rotation (as for
 * Vyx_SetRobotCalculateRlt), or poses that leave the calibration undetermined
 * (the flange turned about one axis only, or by less than about a degree
 * about any other). result is written only on success.
 */
VYX_API int Vyx_CalculateRobotCalibration(VyxHandle handle, const T_RobotPosePair* pairs,
                                          int count, T_RobotCalibrationResult* result);

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

/*
 * Extension: recording a session into a file, for playing it back later as a
 * device. The file (format in README.md, "Recording") holds the
 * configuration replies read when the link connected, then every marker
 * frame (and on Wi-Fi every status frame) the link's receiver thread gets,
 * each with its host time of arrival; a frame equal to the previous one of
 * its kind is left out. Only one recording runs per handle, of the link that
 * connected last. Acquisition is never slowed down: frames that the writer
 * cannot keep up with are left out of the file and counted as dropped (the
 * host still gets them).
 *
 * Vyx_StartRecording: path = the file to create (an existing file is
 * overwritten). Returns 0; 7 for a null handle; 2 when not connected; -1 for
 * a null or empty path, a recording that runs already, no connected link
 * whose configuration was read, or a file that cannot be created (nothing
 * changes then).
 *
 * Vyx_StopRecording: writes what is still queued and the closing End record
 * and closes the file. Needs no connection. Returns 0 when a recording was
 * finished (also one stopped by a write error), 7 for a null handle, -1 when
 * none was running: never started, or already finished. A recording also
 * finishes cleanly when the handle is closed, when its link is connected
 * again, and when its link is lost (the receiver thread gives up on it).
 *
 * Vyx_GetRecordingInfo: info = the running or the last recording's figures
 * (all zero before the first; see T_RecordingInfo). A failed write stops the
 * recording (Active 0, LastError 4); the file is then closed without its End
 * record, and frames from then on count as dropped until
 * Vyx_StopRecording. Needs no connection. Returns 0; 7 for a null handle; -1
 * for a null info.
 */
VYX_API int Vyx_StartRecording(VyxHandle handle, const char* path);
VYX_API int Vyx_StopRecording(VyxHandle handle);
VYX_API int Vyx_GetRecordingInfo(VyxHandle handle, T_RecordingInfo* info);

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
