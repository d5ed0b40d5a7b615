/*
 * Records and enumerations shared between libVyxPosition and its host.
 *
 * Every record is a plain structure that the caller allocates and the library
 * fills. Field order and widths are part of the binary interface; all integers
 * are little-endian as the host stores them. Lengths are in millimetres, image
 * coordinates in pixels, angles in radians, temperatures in degrees Celsius.
 *
 * This header compiles as C99 and as C++.
 */
#ifndef VYX_POSITION_TYPES_H
#define VYX_POSITION_TYPES_H

#include <stdint.h>
#ifndef __cplusplus
#include <stdbool.h>
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Most markers per camera image, per frame and per tool. */
#define VYX_MAX_MARKERS 200
/* Bytes of a tool name including its terminator. */
#define VYX_TOOL_NAME_SIZE 200
/* Bytes of a device model text (not terminated when full). */
#define VYX_MODEL_TEXT_SIZE 20

/* Enumerations are 32-bit. In C++ they get that as a fixed underlying type,
 * so that any 32-bit value a caller passes (including values outside the
 * named ones, which the library answers with -1) is a valid value. */
#ifdef __cplusplus
#define VYX_ENUM(name) enum name : int32_t
#else
#define VYX_ENUM(name) enum name
#endif

/* Result of every exported function and engine method. */
typedef VYX_ENUM(E_ReturnValue) {
    RV_SUCCESS = 0,
    RV_USB_NOT_FOUND = 1,        /* USB device could not be found or opened */
    RV_NOT_CONNECTED = 2,        /* no successful connect, or the transport is not open */
    RV_READ_ERROR = 3,           /* read failed or timed out, or a frame was short or malformed */
    RV_WRITE_ERROR = 4,          /* write to the transport failed */
    RV_NO_NEW_FRAME = 5,         /* nothing new since the last call for this transport */
    RV_ALREADY_INITIALISED = 6,  /* Vyx_API_Initial on a handle that holds an engine */
    RV_NULL_HANDLE = 7,          /* null (or closed) handle */
    RV_FAILED = -1               /* bad argument or failed step */
} E_ReturnValue;

/* Transport that a call addresses. */
typedef VYX_ENUM(E_Interface) {
    Interface_USB = 0,
    Interface_Ethernet = 1,
    Interface_WiFi = 2
} E_Interface;

/*
 * What the receiver thread of a transport acquires on its own. The library
 * turns it into a four-bit mask: bits 0+1 marker and status frame, bit 2 the
 * two grey images, bit 3 the colour image. Values above 8 stop acquisition.
 */
typedef VYX_ENUM(E_DataType) {
    DataType_None = 0,            /* mask 0: acquisition stopped */
    DataType_MarkerAndStatus = 1, /* mask 3 */
    DataType_MaskBit0 = 2,        /* mask 1: no frame kind is read for it alone */
    DataType_MaskBit1 = 3,        /* mask 2: no frame kind is read for it alone */
    DataType_GreyImages = 4,      /* mask 4 */
    DataType_ColorImage = 5,      /* mask 8 */
    DataType_MarkerAndGrey = 6,   /* mask 7, interleaved */
    DataType_MarkerAndColor = 7,  /* mask 11, interleaved */
    DataType_All = 8              /* mask 15 */
} E_DataType;

/* Acquisition mode, sent to the device as the second byte of the mode command. */
typedef VYX_ENUM(E_AcquireMode) {
    AcquireMode_FreeRunning = 0, /* the receiver threads deliver frames on their own */
    AcquireMode_Trigger1 = 1,    /* each frame is requested by an acquisition trigger */
    AcquireMode_Trigger2 = 2
} E_AcquireMode;

