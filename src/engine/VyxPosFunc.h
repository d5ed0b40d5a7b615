// The tracker engine: one object per handle. It owns the device links and
// their receiver threads, the camera model, the tool library and the state of
// the calibration procedures. The exported wrappers in src/api lock apiMutex
// and call the Zelmor_ methods; the receiver threads never take apiMutex.
#pragma once

#include "VyxPositionTypes.h"
#include "calibration/AccuracyCheck.h"
#include "calibration/PivotCalibration.h"
#include "calibration/RobotTargetPose.h"
#include "calibration/ToolMaking.h"
#include "calibration/ToolCoordinateRenewal.h"
#include "calibration/ToolSelfCalibration.h"
#include "calibration/ToolTipCalibration.h"
#include "camera/CameraParameters.h"
#include "camera/StereoCompensation.h"
#include "device/DeviceGeometry.h"
#include "device/DeviceModel.h"
#include "device/FrameRecorder.h"
#include "device/TcpSocket.h"
#include "device/UsbBulkLink.h"
#include "device/WireProtocol.h"
#include "engine/LinkState.h"
#include "tools/ToolLibrary.h"
#include "tracking/MarkerSpaceRegistration.h"
#include "tracking/ReferenceTool.h"
#include "tracking/ToolRecognition.h"

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

// Version text reported by Vyx_API_GetLibVersion.
inline constexpr const char* kLibraryVersionText =
    "API-V2.3.5 for Linux / Opencv4.7.0 update version / 2025-1-20";

// The tracker's Ethernet port, and its wireless module's port.
inline constexpr std::uint16_t kDefaultEthernetPort = 7;
inline constexpr std::uint16_t kDefaultWifiPort = 8899;

// Model index of a device whose model text matched no known code.
inline constexpr std::uint32_t kUnknownModelIndex = 100;

class VyxPosFunc {
public:
    // The API lock: the first member, so that the handle doubles as the lock.
    std::mutex apiMutex;
    // Set only by Vyx_ConnectDevice; read by the wrappers before locking.
    std::atomic<bool> connected{false};

    VyxPosFunc();
    ~VyxPosFunc();
    VyxPosFunc(const VyxPosFunc&) = delete;
    VyxPosFunc& operator=(const VyxPosFunc&) = delete;

    // ---- Lifecycle ------------------------------------------------------
    void setDefaultPosPara();
    void setwarningpara();

    // Receiver threads, one per transport; each idles while its link is closed
    // and leaves its loop once the running flag is cleared.
    void USBProcess();
    void ETHProcess();
    void WIFIProcess();

