// The recording file: what a link received from the tracker, with host
// timestamps, so that a session can be played back later as a device.
//
// Written by the engine's recorder (FrameRecorder.h) and read by the virtual
// tracker's replay, through this one module. All numbers little-endian.
//
// File header, 32 bytes:
//   0   8  magic "VYXREC\r\n" (56 59 58 52 45 43 0D 0A)
//   8   2  format version, 1
//   10  2  link the frames came over: 0 USB, 1 Ethernet, 2 Wi-Fi
//   12  4  zero
//   16  8  wall-clock time the recording started, nanoseconds since 1970 (UTC)
//   24  4  zero
//   28  4  CRC-32 of bytes 0 to 27
//
// Then records, each a 16-byte head, its payload and a CRC:
//   0   1  record type (RecordType)
//   1   3  zero
//   4   4  payload length n (at most kMaxRecordPayload)
//   8   8  host time of arrival, nanoseconds since the recording started
//          (monotonic clock; configuration records carry 0)
//   16  n  payload
//   16+n 4 CRC-32 of the head and the payload
//
// The CRC is the common CRC-32 (reflected polynomial 0xEDB88320, initial
// value and final XOR 0xFFFFFFFF), as zip and PNG use it.
//
// Order: the configuration replies read at connect (a configuration reply
// first, then the long form and the model text when the device sent them),
// then marker frames (and on Wi-Fi status frames) in the order they arrived,
// then an End record when the recording finished cleanly. A file cut short
// (a crash, a full disk) lacks the End record and may end inside a record.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace vyx::device {

constexpr std::size_t kRecordingHeaderBytes = 32;
constexpr std::size_t kRecordHeadBytes = 16;
constexpr std::size_t kRecordCrcBytes = 4;
constexpr std::uint16_t kRecordingFormatVersion = 1;
// Longer than any reply of the device: the long configuration form is 7680.
constexpr std::uint32_t kMaxRecordPayload = 65536;

enum class RecordType : std::uint8_t {
    // The reply to the configuration read: on USB and Ethernet the
    // configuration blocks as received (512 or 1024 bytes), on Wi-Fi the
    // 1032-byte configuration frame.
    ConfigurationReply = 1,
    // The long (multi-temperature) configuration form, 7680 bytes.
    LongConfigurationReply = 2,
    // The model text reply, 1 to 20 bytes.
    ModelTextReply = 3,
    // One marker and status frame: 4096 bytes on USB and Ethernet; on Wi-Fi
    // the module's marker frame, as long as its header announces.
    MarkerFrame = 4,
    // Wi-Fi only: one 32-byte status frame.
    WifiStatusFrame = 5,
    // The clean end: frames recorded (u64), then frames dropped (u64).
    End = 6,
};

struct RecordingRecord {
    RecordType type = RecordType::MarkerFrame;
    std::uint64_t timeNs = 0;
    std::vector<std::uint8_t> payload;
};

struct Recording {
    int link = 1;  // 0 USB, 1 Ethernet, 2 Wi-Fi
    std::uint64_t startUnixNs = 0;
    // Every whole record before the End record, in file order.
    std::vector<RecordingRecord> records;
    // The End record was there: the recording finished cleanly; its counts.
    bool finishedCleanly = false;
    std::uint64_t framesRecorded = 0;
    std::uint64_t framesDropped = 0;
    // Set when the file ends inside a record (cut short): the byte offset of
    // that last, partial record. The records before it are kept.
    std::optional<std::uint64_t> truncatedAt;
};

// A file that is not a readable recording. The message names the file and
// the byte offset of the fault.
class RecordingError : public std::runtime_error {
public:
    RecordingError(const std::string& message, std::uint64_t offset)
        : std::runtime_error(message), offset_(offset) {}
    std::uint64_t offset() const { return offset_; }

private:
    std::uint64_t offset_;
};

std::uint32_t crc32(const std::uint8_t* data, std::size_t size);

// Whether a payload of `size` bytes is right for a record of `type` in a
// recording of `link` (0 USB, 1 Ethernet, 2 Wi-Fi): a configuration reply of
// 512 or 1024 bytes on USB and Ethernet, 1032 on Wi-Fi; a long configuration
// reply of 7680 (USB and Ethernet only); a model text of 1 to 20; a marker
// frame of 4096 on USB and Ethernet, 12 to 3500 on Wi-Fi; a Wi-Fi status
// frame of 32 (Wi-Fi only); an End record of 16.
bool payloadSizeFits(RecordType type, int link, std::size_t size);

// The 32-byte file header.
std::vector<std::uint8_t> encodeRecordingHeader(int link, std::uint64_t startUnixNs);
// Appends one whole record (head, payload, CRC) to `out`.
void appendRecord(std::vector<std::uint8_t>& out, RecordType type, std::uint64_t timeNs,
                  const std::uint8_t* payload, std::size_t size);

// Reads a whole recording. Throws RecordingError for a file that cannot be
// opened, a bad magic word, an unknown version or link, a header or record
// whose CRC does not match, an unknown record type, a payload length over
// the limit or wrong for its type, a frame before the configuration reply,
// or data after the End record. A file that ends inside a record is not an
// error: the whole records before it are returned, with truncatedAt set.
// The error's offset is that of the faulty header field (magic 0, version 8,
// link 10, CRC 28; 0 for a file shorter than the header), of the first byte
// of a faulty record, or, for data after the End record, of that data.
// The first record must be the one configuration reply, and the long form
// and the model text records must come before the first frame.
Recording readRecording(const std::string& path);

}  // namespace vyx::device