/* System commands; each is sent as the device command byte given beside it. */
typedef VYX_ENUM(E_SystemCommand) {
    SystemCommand_0 = 0,   /* 0x20 */
    SystemCommand_1 = 1,   /* 0x21 */
    SystemCommand_2 = 2,   /* 0x22 */
    SystemCommand_3 = 3,   /* 0x31 */
    SystemCommand_4 = 4,   /* 0x30 */
    SystemCommand_5 = 5,   /* 0x39 */
    SystemCommand_6 = 6,   /* 0x38 */
    SystemCommand_7 = 7,   /* 0x40 */
    SystemCommand_8 = 8,   /* 0x41 */
    SystemCommand_9 = 9,   /* 0x4D */
    SystemCommand_10 = 10, /* 0x4E */
    SystemCommand_11 = 11, /* 0x52 */
    SystemCommand_12 = 12, /* 0x50 */
    SystemCommand_13 = 13, /* 0x51 */
    SystemCommand_14 = 14, /* 0x53 */
    SystemCommand_15 = 15, /* no command byte is defined for it */
    SystemCommand_16 = 16, /* 0x58 */
    SystemCommand_17 = 17, /* 0x79 */
    SystemCommand_18 = 18, /* 0x61 */
    SystemCommand_19 = 19, /* 0x60 */
    SystemCommand_20 = 20, /* 0x71 */
    SystemCommand_21 = 21, /* 0x70 */
    SystemCommand_22 = 22  /* 0x72 */
} E_SystemCommand;

/*
 * Which way the rigid fit of a tool runs. Forward (the default) reports the
 * transform that maps tool coordinates into tracker coordinates; any non-zero
 * value swaps the two point sets, giving the inverse mapping.
 */
typedef VYX_ENUM(E_RTDirection) {
    RTDirection_ToolToTracker = 0,
    RTDirection_TrackerToTool = 1
} E_RTDirection;

/* The user's decision at the end of a tool self-calibration. */
typedef VYX_ENUM(E_ToolFixRlt) {
    ToolFix_Discard = 0, /* restore the marker positions as read from the file */
    ToolFix_Retry = 1,   /* restore them, then start the procedure again */
    ToolFix_Save = 2     /* write the corrected positions to the tool file */
} E_ToolFixRlt;

/* One acquired and reconstructed frame. */
typedef struct T_MarkerInfo {
    uint32_t ID;                                  /* frame id (low byte of the header, or the extended 32-bit counter) */
    uint32_t MarkerNumber;                        /* 3D markers reconstructed, 0..200 */
    double MarkerCoordinate[VYX_MAX_MARKERS][3];  /* x, y, z in mm, tracker (or reference tool) frame */
    uint32_t MarkerPairIndex[VYX_MAX_MARKERS];    /* index of the left-right pair of each marker */
    uint32_t Reserved0;                           /* not set by the library */
    uint32_t OverLimitFlag;                       /* 1 when a camera header value exceeds 5 */
    uint8_t Reserved1[200];                       /* cleared on each reconstruction */
    uint8_t Reserved2[600];                       /* untouched */
    uint32_t Reserved3[2];                        /* cleared on each reconstruction */
} T_MarkerInfo;

/* Device status decoded from a marker and status frame. */
typedef struct T_VyxPosStatusInfo {
    float Temperature0;    /* degrees Celsius */
    float Temperature1;    /* degrees Celsius; drives the temperature compensation */
    float SensorValue0;
    float SensorValue1;
    int16_t SensorValue2;  /* signed byte or 16-bit word, by model */
    int16_t SensorValue3;
    uint8_t StateByte0;
    uint8_t StateByte1;
    uint16_t StateWord0;   /* high half of the device state word */
    uint16_t StateWord1;   /* low half of the device state word */
    uint32_t LinkState;    /* 0, 1, or 2 for any other device value */
    uint32_t HardwareCheck;/* 0 healthy, 1..7 first failing check */
} T_VyxPosStatusInfo;

/* Manufacture record of the connected device. */
typedef struct T_ManufactureInfo {
    uint16_t ManufactureYear;
    uint8_t ManufactureMonth;
    uint8_t ManufactureDay;
    char DeviceModel[VYX_MODEL_TEXT_SIZE]; /* zero-filled, not terminated when 20 long */
    uint8_t DeviceModelLength;             /* 0..20 */
} T_ManufactureInfo;