    // ---- Device link ----------------------------------------------------
    int Zelmor_USB_Initialize();
    int Zelmor_ETHERNET_Initialize();
    int Zelmor_WIFI_Initialize();
    int Zelmor_SetPosDevPara(T_VYXPOS_DATAPARA& para);
    int Zelmor_SetAcquireMode(E_Interface iface, E_AcquireMode mode);
    int Zelmor_SetAcquireData(E_Interface iface, E_DataType type);
    int Zelmor_GetMarkerInfo(E_Interface iface, T_MarkerInfo& markers);
    int Zelmor_GetStatusInfo(E_Interface iface, T_VyxPosStatusInfo& status);
    int Zelmor_GetMarkerAndStatusByTrig(E_Interface iface, T_MarkerInfo& markers,
                                        T_VyxPosStatusInfo& status);
    int Zelmor_GetMarkerStatusAndImageByTrig(E_Interface iface, T_MarkerInfo& markers,
                                             T_VyxPosStatusInfo& status, char* leftImage,
                                             char* rightImage);
    int Zelmor_GetColorImageFromHardware(E_Interface iface, char* image);
    int Zelmor_GetGreyImageFromHardware(E_Interface iface, char* leftImage, char* rightImage);
    int Zelmor_GetGreyImageDual(E_Interface iface, char* leftImage, char* rightImage);
    int Zelmor_GetColorImageMiddle(E_Interface iface, char* image);
    int Zelmor_GetManufactureInfo(E_Interface iface, T_ManufactureInfo& info);
    int Zelmor_SetSystemCommand(E_Interface iface, E_SystemCommand command);
    int Zelmor_SetDualExpTime(E_Interface iface, int exposure);
    int Zelmor_SetDualExpTimeByDistance(E_Interface iface, int distanceMm);
    int Zelmor_SetFlashDelay(E_Interface iface, int firstDelay, int secondDelay);
    int Zelmor_SetColorExpTime(E_Interface iface, int exposure);
    int Zelmor_SetCollisionDetectLevel(E_Interface iface, unsigned char level);
    int Zelmor_SetVyxPositionIP(E_Interface iface, unsigned char a, unsigned char b,
                                unsigned char c, unsigned char d);
    int Zelmor_GetVyxPositionIP(unsigned char& a, unsigned char& b, unsigned char& c,
                                unsigned char& d);
    int Zelmor_SetEthernetConnectIP(unsigned char a, unsigned char b, unsigned char c,
                                    unsigned char d);
    int Zelmor_GetEthernetConnectIP(unsigned char& a, unsigned char& b, unsigned char& c,
                                    unsigned char& d);
    // Extensions: the Ethernet port, and the Wi-Fi module's address and port,
    // used from the next connect on. Port 0 is refused.
    int Zelmor_SetEthernetConnectPort(std::uint16_t port);
    int Zelmor_GetEthernetConnectPort(std::uint16_t& port);
    int Zelmor_SetWifiConnectAddress(unsigned char a, unsigned char b, unsigned char c,
                                     unsigned char d, std::uint16_t port);
    int Zelmor_GetWifiConnectAddress(unsigned char& a, unsigned char& b, unsigned char& c,
                                     unsigned char& d, std::uint16_t& port);
    int Zelmor_SetLCDShowRawPoint(E_Interface iface, bool show);
    int Zelmor_SetMarkerParameters(E_Interface iface, int a, int b, int c, int d, int e);
    int Zelmor_GetVyxPositonMacAddress(char* text);

    // USB link internals (receiver thread and API calls): the connect
    // sequence, one bulk transfer out or in (2 without a device handle, 4 or
    // 3 when the transfer fails; a read reports the bytes received in
    // `length`), the drain, the marker frame, one grey block of one side
    // (`index` halved is the block number; side 0 left, 1 right), one colour
    // block, the configuration fetch and the receive buffers.
    int usb_connect();
    int USBWrite(const std::uint8_t* buffer, int length);
    int USBRead(std::uint8_t* buffer, int& length);
    void USBCleanData();
    int USBReadInfo();
    int USBReadImageDual(std::uint32_t index, int side);
    int USBReadImageColor(std::uint32_t block);
    int USBReadConfigureData();
    void initUSBTempResource();
    void DestroyUSBTempResource();

    // Ethernet link internals (receiver thread and API calls).
    int ETHWrite(const std::uint8_t* buffer, int length);
    int ETHRead(std::uint8_t* buffer, int& length, int retries);
    // The byte moving that every link shares, over its ByteLink: a write
    // under the link's write lock (2 when it is not open, 4 when the write
    // fails), a read of a whole length under its read lock (2, or 3 as
    // SockRead gives up), and the drain of stale input in `chunk`-byte reads
    // until one fails.
    int writeLink(LinkState& state, vyx::device::ByteLink& link, const std::uint8_t* buffer,
                  int length);
    int readLink(LinkState& state, vyx::device::ByteLink& link, std::uint8_t* buffer, int& length,
                 int retries);
    void drainLink(LinkState& state, vyx::device::ByteLink& link, std::size_t chunk);
    // (Re)opens a TCP link: closes it (acquisition stopped, the receiver
    // idle), connects to ip:port and marks it open. -1 when no socket can be
    // made.
    int reopenTcpLink(LinkState& state, vyx::device::TcpSocket& socket,
                      const std::array<unsigned char, 4>& ip, std::uint16_t port);
    int SockRead(vyx::device::ByteLink& link, const std::atomic<bool>& linkOpen,
                 std::uint8_t* buffer, int& length, int retries);
    void ETHCleanData();
    void initETHTempResource();
    void DestroyETHTempResource();
    int ETHReadInfo();
    int ETHReadImageDual(std::uint32_t block);
    int ETHReadImageColor(std::uint32_t block);
    int ETHReadConfigureData();

