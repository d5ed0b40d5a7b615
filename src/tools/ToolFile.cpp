#include "tools/ToolFile.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iomanip>
#include <limits>
#include <locale>
#include <sstream>
#include <utility>
#include <vector>

namespace {

// Tip-section count that every file carries: one tip and one axis point.
constexpr int kTipSectionCount = 2;
// Mask that the full writer puts on every marker line (four markers).
constexpr int kFourMarkerMask = 15;
// Line buffer of the tip-section rewriter, terminator included.
constexpr int kLineBufferBytes = 1024;

// Narrows a parsed coordinate to the stored float. Values beyond the float
// range become infinities, as IEEE narrowing gives them, without relying on
// an out-of-range conversion.
float toStoredFloat(double value) {
    constexpr double kMax = std::numeric_limits<float>::max();
    if (value > kMax) return std::numeric_limits<float>::infinity();
    if (value < -kMax) return -std::numeric_limits<float>::infinity();
    return static_cast<float>(value);
}

// Text stream whose numbers print as printf's "%d" and "%f" do in the "C"
// locale, whatever locale the host has set.
std::ostringstream makeFileTextStream() {
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << std::fixed << std::setprecision(6);
    return text;
}

void writePointLine(std::ostringstream& text, const float* xyz) {
    text << xyz[0] << ' ' << xyz[1] << ' ' << xyz[2];
}

// Writes text over the file at path. False when the file cannot be opened.
bool replaceFileText(const std::string& path, const std::string& text) {
    std::FILE* file = std::fopen(path.c_str(), "w");
    if (file == nullptr) return false;
    std::fwrite(text.data(), 1, text.size(), file);
    std::fclose(file);
    return true;
}

// Appends the tip section: count 2 * tipPairCount, then that many points,
// zeros where the record holds fewer.
void writeTipSection(std::ostringstream& text, const T_ToolPtMatchInfo& info) {
    const int pointCount = 2 * std::max(info.tipPairCount, 0);
    text << 2 * info.tipPairCount << '\n';
    for (int p = 0; p < pointCount; ++p) {
        float xyz[3] = {0.0f, 0.0f, 0.0f};
        const std::size_t first = static_cast<std::size_t>(p) * 3;
        for (std::size_t k = 0; k < 3 && first + k < info.tipPoints.size(); ++k)
            xyz[k] = info.tipPoints[first + k];
        writePointLine(text, xyz);
        text << '\n';
    }
}

bool isWritableToolName(const std::string& name) {
    if (name.empty() || name.size() > kMaxToolNameLength) return false;
    return std::none_of(name.begin(), name.end(),
                        [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; });
}

}  // namespace

std::int32_t fullMarkerMask(int markerCount) {
    const double mask = std::pow(2.0, markerCount) - 1.0;
    constexpr double kLargest = std::numeric_limits<std::int32_t>::max();
    if (mask >= kLargest) return std::numeric_limits<std::int32_t>::max();
    if (mask <= 0.0) return 0;
    return static_cast<std::int32_t>(mask);
}

bool maskCoversMarker(std::int32_t mask, int markerIndex) {
    if (markerIndex < 0) return false;
    const int bit = std::min(markerIndex, 30);
    return ((static_cast<std::uint32_t>(mask) >> bit) & 1u) != 0;
}

bool parseToolStream(std::istream& in, ToolFileContent& content) {
    // Numbers are read in the "C" locale; the caller's locale is put back.
    struct LocaleRestore {
        std::istream& stream;
        std::locale previous;
        ~LocaleRestore() { stream.imbue(previous); }
    } restore{in, in.imbue(std::locale::classic())};
    ToolFileContent parsed;

    char kind = 0;
    if (!(in >> parsed.toolName >> kind)) return false;
    if (parsed.toolName.size() > kMaxToolNameLength) return false;
    if (kind != 'T' && kind != 'C') return false;
    parsed.toolKind = kind;

    if (!(in >> parsed.markerCount)) return false;
    if (parsed.markerCount < 1 || parsed.markerCount > kMaxToolMarkers) return false;
    parsed.markerMask = fullMarkerMask(parsed.markerCount);

    parsed.markerPositions.reserve(static_cast<std::size_t>(parsed.markerCount) * 3);
    for (int i = 0; i < parsed.markerCount; ++i) {
        double x = 0.0, y = 0.0, z = 0.0;
        int mask = 0;
        if (!(in >> x >> y >> z >> mask)) return false;
        if (mask != parsed.markerMask) return false;
        parsed.markerPositions.push_back(toStoredFloat(x));
        parsed.markerPositions.push_back(toStoredFloat(y));
        parsed.markerPositions.push_back(toStoredFloat(z));
    }

    int tipSectionCount = 0;
    if (!(in >> tipSectionCount) || tipSectionCount != kTipSectionCount) return false;

    // The two points end the file; a point cut short by the end of the file
    // (or by text that is no number) keeps zeros for the values not read.
    for (float& value : parsed.tipPoints) {
        double read = 0.0;
        if (in >> read) value = toStoredFloat(read);
    }

    content = std::move(parsed);
    return true;
}