/* Device data parameters returned by Vyx_ConnectDevice. */
typedef struct T_VYXPOS_DATAPARA {
    uint32_t DeviceType;            /* model index; 100 = no known model */
    uint32_t MarkerImageWidth;      /* grey camera image, pixels */
    uint32_t MarkerImageHeight;
    uint32_t MarkerImagePixelBytes; /* always 1 */
    uint32_t ColorImageWidth;       /* middle colour camera image, pixels */
    uint32_t ColorImageHeight;
    uint32_t ColorImagePixelBytes;  /* always 2 */
    char DeviceModel[VYX_MODEL_TEXT_SIZE]; /* exactly the model text's length is written */
} T_VYXPOS_DATAPARA;

/* Content of a tool definition file, as Vyx_CheckToolFile reads it. */
typedef struct T_ToolFileData {
    char ToolName[VYX_TOOL_NAME_SIZE];        /* zero-terminated */
    char ToolKind;                            /* 'T' tool or 'C' calibrator */
    int32_t MarkerCount;
    float MarkerPosition[VYX_MAX_MARKERS][3]; /* tool frame; rows past the count are zero */
    int32_t TipSectionCount;                  /* 2 when the check succeeds */
    float TipPoint[3];                        /* tool tip, tool frame */
    float TipAxisPoint[3];                    /* second tip-section point, tool frame */
    uint8_t Reserved[256];                    /* zeroed by the check */
} T_ToolFileData;

/* One loaded tool, as Vyx_GetAllToolFilesBaseInfo lists it. */
typedef struct t_ToolBaseInfo {
    const char* ToolName;  /* owned by the library; valid until the tool library is reloaded or the handle closed */
    uint8_t ToolKind;      /* 0 tool ('T'), 1 calibrator ('C') */
    uint8_t MarkerCount;   /* low byte of the marker count */
} t_ToolBaseInfo;

/* One candidate correspondence between a tool marker and an observed point. */
typedef struct T_MatchMarkIdx {
    int32_t ToolMarkerIndex;
    int32_t ObservedIndex;
} T_MatchMarkIdx;

/* Residual of one matched marker after the fit, in tool coordinates. */
typedef struct T_MarkError {
    float dx;
    float dy;
    float dz;
    float error; /* length of (dx, dy, dz) */
} T_MarkError;

/*
 * One recognised tool. Results of a multi-tool search form a chain through
 * `next`: the first record is the caller's, every further record belongs to
 * the engine and stays valid until the next recognition call on the same
 * handle or until the handle is closed. The caller never frees a record.
 */
typedef struct T_VyxToolDataResult {
    int32_t ToolType;                 /* 0 tool ('T'), 1 calibrator ('C') */
    uint8_t ValidFlag;                /* 1 when found and accepted */
    char ToolName[VYX_TOOL_NAME_SIZE];
    float MeanError;                  /* mean |observed - defined| inter-marker distance, mm */
    float ErrorSpread;                /* |first pair error - mean|, mm */
    float RotationVector[3];          /* axis * angle, radians */
    float Quaternion[4];              /* w, x, y, z */
    float RotationMatrix[3][3];       /* row-major */
    float Translation[3];             /* mm */
    float OriginCoordinate[3];        /* tool origin in tracker frame (equals Translation) */
    float TipCoordinate[3];           /* R * tip + T */
    float TipAxisCoordinate[3];       /* R * second tip-section point + T */
    float ToolTipsLocal[6];           /* tip and second point in tool frame */
    int32_t MatchedMarkerCount;       /* entries of MatchedMarkerIndex in use, 0..200 */
    int32_t MatchedMarkerIndex[VYX_MAX_MARKERS]; /* per tool marker: index into T_MarkerInfo */
    struct T_VyxToolDataResult* next; /* next found tool, or null */
} T_VyxToolDataResult;

