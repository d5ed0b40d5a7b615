#include "device/RecordingFormat.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <memory>

namespace vyx::device {
namespace {

constexpr std::array<std::uint8_t, 8> kMagic = {0x56, 0x59, 0x58, 0x52, 0x45, 0x43, 0x0D, 0x0A};
constexpr std::size_t kEndPayloadBytes = 16;

constexpr std::array<std::uint32_t, 256> makeTable() {
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t i = 0; i < 256; ++i) {
        std::uint32_t crc = i;
        for (int bit = 0; bit < 8; ++bit) crc = (crc & 1u) ? (crc >> 1) ^ 0xEDB88320u : crc >> 1;
        table[i] = crc;
    }
    return table;
}

constexpr auto kTable = makeTable();

std::uint32_t crcUpdate(std::uint32_t crc, const std::uint8_t* data, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) crc = (crc >> 8) ^ kTable[(crc ^ data[i]) & 0xFFu];
    return crc;
}

void putU16(std::uint8_t* p, std::uint16_t v) {
    p[0] = static_cast<std::uint8_t>(v & 0xFFu);
    p[1] = static_cast<std::uint8_t>(v >> 8);
}

void putU32(std::uint8_t* p, std::uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = static_cast<std::uint8_t>((v >> (8 * i)) & 0xFFu);
}

void putU64(std::uint8_t* p, std::uint64_t v) {
    for (int i = 0; i < 8; ++i) p[i] = static_cast<std::uint8_t>((v >> (8 * i)) & 0xFFu);
}

std::uint16_t getU16(const std::uint8_t* p) {
    return static_cast<std::uint16_t>(p[0] | (p[1] << 8));
}

std::uint32_t getU32(const std::uint8_t* p) {
    std::uint32_t v = 0;
    for (int i = 3; i >= 0; --i) v = (v << 8) | p[i];
    return v;
}

std::uint64_t getU64(const std::uint8_t* p) {
    std::uint64_t v = 0;
    for (int i = 7; i >= 0; --i) v = (v << 8) | p[i];
    return v;
}

bool isConfigurationRecord(RecordType type) {
    return type == RecordType::ConfigurationReply || type == RecordType::LongConfigurationReply ||
           type == RecordType::ModelTextReply;
}

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

// Reads up to `size` bytes; returns how many arrived (fewer only at the end
// of the file).
std::size_t readUpTo(std::FILE* file, std::uint8_t* data, std::size_t size) {
    return size == 0 ? 0 : std::fread(data, 1, size, file);
}

[[noreturn]] void fail(const std::string& path, const std::string& what, std::uint64_t offset) {
    throw RecordingError(path + ": " + what + " at byte offset " + std::to_string(offset), offset);
}

}  // namespace

std::uint32_t crc32(const std::uint8_t* data, std::size_t size) {
    return crcUpdate(0xFFFFFFFFu, data, size) ^ 0xFFFFFFFFu;
}

bool payloadSizeFits(RecordType type, int link, std::size_t size) {
    const bool wired = link == 0 || link == 1;
    const bool wifi = link == 2;
    switch (type) {
        case RecordType::ConfigurationReply:
            return wired ? size == 512 || size == 1024 : wifi && size == 1032;
        case RecordType::LongConfigurationReply: return wired && size == 7680;
        case RecordType::ModelTextReply: return (wired || wifi) && size >= 1 && size <= 20;
        case RecordType::MarkerFrame:
            return wired ? size == 4096 : wifi && size >= 12 && size <= 3500;
        case RecordType::WifiStatusFrame: return wifi && size == 32;
        case RecordType::End: return (wired || wifi) && size == kEndPayloadBytes;
    }
    return false;
}

std::vector<std::uint8_t> encodeRecordingHeader(int link, std::uint64_t startUnixNs) {
    std::vector<std::uint8_t> header(kRecordingHeaderBytes, 0);
    std::memcpy(header.data(), kMagic.data(), kMagic.size());
    putU16(header.data() + 8, kRecordingFormatVersion);
    putU16(header.data() + 10, static_cast<std::uint16_t>(link));
    putU64(header.data() + 16, startUnixNs);
    putU32(header.data() + 28, crc32(header.data(), 28));
    return header;
}