    // What the two wired links (USB and Ethernet) share: writes and reads
    // on the addressed one (a read that gives up, or a reply found short or
    // malformed, leaves the link's input stale, and the next write drains it
    // first), the configuration fetch, the marker frame read,
    // one grey block of one side, one colour transfer (a USB block or an
    // Ethernet half-block, numbered from the image start), and the image
    // buffers sized for the current geometry.
    int wiredWrite(E_Interface iface, const std::uint8_t* buffer, int length);
    int wiredRead(E_Interface iface, std::uint8_t* buffer, int& length, int retries);
    // Sends a one-byte request and reads its reply of exactly `bytes`: the
    // write's result, or 3 when the reply is short.
    int requestWholeReply(E_Interface iface, std::uint8_t request, std::uint8_t* reply,
                          std::uint32_t bytes, int retries);
    int fetchWiredConfiguration(E_Interface iface);
    int readWiredMarkerFrame(E_Interface iface);
    int readGreyBlock(E_Interface iface, std::uint32_t block, int side);
    int readColorPiece(E_Interface iface, std::uint32_t piece, std::uint32_t pieceBytes);
    void allocateImageBuffers(LinkState& link, std::size_t colorBytes);
    static void releaseImageBuffers(LinkState& link);

    // Wi-Fi link internals: the same reads and writes on the Wi-Fi socket,
    // the module's own marker, status and configuration frames, and the
    // drain that follows a broken frame (`chunk` bytes at a time).
    int WIFIWrite(const std::uint8_t* buffer, int length);
    int WIFIRead(std::uint8_t* buffer, int& length, int retries);
    void WIFICleanData(std::size_t chunk);
    int WIFIReadMarkerInfo();
    int WIFIReadStatusInfo();
    int WIFIReadConfigureData();

    // ---- Reconstruction and frame delivery -------------------------------
    // Working camera model for a camera temperature, and the stereo
    // matrices derived from it.
    int CalculateSysPara(double temperature);
    void CalculateMlrRT_SEF();
    // Decoding of a marker and status frame: the frame id from a marker
    // origin, the status from a whole frame, the markers from a marker
    // origin (reconstructing them when the frame id byte is new).
    std::uint32_t getID(const std::uint8_t* markerOrigin) const;
    void getStatusStruct(const std::uint8_t* frame, T_VyxPosStatusInfo& status) const;
    void getMarkerStruct(const std::uint8_t* markerOrigin, T_MarkerInfo& markers);
    // Grey images delivered at half height, brought to full height.
    void ImageVerticalStretchX2(const char* leftIn, const char* rightIn, char* leftOut,
                                char* rightOut) const;
    int Zelmor_Calculate3DPoints(float* leftPoints, int leftCount, float* rightPoints,
                                 int rightCount, T_MarkerInfo& markers);
    int Zelmor_SetColineThreshold(E_Interface iface, int threshold);

    // ---- Tool library ---------------------------------------------------
    const char* Zelmor_GetToolInfoFilePath();
    int Zelmor_SetToolInfoFilePath(const char* path, bool clearFirst);
    int Zelmor_AddToolInfoFilePath(const char* path);
    int Zelmor_CheckToolFile(const char* path, T_ToolFileData& data);
    int Zelmor_GetCountOfToolDefine(int& count);
    int Zelmor_GetAllToolFilesBaseInfo(t_ToolBaseInfo* info);
    int Zelmor_GetSpecificToolFileInfoList(const char* name, int& count, std::list<float>* values);
    int Zelmor_GetSpecificToolFileInfoArray(const char* name, int& count, float* positions);
    int Zelmor_ConvertNDIrom2VYXtool(const char* romPath);