bool readToolFile(const char* path, ToolFileContent& content) {
    if (path == nullptr) return false;
    std::ifstream in(path);
    if (!in.is_open()) return false;
    return parseToolStream(in, content);
}

std::unique_ptr<T_ToolPtMatchInfo> makeToolRecord(const ToolFileContent& content,
                                                  std::string filePath) {
    const auto markerCount = static_cast<std::size_t>(std::max(content.markerCount, 0));
    auto info = std::make_unique<T_ToolPtMatchInfo>();
    info->filePath = std::move(filePath);
    info->toolName = content.toolName;
    info->toolKind = content.toolKind;
    info->markerCount = content.markerCount;
    info->markerPositions = content.markerPositions;
    info->markerPositions.resize(markerCount * 3, 0.0f);
    info->markerPositionsCopy = info->markerPositions;
    info->markerMasks.assign(markerCount, content.markerMask);
    info->tipPairCount = 1;
    info->tipPoints.assign(content.tipPoints.begin(), content.tipPoints.end());
    info->markerScratch.assign(markerCount, std::array<float, 4>{});
    info->markerResiduals.resize(markerCount);
    CalculateDisWithPointsArr(*info, false);
    return info;
}

void CalculateDisWithPointsArr(T_ToolPtMatchInfo& info, bool useSecondCopy) {
    const int n = info.markerCount;
    const std::vector<float>& points = useSecondCopy ? info.markerPositionsCopy
                                                     : info.markerPositions;
    if (n < 1 || points.size() < static_cast<std::size_t>(n) * 3) return;
    const bool masked = info.markerMasks.size() >= static_cast<std::size_t>(n);

    cv::Mat table(n, n, CV_32F);
    for (int i = 0; i < n; ++i) {
        const float* a = &points[static_cast<std::size_t>(i) * 3];
        for (int j = 0; j < n; ++j) {
            const float* b = &points[static_cast<std::size_t>(j) * 3];
            const double dx = a[0] - b[0], dy = a[1] - b[1], dz = a[2] - b[2];
            const double distance = std::sqrt(dx * dx + dy * dy + dz * dz);
            const bool kept = !masked || maskCoversMarker(info.markerMasks[i], j);
            table.at<float>(i, j) = kept ? static_cast<float>(distance) : 0.0f;
        }
    }
    info.distanceTable = table;
}

int checkToolFile(const char* path, T_ToolFileData& data) {
    ToolFileContent content;
    if (!readToolFile(path, content)) return -1;

    T_ToolFileData filled;
    std::memset(&filled, 0, sizeof filled);
    std::memcpy(filled.ToolName, content.toolName.c_str(), content.toolName.size() + 1);
    filled.ToolKind = content.toolKind;
    filled.MarkerCount = content.markerCount;
    for (int i = 0; i < content.markerCount; ++i)
        std::copy_n(&content.markerPositions[static_cast<std::size_t>(i) * 3], 3,
                    filled.MarkerPosition[i]);
    filled.TipSectionCount = kTipSectionCount;
    std::copy_n(content.tipPoints.begin(), 3, filled.TipPoint);
    std::copy_n(content.tipPoints.begin() + 3, 3, filled.TipAxisPoint);
    data = filled;
    return 0;
}

int writeToolFileFull(T_ToolPtMatchInfo& info) {
    info.toolKind = 'T';
    std::ostringstream text = makeFileTextStream();
    text << info.toolName << '\n' << "T\n" << info.markerCount << '\n';
    for (std::size_t marker = 0; marker < 4; ++marker) {
        float xyz[3] = {0.0f, 0.0f, 0.0f};
        for (std::size_t k = 0; k < 3; ++k) {
            const std::size_t index = marker * 3 + k;
            if (index < info.markerPositions.size()) xyz[k] = info.markerPositions[index];
        }
        writePointLine(text, xyz);
        text << ' ' << kFourMarkerMask << '\n';
    }
    writeTipSection(text, info);
    return replaceFileText(info.filePath, text.str()) ? 1 : 0;
}