void appendRecord(std::vector<std::uint8_t>& out, RecordType type, std::uint64_t timeNs,
                  const std::uint8_t* payload, std::size_t size) {
    const std::size_t start = out.size();
    out.resize(start + kRecordHeadBytes + size + kRecordCrcBytes, 0);
    std::uint8_t* head = out.data() + start;
    head[0] = static_cast<std::uint8_t>(type);
    putU32(head + 4, static_cast<std::uint32_t>(size));
    putU64(head + 8, timeNs);
    if (size > 0) std::memcpy(head + kRecordHeadBytes, payload, size);
    putU32(head + kRecordHeadBytes + size, crc32(head, kRecordHeadBytes + size));
}

Recording readRecording(const std::string& path) {
    std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "rb"));
    if (!file) fail(path, "cannot be opened", 0);

    std::array<std::uint8_t, kRecordingHeaderBytes> header{};
    const std::size_t headerRead = readUpTo(file.get(), header.data(), header.size());
    if (headerRead < header.size())
        fail(path, "file header cut short (" + std::to_string(headerRead) + " of 32 bytes)", 0);
    if (std::memcmp(header.data(), kMagic.data(), kMagic.size()) != 0)
        fail(path, "not a recording (bad magic)", 0);
    const std::uint16_t version = getU16(header.data() + 8);
    if (version != kRecordingFormatVersion)
        fail(path, "unknown format version " + std::to_string(version), 8);
    if (getU32(header.data() + 28) != crc32(header.data(), 28))
        fail(path, "file header CRC mismatch", 28);
    const std::uint16_t link = getU16(header.data() + 10);
    if (link > 2) fail(path, "unknown link " + std::to_string(link), 10);

    Recording recording;
    recording.link = link;
    recording.startUnixNs = getU64(header.data() + 16);

    std::uint64_t offset = kRecordingHeaderBytes;
    bool framesStarted = false;
    std::vector<std::uint8_t> record;
    for (;;) {
        record.resize(kRecordHeadBytes);
        const std::size_t headRead = readUpTo(file.get(), record.data(), kRecordHeadBytes);
        if (headRead == 0) break;  // the file ends between records
        if (headRead < kRecordHeadBytes) {
            recording.truncatedAt = offset;
            break;
        }
        const std::uint8_t typeByte = record[0];
        if (typeByte < static_cast<std::uint8_t>(RecordType::ConfigurationReply) ||
            typeByte > static_cast<std::uint8_t>(RecordType::End))
            fail(path, "unknown record type " + std::to_string(typeByte), offset);
        const auto type = static_cast<RecordType>(typeByte);
        const std::uint32_t size = getU32(record.data() + 4);
        if (size > kMaxRecordPayload)
            fail(path, "record payload length " + std::to_string(size) + " over the limit", offset);
        if (!payloadSizeFits(type, link, size))
            fail(path,
                 "record of type " + std::to_string(typeByte) + " with a payload of " +
                     std::to_string(size) + " bytes",
                 offset);

        const std::size_t whole = kRecordHeadBytes + size + kRecordCrcBytes;
        record.resize(whole);
        const std::size_t rest = whole - kRecordHeadBytes;
        if (readUpTo(file.get(), record.data() + kRecordHeadBytes, rest) < rest) {
            recording.truncatedAt = offset;
            break;
        }
        if (getU32(record.data() + kRecordHeadBytes + size) !=
            crc32(record.data(), kRecordHeadBytes + size))
            fail(path, "record CRC mismatch", offset);

        // Order: the configuration reply first and once, the other
        // configuration records before the first frame.
        const bool configuration = isConfigurationRecord(type);
        if (recording.records.empty() && type != RecordType::ConfigurationReply)
            fail(path, "record of type " + std::to_string(typeByte) +
                           " before the configuration reply", offset);
        if (configuration && (framesStarted || (type == RecordType::ConfigurationReply &&
                                                !recording.records.empty())))
            fail(path, "configuration record of type " + std::to_string(typeByte) +
                           " after the configuration", offset);

        const std::uint8_t* payload = record.data() + kRecordHeadBytes;
        if (type == RecordType::End) {
            recording.finishedCleanly = true;
            recording.framesRecorded = getU64(payload);
            recording.framesDropped = getU64(payload + 8);
            std::uint8_t extra = 0;
            if (readUpTo(file.get(), &extra, 1) != 0)
                fail(path, "data after the End record", offset + whole);
            break;
        }
        framesStarted = framesStarted || !configuration;
        RecordingRecord entry;
        entry.type = type;
        entry.timeNs = getU64(record.data() + 8);
        entry.payload.assign(payload, payload + size);
        recording.records.push_back(std::move(entry));
        offset += whole;
    }
    if (std::ferror(file.get())) fail(path, "read error", offset);
    return recording;
}

}  // namespace vyx::device