    // ---- Tool recognition and reference tool -----------------------------
    int Zelmor_SetToolFindOffset(float offset);
    int Zelmor_GetToolFindOffset(float& offset);
    int Zelmor_SetToolFindPointMatchOptimizeEnable(bool enable);
    int Zelmor_GetToolFindPointMatchOptimizeEnable(bool& enable);
    int Zelmor_SetToolFindRTDirection(E_RTDirection direction);
    int Zelmor_GetToolFindRTDirection(E_RTDirection& direction);
    int Zelmor_FindAllToolsInfo(T_MarkerInfo& markers, T_VyxToolDataResult* results, int minMatch);
    int Zelmor_FindSpecificToolInfo(T_MarkerInfo& markers, const std::vector<std::string>& names,
                                    T_VyxToolDataResult* results, int minMatch);
    int Zelmor_FindToolInfo_Map(T_MarkerInfo& markers, std::vector<std::string>& names,
                                std::map<std::string, T_VyxToolDataResult*>& results,
                                int minMatch);
    int Zelmor_SetReferenceTool(const char* name);
    // The reference tool's pose in the frame (identity and -1 when it is not
    // set or not seen).
    int Zelmor_GetRefToolTrans(T_MarkerInfo& markers, cv::Matx44d& transform, int minMatch);
    int Zelmor_GetToolInfoInRef(T_MarkerInfo& markers, std::vector<std::string>& names,
                                std::map<std::string, T_VyxToolDataResult*>& results,
                                int minMatch);
    int Zelmor_CancelRef();

    // ---- Calibration procedures ------------------------------------------
    int Zelmor_CalibrationToolTipInit(int calibratorIndex, int toolIndex);
    int Zelmor_CalibrationToolTipInit(const char* name1, const char* name2);
    int Zelmor_CalibrationToolTipInfo(T_MarkerInfo& markers, t_ToolTipCalProInfo& info);
    int Zelmor_SaveToolTipCalibration();
    int Zelmor_CalibrationToolCoordinateRenewInit(const char* name1, const char* name2);
    int Zelmor_CalibrationToolCoordinateRenew(T_MarkerInfo& markers, t_ToolTipCalProInfo& info);
    int Zelmor_SaveToolCoordinateRenew();
    int Zelmor_PivotToolTipInit(const char* name, bool resetAxis);
    int Zelmor_PivotToolTipInfo(T_MarkerInfo& markers, T_ToolTipPivotInfo& info);
    int Zelmor_SaveToolTipPivot(int mode);
    // Extension: the quality report of the last finished pivot calibration.
    int Zelmor_GetToolTipPivotQuality(T_ToolTipPivotQuality& quality);
    int Zelmor_InitToolSelfCalibration(int toolIndex, int& markerCount);
    int Zelmor_InitToolSelfCalibration(const char* name, int& markerCount);
    int Zelmor_CalibrateToolSelf(T_MarkerInfo& markers, t_ToolFixProInfo& info);
    int Zelmor_SaveToolSelfCalbation(E_ToolFixRlt decision);
    int Zelmor_AccuracyCheckInitTool(const char* name1, const char* name2, const char* name3);
    int Zelmor_AccuracyCheckTool(double** points, int count, T_AccuracyToolResult& result);
    int Zelmor_CalculateToolsRt(T_MarkerInfo& markers, T_AccuracyToolResult& result, bool collect);
    int Zelmor_AccuracyCheckToolCalculateErro(float& meanError, float& maxError, float* errors);
    int Zelmor_AccuracyToolMade(double** points, int count);
    int Zelmor_InitToolMadeInfo(int markerCount, const char* name);
    int Zelmor_ProceedToolMade(T_MarkerInfo& markers, t_ToolMadeProInfo& info);
    int Zelmor_SaveToolMadeRlt(bool save);

    // ---- Registration and robot ------------------------------------------
    int Zelmor_InitMappingPointSetsForMarkerSpaceReg(const float (*points)[3], int count,
                                                     float tolerance);
    int Zelmor_MappingPointSetsForMarkerSpaceReg(T_MarkerInfo& markers,
                                                 T_VyxToolDataResult* result, int minMatch);
    int Zelmor_SetRobotCalculateRlt(const double (*first)[4], const double (*second)[4],
                                    const char* name);
    int Zelmor_CalculateRobotTargetPose(const double (*pose)[3], float* target);
    // Extension: the hand-eye calibration from pose pairs; needs no state.
    int Zelmor_CalculateRobotCalibration(const T_RobotPosePair* pairs, int count,
                                         T_RobotCalibrationResult& result);

