// The recording file: records read back as written, damaged files refused at
// the byte offset of their fault, files cut short kept up to the cut.
#include "device/RecordingFormat.h"
#include "device/WireProtocol.h"
#include "tools/ToolTestFiles.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>

using namespace vyx::device;

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes filled(std::size_t size, std::uint8_t seed) {
    Bytes b(size);
    for (std::size_t i = 0; i < size; ++i) b[i] = static_cast<std::uint8_t>(seed + i * 7);
    return b;
}

void append(Bytes& out, RecordType type, const Bytes& payload, std::uint64_t timeNs = 0) {
    appendRecord(out, type, timeNs, payload.data(), payload.size());
}

// An Ethernet recording: a 1024-byte configuration reply (record at 32), one
// marker frame (at 1076) and the End record (at 5192); 5228 bytes in all.
constexpr std::size_t kMarkerAt = 1076, kEndAt = 5192, kFileBytes = 5228;

Bytes ethernetFile() {
    Bytes file = encodeRecordingHeader(1, 1700000000000000000ull);
    append(file, RecordType::ConfigurationReply, filled(1024, 1));
    append(file, RecordType::MarkerFrame, filled(4096, 2), 5000);
    Bytes counts(16, 0);
    counts[0] = 1;     // recorded
    counts[9] = 0x22;  // dropped, 0x2200
    append(file, RecordType::End, counts, 6000);
    return file;
}

class RecordingFile : public ::testing::Test {
protected:
    std::string write(const Bytes& bytes) {
        writeFile(path, std::string(bytes.begin(), bytes.end()));
        return path;
    }
    ScratchDirectory scratch;
    const std::string path = scratch.file("rec.vyxrec");
};

}  // namespace

TEST_F(RecordingFile, RoundTripsHeaderAndRecords) {
    const Bytes check = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
    EXPECT_EQ(crc32(check.data(), check.size()), 0xCBF43926u);  // the standard check value

    Bytes file = encodeRecordingHeader(2, 0x0123456789ABCDEFull);
    const std::vector<RecordingRecord> records = {
        {RecordType::ConfigurationReply, 0, filled(1032, 3)},
        {RecordType::ModelTextReply, 0, filled(1, 4)},
        {RecordType::MarkerFrame, 1000, filled(12, 5)},
        {RecordType::WifiStatusFrame, 1000, filled(32, 6)},
        {RecordType::MarkerFrame, 0xFFFFFFFFFFull, filled(3500, 7)}};
    for (const auto& r : records) append(file, r.type, r.payload, r.timeNs);
    append(file, RecordType::End, Bytes(16, 0));

    const Recording read = readRecording(write(file));
    EXPECT_EQ(read.link, 2);
    EXPECT_EQ(read.startUnixNs, 0x0123456789ABCDEFull);
    ASSERT_EQ(read.records.size(), records.size());
    for (std::size_t i = 0; i < records.size(); ++i) {
        const RecordingRecord &r = read.records[i], &w = records[i];
        EXPECT_TRUE(r.type == w.type && r.timeNs == w.timeNs && r.payload == w.payload) << i;
    }
    EXPECT_TRUE(read.finishedCleanly);

    const Recording ethernet = readRecording(write(ethernetFile()));
    EXPECT_EQ((std::vector<std::uint64_t>{ethernet.startUnixNs, ethernet.framesRecorded,
                                          ethernet.framesDropped, ethernet.records.size()}),
              (std::vector<std::uint64_t>{1700000000000000000ull, 1, 0x2200, 2}));
}

TEST_F(RecordingFile, DamagedFilesAreRefusedAtTheOffsetOfTheirFault) {
    const auto reheader = [](Bytes& b) { writeU32(b.data() + 28, crc32(b.data(), 28)); };
    const auto replaceEnd = [](RecordType type, std::size_t size) {
        return [type, size](Bytes& b) {
            b.resize(kEndAt);
            append(b, type, filled(size, 9));
        };
    };
    const struct {
        const char* what;
        std::function<void(Bytes&)> damage;
        std::uint64_t offset;
    } cases[] = {
        {"bad magic", [](Bytes& b) { b[6] = '\n'; }, 0},
        {"header cut short", [](Bytes& b) { b.resize(20); }, 0},
        {"unknown version", [&](Bytes& b) { b[8] = 2; reheader(b); }, 8},
        {"unknown link", [&](Bytes& b) { b[10] = 3; reheader(b); }, 10},
        {"header CRC", [](Bytes& b) { b[17] ^= 0x40; }, 28},
        {"record CRC", [](Bytes& b) { b[kMarkerAt + 16 + 3000] ^= 0x01; }, kMarkerAt},
        {"record time", [](Bytes& b) { b[kMarkerAt + 8] ^= 0x01; }, kMarkerAt},
        {"unknown type", [](Bytes& b) { b[kMarkerAt] = 7; }, kMarkerAt},
        {"length over the limit", [](Bytes& b) { writeU32(b.data() + kMarkerAt + 4, 65537); }, kMarkerAt},
        {"length wrong for the type", [](Bytes& b) { writeU32(b.data() + 32 + 4, 1032); }, 32},
        {"Wi-Fi status on Ethernet", replaceEnd(RecordType::WifiStatusFrame, 32), kEndAt},
        {"model text after a frame", replaceEnd(RecordType::ModelTextReply, 20), kEndAt},
        {"frame before the configuration",
         [](Bytes& b) { b.resize(32); append(b, RecordType::MarkerFrame, filled(4096, 2)); }, 32},
        {"data after End", [](Bytes& b) { b.push_back(0); }, kFileBytes},
    };
    for (const auto& c : cases) {
        Bytes file = ethernetFile();
        ASSERT_EQ(file.size(), kFileBytes);
        c.damage(file);
        try {
            readRecording(write(file));
            ADD_FAILURE() << c.what << ": accepted";
        } catch (const RecordingError& e) {
            EXPECT_EQ(e.offset(), c.offset) << c.what;
            EXPECT_EQ(std::string(e.what()).rfind(path + ": ", 0), 0u) << e.what();
            EXPECT_NE(std::string(e.what()).find("at byte offset " + std::to_string(c.offset)),
                      std::string::npos) << e.what();
        }
    }
    EXPECT_THROW(readRecording(scratch.file("missing.vyxrec")), RecordingError);
}

TEST_F(RecordingFile, AFileCutShortKeepsTheWholeRecordsBeforeTheCut) {
    const struct {
        std::size_t size, records;
        std::optional<std::uint64_t> truncatedAt;
    } cases[] = {
        {kMarkerAt, 1, std::nullopt},           // between records
        {kMarkerAt + 10, 1, kMarkerAt},         // inside a record's head
        {kMarkerAt + 16 + 4096, 1, kMarkerAt},  // before its CRC
        {kEndAt + 20, 2, kEndAt},               // inside the End record
    };
    for (const auto& c : cases) {
        Bytes file = ethernetFile();
        file.resize(c.size);
        const Recording read = readRecording(write(file));
        EXPECT_EQ(read.records.size(), c.records) << c.size;
        EXPECT_EQ(read.truncatedAt, c.truncatedAt) << c.size;
        EXPECT_FALSE(read.finishedCleanly) << c.size;
    }
}