namespace {

// Reads the file as lines of at most kLineBufferBytes - 1 bytes (a longer
// line counts as several): the first keptLines into head (ending in a line
// feed), the rest into tail. False when the file cannot be opened or holds
// fewer than keptLines lines.
bool readToolFileLines(const std::string& path, int keptLines, std::string& head,
                       std::vector<std::string>* tail) {
    std::FILE* file = std::fopen(path.c_str(), "r");
    if (file == nullptr) return false;
    char line[kLineBufferBytes];
    int linesRead = 0;
    while (std::fgets(line, sizeof line, file) != nullptr) {
        if (linesRead < keptLines) {
            head += line;
            ++linesRead;
        } else if (tail != nullptr) {
            tail->emplace_back(line);
        } else {
            break;
        }
    }
    std::fclose(file);
    if (linesRead < keptLines) return false;
    if (head.back() != '\n') head += '\n';
    return true;
}

bool isZeroPoint(const double* p) { return p[0] == 0.0 && p[1] == 0.0 && p[2] == 0.0; }

}  // namespace

int rewriteToolTipSection(const T_ToolPtMatchInfo& info) {
    if (info.markerCount < 1) return 0;
    std::string head;
    if (!readToolFileLines(info.filePath, info.markerCount + 3, head, nullptr)) return 0;
    std::ostringstream text = makeFileTextStream();
    text << head;
    writeTipSection(text, info);
    return replaceFileText(info.filePath, text.str()) ? 1 : 0;
}

bool rewritePivotTipSection(const T_ToolPtMatchInfo& info, int mode) {
    if (info.markerCount < 1) return false;
    std::string head;
    std::vector<std::string> tail;
    if (!readToolFileLines(info.filePath, info.markerCount + 3, head, &tail)) return false;

    // The old tip section: the numbers of every line but a bare count "2".
    double old[6] = {0, 0, 0, 0, 0, 0};
    int values = 0;
    for (std::string& line : tail) {
        while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
        if (line == "2") continue;
        std::istringstream tokens(line);
        tokens.imbue(std::locale::classic());
        std::string token;
        while (values < 6 && tokens >> token) {
            char* end = nullptr;
            const double value = std::strtod(token.c_str(), &end);
            old[values++] = end == token.c_str() ? std::numeric_limits<double>::quiet_NaN() : value;
        }
    }

    float memory[6] = {0, 0, 0, 0, 0, 0};
    for (std::size_t k = 0; k < 6 && k < info.tipPoints.size(); ++k) memory[k] = info.tipPoints[k];
    float rows[6];
    std::copy_n(memory, 6, rows);
    if (mode == 1 && !isZeroPoint(old + 3)) {
        for (int k = 0; k < 3; ++k) rows[3 + k] = static_cast<float>(old[3 + k]);
    } else if (mode == 2 && !isZeroPoint(old)) {
        for (int k = 0; k < 3; ++k) {
            rows[k] = static_cast<float>(old[k]);
            rows[3 + k] = memory[k];
        }
    }

    std::ostringstream text = makeFileTextStream();
    text << head << 2 * info.tipPairCount << '\n';
    if (mode == 1 || mode == 2) {
        writePointLine(text, rows);
        text << '\n';
        writePointLine(text, rows + 3);
        text << '\n';
    }
    return replaceFileText(info.filePath, text.str());
}

T_ToolCoorSysInfo toolCacheOf(const T_ToolPtMatchInfo& tool) {
    T_ToolCoorSysInfo cache;
    cache.toolName = tool.toolName;
    cache.filePath = tool.filePath;
    cache.toolKind = tool.toolKind;
    cache.markerCount = tool.markerCount;
    cache.markerPositions = tool.markerPositions;
    cache.markerMasks = tool.markerMasks;
    for (std::size_t k = 0; k < cache.tipPoints.size() && k < tool.tipPoints.size(); ++k)
        cache.tipPoints[k] = tool.tipPoints[k];
    return cache;
}

int WrtieFormatToolInfoFronCache(const T_ToolCoorSysInfo* cache) {
    if (cache == nullptr) return 0;
    const T_ToolCoorSysInfo& tool = *cache;
    const int n = tool.markerCount;
    if (!isWritableToolName(tool.toolName)) return 0;
    if (tool.toolKind != 'T' && tool.toolKind != 'C') return 0;
    if (n < 1 || n > kMaxToolMarkers) return 0;
    if (tool.markerPositions.size() < static_cast<std::size_t>(n) * 3 ||
        tool.markerMasks.size() < static_cast<std::size_t>(n))
        return 0;

    std::ostringstream text = makeFileTextStream();
    text << tool.toolName << '\n' << tool.toolKind << '\n' << n << '\n';
    for (int i = 0; i < n; ++i) {
        writePointLine(text, &tool.markerPositions[static_cast<std::size_t>(i) * 3]);
        text << ' ' << tool.markerMasks[static_cast<std::size_t>(i)] << '\n';
    }
    text << kTipSectionCount << '\n';
    writePointLine(text, &tool.tipPoints[0]);
    text << '\n';
    writePointLine(text, &tool.tipPoints[3]);
    text << '\n';
    return replaceFileText(tool.filePath, text.str()) ? 1 : 0;
}