    // ---- Recording (extension) ---------------------------------------------
    // Records the link that connected last into a file: -1 for a null or
    // empty path, a recording already running, no connected link with its
    // configuration, or a file that cannot be created.
    int Zelmor_StartRecording(const char* path);
    // 0 when a recording was finished, -1 when none was running.
    int Zelmor_StopRecording();
    // The running or the last recording's figures (all zero before any).
    int Zelmor_GetRecordingInfo(T_RecordingInfo& info);

    // ---- State read by the API layer and by tests -------------------------
    bool isRunning() const { return running_.load(std::memory_order_relaxed); }
    std::uint32_t deviceModelIndex() const { return deviceModelIndex_; }
    double depthLimit() const { return depthLimit_; }
    const vyx::device::DeviceGeometry& geometry() const { return geometry_; }
    const vyx::device::BorderWarningBands& warningBands() const { return warningBands_; }
    const CameraParameterBlock& cameraParameters() const { return cameraParameters_; }
    const StereoWorkingModel& stereoModel() const { return stereo_; }

private:
    // Link state of a transport value; nullptr for an unknown value.
    LinkState* linkFor(E_Interface iface);
    // Sends a command on the addressed transport: the write's result (0, 2
    // or 4), or -1 for an unknown transport.
    int sendCommand(E_Interface iface, const vyx::device::CommandPacket& packet);
    // Sleeps, but wakes early when the engine is being destroyed. Returns
    // false when it was woken for that reason.
    bool sleepWhileRunning(std::chrono::microseconds duration);
    // The recognition settings as they stand.
    RecognitionSettings recognitionSettings() const;
    // Reads one frame on request (trigger first in trigger mode 1) into the
    // link's frame buffer; used by the mode switch.
    int wiredTriggeredFrame(E_Interface iface);
    // Re-opens a wired link after a failed triggered read.
    int reinitialiseWired(E_Interface iface);
    int deliverFrame(LinkState& link, const std::uint8_t* frame, T_MarkerInfo& markers,
                     T_VyxPosStatusInfo* status, bool withStatus);
    // In trigger mode 1, sends the acquisition trigger (and on Ethernet
    // reads its one-byte answer).
    int wiredTriggerIfNeeded(E_Interface iface);
    // The triggered read on the Wi-Fi link.
    int wifiMarkerAndStatusByTrig(T_MarkerInfo& markers, T_VyxPosStatusInfo& status);
    // Reads a whole grey image pair, or a whole colour image, on a wired
    // link into caller buffers.
    int wiredGreyImageInto(E_Interface iface, char* leftImage, char* rightImage);
    int wiredColorImageInto(E_Interface iface, char* image);
    // A new connect of `iface` begins: a recording of that link finishes and
    // the replies of its previous connect are forgotten.
    void endRecordingForNewConnect(E_Interface iface);
    // Configuration fetch steps shared by the transports.
    void applyConfiguration(const std::uint8_t* config, std::size_t size, bool separateModelText);
    vyx::device::StatusLayout statusLayout() const;

    // True from construction until destruction begins; the receiver threads
    // poll it.
    std::atomic<bool> running_{false};

    // Per-transport link state: set once a link is open, polled by its
    // receiver thread.
    LinkState usb_;
    LinkState eth_;
    LinkState wifi_;
    vyx::device::UsbBulkLink usbLink_;
    vyx::device::TcpSocket ethSocket_;
    vyx::device::TcpSocket wifiSocket_;
    // The Wi-Fi module's newest 24 status bytes (under wifi_.frameLock) and
    // the number of status frames received.
    std::array<std::uint8_t, vyx::device::kWifiStatusBytes> wifiStatus_{};
    std::atomic<std::uint32_t> wifiStatusCounter_{0};
    // Private receive buffer of the Wi-Fi receiver thread.
    std::array<std::uint8_t, vyx::device::kWifiMarkerFrameMaxBytes> wifiReceive_{};
    // Private receive buffers of the USB and Ethernet marker frame reads.
    std::array<std::uint8_t, vyx::device::kMarkerFrameBytes> usbReceive_{};
    std::array<std::uint8_t, vyx::device::kMarkerFrameBytes> ethReceive_{};
    // Acquisition mode last set, per transport.
    std::array<int, 3> acquireMode_{};
    // Per wired transport (0 USB, 1 Ethernet): a reply was given up on, so
    // its rest may still arrive; cleared by the link's drain.
    std::array<std::atomic<bool>, 2> staleWiredInput_{};