/* One recognised tool in the flat form of Vyx_FindSingleToolInfo (no chain). */
typedef struct T_VyxSingleToolDataResult {
    int32_t ToolType;
    uint8_t ValidFlag;
    char ToolName[VYX_TOOL_NAME_SIZE];
    float MeanError;
    float ErrorSpread;
    float RotationVector[3];
    float Quaternion[4];
    float RotationMatrix[3][3];
    float Translation[3];
    float OriginCoordinate[3];
    float TipCoordinate[3];
    float TipAxisCoordinate[3];
    float ToolTipsLocal[6];
    int32_t MatchedMarkerCount;                  /* clamped to 200 */
    int32_t MatchedMarkerIndex[VYX_MAX_MARKERS];
} T_VyxSingleToolDataResult;

/* Progress of a tool tip calibration, filled by each Proceed call. */
typedef struct t_ToolTipCalProInfo {
    bool calibratorFound;
    bool toolFound;
    bool frameAccepted;      /* set only; the caller clears it before each call */
    bool finished;
    float meanError;         /* at completion: the error threshold then in force */
    float progress;          /* accepted frames / 200 */
    float tipDistanceStdDev; /* at completion, mm */
} t_ToolTipCalProInfo;

/* Progress of a pivot calibration. */
typedef struct T_ToolTipPivotInfo {
    bool toolFound;
    bool finished;
    float progress;   /* poses collected / 200 */
    float pivotError; /* on the completing frame: mean pivot residual, mm */
} T_ToolTipPivotInfo;

/*
 * Extension: verdict on a finished pivot calibration (Vyx_GetToolTipPivotQuality).
 * Checked in this order; the first that applies is the verdict.
 */
typedef VYX_ENUM(E_PivotVerdict) {
    PivotVerdict_Good = 0,              /* none of the below */
    PivotVerdict_Singular = 1,          /* the poses leave the tip undetermined (rotation about one axis only) */
    PivotVerdict_TooLittleRotation = 2, /* the shaft swung through less than 15 degrees */
    PivotVerdict_ResidualTooHigh = 3    /* RMS residual above 1 mm: the tip slipped or the tool bent */
} E_PivotVerdict;

/*
 * Extension: quality of a finished pivot calibration, computed from the same
 * 200 poses as the result that T_ToolTipPivotInfo reports, which it leaves
 * untouched. Each pose i (R_i, T_i: tool into tracker coordinates) gives the
 * three equations R_i t + T_i = P in the tip t (tool frame) and the pivot
 * point P (tracker frame); here the 600 x 6 system is solved in double
 * precision by singular value decomposition.
 */
typedef struct T_ToolTipPivotQuality {
    double TipPoint[3];          /* t, tool frame, mm */
    double PivotPoint[3];        /* P, tracker frame (or reference tool frame, as the frames were), mm */
    float RmsResidual;           /* root mean square of |R_i t + T_i - P| over the poses, mm */
    float MaxResidual;           /* largest |R_i t + T_i - P|, mm */
    int32_t OutlierCount;        /* poses whose residual exceeds 3 x RmsResidual */
    int32_t PoseCount;           /* poses used: 200 */
    float AngularSpreadDeg;      /* largest angle between two of the tool's orientations, degrees */
    float ShaftSpreadDeg;        /* largest angle between two directions of the shaft (pivot point to
                                    tool origin), degrees; twisting the tool about its shaft does not
                                    count, since it leaves the tip along the shaft undetermined (for a
                                    tool whose origin lies within 1 mm of its tip: AngularSpreadDeg) */
    float SmallestSingularValue; /* smallest singular value of the 600 x 6 system (largest is about 20) */
    float TipPrecision;          /* predicted 1-sigma error of t, mm: the square root of the trace of
                                    t's covariance, (A^T A)^-1 (sum_i A_i^T S A_i) (A^T A)^-1, with S the
                                    3 x 3 covariance of the residuals and A_i the rows of pose i */
    float PivotPrecision;        /* the same for P, mm */
    int32_t Verdict;             /* E_PivotVerdict */
} T_ToolTipPivotQuality;

