#include "tools/RomConversion.h"

#include "tools/ToolDefinition.h"
#include "tools/ToolFile.h"
#include "tools/ToolLibrary.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iomanip>
#include <locale>
#include <sstream>
#include <utility>

namespace {

constexpr std::streamoff kHeaderByteOffset = 0x18;
constexpr std::streamoff kMarkerCountOffset = 0x1C;
constexpr std::streamoff kHeaderWordOffset = 0x24;
constexpr std::streamoff kPositionsOffset = 0x48;
constexpr std::streamoff kMarkerVectorsOffset = 0x138;
constexpr std::streamoff kNameOffset = 0x250;
constexpr std::streamoff kPointBytes = 12;

// A ROM file opened for reading at absolute offsets; every read is checked
// against the file's size before the stream is touched.
class RomBytes {
public:
    explicit RomBytes(const char* path) : in_(path, std::ios::binary) {
        if (!in_.is_open()) return;
        in_.seekg(0, std::ios::end);
        size_ = in_.tellg();
        if (size_ < 0) size_ = 0;
    }

    bool isOpen() const { return in_.is_open(); }

    // Number of bytes of the file from offset to its end.
    std::streamoff available(std::streamoff offset) const {
        return offset < size_ ? size_ - offset : 0;
    }

    bool read(std::streamoff offset, std::streamoff length, void* out) {
        if (offset < 0 || length < 0 || length > available(offset)) return false;
        in_.clear();
        in_.seekg(offset);
        in_.read(static_cast<char*>(out), length);
        return in_.gcount() == length;
    }

    // n points of three little-endian 32-bit floats.
    bool readPoints(std::streamoff offset, int n, std::vector<float>& points) {
        std::vector<unsigned char> bytes(static_cast<std::size_t>(n) * kPointBytes);
        if (!read(offset, static_cast<std::streamoff>(bytes.size()), bytes.data())) return false;
        points.resize(static_cast<std::size_t>(n) * 3);
        for (std::size_t k = 0; k < points.size(); ++k) {
            const unsigned char* b = &bytes[k * 4];
            const std::uint32_t word = static_cast<std::uint32_t>(b[0]) |
                                       static_cast<std::uint32_t>(b[1]) << 8 |
                                       static_cast<std::uint32_t>(b[2]) << 16 |
                                       static_cast<std::uint32_t>(b[3]) << 24;
            std::memcpy(&points[k], &word, sizeof word);
        }
        return true;
    }

private:
    std::ifstream in_;
    std::streamoff size_ = 0;
};

bool isNameByteAllowed(unsigned char c) { return std::isspace(c) == 0; }

// The name field: bytes up to the first zero, which must lie inside the file
// within 200 bytes; 1..199 bytes, none of them blank.
bool readRomName(RomBytes& rom, std::string& name) {
    const std::streamoff length =
        std::min<std::streamoff>(rom.available(kNameOffset), kMaxToolNameLength + 1);
    std::string field(static_cast<std::size_t>(length), '\0');
    if (length == 0 || !rom.read(kNameOffset, length, field.data())) return false;
    const std::size_t end = field.find('\0');
    if (end == std::string::npos || end == 0) return false;
    field.resize(end);
    if (!std::all_of(field.begin(), field.end(),
                     [](char c) { return isNameByteAllowed(static_cast<unsigned char>(c)); }))
        return false;
    name = std::move(field);
    return true;
}

// Parses one number token in the "C" locale; the whole token must be used.
bool parseDecimal(const std::string& token, double& value) {
    std::istringstream in(token);
    in.imbue(std::locale::classic());
    double parsed = 0.0;
    if (!(in >> parsed)) return false;
    if (in.peek() != std::char_traits<char>::eof()) return false;
    value = parsed;
    return true;
}

}  // namespace