    // Wakes interruptible sleeps when destruction begins.
    std::mutex stopMutex_;
    std::condition_variable stopSignal_;

    // Configuration read from the device.
    std::array<std::uint8_t, vyx::device::kConfigLongFormBytes> configData_{};
    std::array<char, vyx::device::kModelTextBytes> separateModelText_{};
    bool separateModelTextPresent_ = false;
    vyx::device::ManufactureRecord manufacture_{};
    CameraParameterBlock cameraParameters_;

    // The configuration replies of the last successful connect, as received,
    // and the recorder that starts its files with them. The receiver threads
    // offer frames to the recorder, which ignores those of other links.
    std::optional<vyx::device::ConnectReplies> connectReplies_;
    vyx::device::FrameRecorder recorder_;

    // Working camera model, the temperature it is compensated for (the
    // latest status's Temperature1), the pair-matching threshold override
    // (-1: by model), and the id byte of the last frame reconstructed.
    StereoWorkingModel stereo_;
    double compensationTemperature_ = 20.0;
    int colineThreshold_ = -1;
    int previousFrameIdSlot_ = -1;

    // Address of the next Ethernet connect, and the device's own address as
    // last reported in its configuration.
    std::array<unsigned char, 4> ethernetConnectIP_{{192, 168, 31, 10}};
    std::uint16_t ethernetConnectPort_ = kDefaultEthernetPort;
    // Address of the next Wi-Fi connect: the tracker's wireless module.
    std::array<unsigned char, 4> wifiConnectIP_{{10, 10, 100, 254}};
    std::uint16_t wifiConnectPort_ = kDefaultWifiPort;
    std::array<unsigned char, 4> deviceIP_{{0, 0, 0, 0}};

    std::uint32_t deviceModelIndex_ = kUnknownModelIndex;
    // Largest accepted depth of a reconstructed marker, scaled by the depth factor.
    double depthLimit_ = 3000.0;
    vyx::device::DeviceGeometry geometry_;
    vyx::device::BorderWarningBands warningBands_;

    // Recognition settings. The tool-find offset is set without the API lock,
    // hence atomic.
    std::atomic<float> toolFindOffset_{1.5f};
    // The tool library, the records chained after a caller's first result,
    // and the first record of a keyed (map) search.
    ToolLibrary toolLibrary_;
    ResultChain resultChain_;
    T_VyxToolDataResult mapFirstResult_{};
    bool pointMatchOptimize_ = true;
    E_RTDirection rtDirection_ = RTDirection_ToolToTracker;

    // The reference tool (its own copy of the chosen tool record).
    ReferenceTool reference_;
    // Tip and pivot calibration, which share the tool, the frame count, the
    // finished flag and the progress.
    ToolTipProgress tipProgress_;
    ToolTipCalibration tipCalibration_;
    PivotCalibration pivotCalibration_;
    // Tool coordinate renewal: the tip calibration's step with its own
    // state and progress, then the tool re-expressed in a tip-origin frame.
    ToolCoordinateRenewal coordinateRenewal_;
    // The accuracy check: the artefact, its end tools and the collected
    // length errors.
    AccuracyCheck accuracyCheck_;
    // The host's point set for marker-space registration.
    MarkerSpaceRegistration markerSpaceRegistration_;
    // The robot calibration last set, with its tool's tip section; none
    // until Zelmor_SetRobotCalculateRlt succeeds.
    std::optional<RobotCalibration> robotCalibration_;
    // Self-calibration works on a library tool or on the tool being made.
    ToolSelfCalibration selfCalibration_;
    ToolMaking toolMaking_;

    // Receiver threads, started in this order and joined in this order.
    std::thread usbThread_;
    std::thread ethThread_;
    std::thread wifiThread_;
};