/* Extension: most pose pairs that Vyx_CalculateRobotCalibration takes. */
#define VYX_MAX_ROBOT_POSE_PAIRS 1000

/*
 * Extension: one pose pair of a robot hand-eye calibration
 * (Vyx_CalculateRobotCalibration), taken with the robot at rest and its tool
 * in view. Each is an [R|t] as three rows of four: R a rotation, t in mm.
 */
typedef struct T_RobotPosePair {
    double FlangeInBase[3][4];  /* flange into robot base coordinates, as the robot reports */
    double ToolInTracker[3][4]; /* tool into tracker coordinates: a recognised tool's
                                   RotationMatrix and Translation */
} T_RobotPosePair;

/*
 * Extension: a robot hand-eye calibration. The two [R|t] are the arguments
 * of Vyx_SetRobotCalculateRlt. Per pair the tool's pose in robot base
 * coordinates is computed twice, as FlangeInBase * ToolToFlange (the robot's
 * view) and as TrackerToBase * ToolInTracker (the tracker's); the residuals
 * are the distance between the two tool origins and the angle between the two
 * orientations.
 */
typedef struct T_RobotCalibrationResult {
    double TrackerToBase[3][4]; /* tracker coordinates into robot base coordinates */
    double ToolToFlange[3][4];  /* tool coordinates into flange coordinates */
    double RmsResidualMm;       /* root mean square of the distances, mm */
    double RmsResidualDeg;      /* root mean square of the angles, degrees */
    double MaxResidualMm;       /* largest distance, mm */
    double MaxResidualDeg;      /* largest angle, degrees */
    int32_t PairCount;          /* pairs used: all that were given */
    int32_t WorstPairIndex;     /* pair with the largest residual, 50 mm counting as one radian */
} T_RobotCalibrationResult;

/* Progress of a tool self-calibration. */
typedef struct t_ToolFixProInfo {
    bool frameUsed;
    bool frameCounted;
    int32_t frameCount;
    bool finished;
    float meanError; /* 100.0 until completion */
} t_ToolFixProInfo;

/* Progress of tool making. */
typedef struct t_ToolMadeProInfo {
    bool madeFlag;
    float progress;
    bool finished;
    float meanError;
} t_ToolMadeProInfo;

/*
 * Result of the accuracy check (Vyx_CalculateTool, Vyx_AccuracyCheckTool).
 * Layout chosen by this library: a validity flag, the number of points
 * compared (4: end A of the artefact; 8: the whole artefact, end A = points
 * 0..3, end B = 4..7), each point's shape error and their mean, RMS and
 * largest value, end A's pose, the measured length and its error, and the
 * number of length errors collected so far.
 */
typedef struct T_AccuracyToolResult {
    uint8_t ValidFlag;
    int32_t PointCount;                    /* 4 or 8 */
    float MeanError;                       /* mm */
    float RMSError;                        /* mm */
    float MaxError;                        /* mm */
    float PointError[VYX_MAX_MARKERS];     /* mm, first PointCount entries, the rest 0 */
    float RotationMatrix[3][3];            /* end A's pose (its frame into tracker), row-major */
    float Translation[3];                  /* mm, end A's measured centroid */
    float Length;                          /* mm, end A to end B centroid; 0 for 4 points */
    float LengthError;                     /* mm, Length minus the certified length; 0 for 4 points */
    int32_t CollectedCount;                /* length errors collected so far, 0..200 */
} T_AccuracyToolResult;

/*
 * Extension: the figures of the running or the last recording
 * (Vyx_GetRecordingInfo); all zero before the first.
 */
typedef struct T_RecordingInfo {
    uint32_t Active;          /* 1 while a recording runs */
    int32_t LastError;        /* 0, or 4 when a write failed and the recording stopped */
    uint64_t FramesRecorded;  /* marker and status frames written */
    uint64_t FramesDropped;   /* frames the writer could not keep up with, or after a write error */
    uint64_t BytesWritten;    /* file size so far */
} T_RecordingInfo;

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* VYX_POSITION_TYPES_H */