bool readRomToolFile(const char* path, RomToolContent& content, bool readMarkerVectors) {
    if (path == nullptr) return false;
    RomBytes rom(path);
    if (!rom.isOpen()) return false;

    RomToolContent read;
    std::int8_t countByte = 0;
    if (!rom.read(kHeaderByteOffset, 1, &read.headerByte)) return false;
    if (!rom.read(kMarkerCountOffset, 1, &countByte)) return false;
    // Signed, so at most 127: the upper bound holds for any byte and stays
    // as the limit the library's tools share.
    const int count = countByte;
    if (count < 1 || count > kMaxToolMarkers) return false;
    read.markerCount = count;
    if (!rom.read(kHeaderWordOffset, 4, read.headerWord.data())) return false;

    if (!rom.readPoints(kPositionsOffset, count, read.markerPositions)) return false;
    if (!std::all_of(read.markerPositions.begin(), read.markerPositions.end(),
                     [](float v) { return std::isfinite(v); }))
        return false;
    if (readMarkerVectors && !rom.readPoints(kMarkerVectorsOffset, count, read.markerVectors))
        return false;
    if (!readRomName(rom, read.toolName)) return false;

    content = std::move(read);
    return true;
}

std::string convertedToolFilePath(const std::string& romPath) {
    std::string path = romPath;
    const std::size_t at = path.find("rom");
    if (at != std::string::npos) path.replace(at, 3, "vyxtool");
    return path;
}

int convertRomToToolFile(const char* romPath) {
    RomToolContent rom;
    if (!readRomToolFile(romPath, rom, false)) return -1;

    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << std::fixed << std::setprecision(6);
    text << rom.toolName << '\n' << "T\n" << rom.markerCount << '\n';
    // 2^N - 1 + 0.5 truncates to 2^N - 1, the mask the reader expects.
    const std::int32_t mask = fullMarkerMask(rom.markerCount);
    for (int i = 0; i < rom.markerCount; ++i) {
        const float* p = &rom.markerPositions[static_cast<std::size_t>(i) * 3];
        text << p[0] << ' ' << p[1] << ' ' << p[2] << ' ' << mask << '\n';
    }
    text << "2\n" << 0.0f << ' ' << 0.0f << ' ' << 0.0f << '\n'
         << 0.0f << ' ' << 0.0f << ' ' << 0.0f << '\n';

    std::FILE* out = std::fopen(convertedToolFilePath(romPath).c_str(), "w");
    if (out == nullptr) return -1;
    const std::string written = text.str();
    std::fwrite(written.data(), 1, written.size(), out);
    std::fclose(out);
    return 0;
}

void ToolLibrary::ReadFormatToolInfoFromFileRom(const char* fileName) {
    if (fileName == nullptr) return;
    const std::string romPath = directory_ + fileName;
    RomToolContent rom;
    if (!readRomToolFile(romPath.c_str(), rom, true)) return;

    ToolFileContent content;
    content.toolName = rom.toolName;
    content.toolKind = 'T';
    content.markerCount = rom.markerCount;
    content.markerMask = fullMarkerMask(rom.markerCount);
    content.markerPositions = rom.markerPositions;

    std::string toolFilePath = romPath;
    constexpr char kRomEnding[] = ".rom";
    const std::size_t endingLength = sizeof kRomEnding - 1;
    if (toolFilePath.size() >= endingLength &&
        toolFilePath.compare(toolFilePath.size() - endingLength, endingLength, kRomEnding) == 0)
        toolFilePath.replace(toolFilePath.size() - endingLength, endingLength, ".vyxtool");
    tools_.push_back(makeToolRecord(content, std::move(toolFilePath)));
}

bool readParaFromFileStream(std::istream& in, double* values, int rows, int cols) {
    if (values == nullptr || rows < 1 || cols < 1) return false;
    const long long wanted = static_cast<long long>(rows) * cols;

    std::vector<double> block;
    std::string line;
    while (static_cast<long long>(block.size()) < wanted && std::getline(in, line)) {
        std::replace(line.begin(), line.end(), ',', ' ');
        std::istringstream tokens(line);
        std::string token;
        while (static_cast<long long>(block.size()) < wanted && tokens >> token) {
            double value = 0.0;
            if (!parseDecimal(token, value)) return false;
            block.push_back(value);
        }
    }
    if (static_cast<long long>(block.size()) < wanted) return false;
    std::copy(block.begin(), block.end(), values);
    return true;
}
