#include "tools/ToolLibrary.h"

#include "tools/ToolFile.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <locale>
#include <vector>

namespace {

constexpr char kToolFileExtension[] = ".vyxtool";
constexpr char kRomFileExtension[] = ".rom";

void say(const std::string& line) { std::cout << line << std::endl; }

bool endsWith(const std::string& text, const char* suffix) {
    const std::size_t length = std::strlen(suffix);
    return text.size() >= length && text.compare(text.size() - length, length, suffix) == 0;
}

}  // namespace

std::string normaliseToolDirectory(const std::string& directory) {
    // An empty text names the working directory rather than the root.
    if (directory.empty()) return "./";
    std::string path = directory;
    if (path.back() == '\\')
        path.back() = '/';
    else if (path.back() != '/')
        path += '/';
    return path;
}

// ---- Loading ---------------------------------------------------------------

int ToolLibrary::setToolInfoFilePath(const char* path, bool clearFirst) {
    if (path == nullptr) return -1;
    if (clearFirst) ReleaseToolPtMatchList();
    const bool toolFilesScanned = ReadToolInfoResult(path);
    say("[Message] Now auto detect NDI rom files...");
    const bool romFilesScanned = ReadToolInfoResultRom(path);
    return (toolFilesScanned || romFilesScanned) ? 0 : -1;
}

bool ToolLibrary::ReadToolInfoResult(const char* dir) { return scanDirectory(dir, false); }

bool ToolLibrary::ReadToolInfoResultRom(const char* dir) { return scanDirectory(dir, true); }

bool ToolLibrary::scanDirectory(const char* dir, bool romFiles) {
    if (dir == nullptr) return false;
    const std::string path = normaliseToolDirectory(dir);

    if (!romFiles) say("[Message] attempt to open dir: " + path);
    if (access(path.c_str(), F_OK) != 0) {
        say("[Warning] Dir not exist: " + path);
        return false;
    }
    if (!romFiles && access(path.c_str(), R_OK) != 0) {
        say("[Warning] No Permission for dir: " + path);
        return false;
    }
    DIR* handle = opendir(path.c_str());
    if (handle == nullptr) {
        say("[Warning] Open dir failed");
        return false;
    }
    directory_ = path;

    // Names are collected first so that loading cannot disturb the walk.
    std::vector<std::string> names;
    while (const dirent* entry = readdir(handle)) {
        const std::string name = entry->d_name;
        if (name == "." || name == "..") continue;
        if (endsWith(name, romFiles ? kRomFileExtension : kToolFileExtension))
            names.push_back(name);
    }
    closedir(handle);

    for (const std::string& name : names) {
        if (romFiles)
            ReadFormatToolInfoFromFileRom(name.c_str());
        else
            ReadFormatToolInfoFromFile(name.c_str());
    }
    say("[Message] Success to open dir: " + path);
    return true;
}

void ToolLibrary::ReadFormatToolInfoFromFile(const char* fileName) {
    if (fileName == nullptr) return;
    const std::string path = directory_ + fileName;
    ToolFileContent content;
    if (!readToolFile(path.c_str(), content)) return;
    tools_.push_back(makeToolRecord(content, path));
}

void ToolLibrary::AddFormatToolInfoFromFile(const char* path) {
    ToolFileContent content;
    if (!readToolFile(path, content)) return;
    tools_.push_back(makeToolRecord(content, path));
}

int ToolLibrary::AddToolInfoResult(const char* pathWithoutExtension) {
    if (pathWithoutExtension == nullptr) return 0;
    const std::string path = std::string(pathWithoutExtension) + kToolFileExtension;
    AddFormatToolInfoFromFile(path.c_str());
    return 0;
}

void ToolLibrary::ReleaseToolPtMatchList() { tools_.clear(); }

// ---- Queries ---------------------------------------------------------------

int ToolLibrary::getAllToolFilesBaseInfo(t_ToolBaseInfo* info) const {
    if (info == nullptr || tools_.empty()) return -1;
    for (const auto& tool : tools_) {
        info->ToolName = tool->toolName.c_str();
        info->ToolKind = tool->toolKind == 'C' ? 1 : 0;
        info->MarkerCount = static_cast<std::uint8_t>(tool->markerCount & 0xFF);
        ++info;
    }
    return 0;
}

const T_ToolPtMatchInfo* ToolLibrary::lookUpWithFallThrough(const char* name) const {
    if (tools_.empty()) return nullptr;
    for (const auto& tool : tools_)
        if (tool->toolName == name) return tool.get();
    return tools_.back().get();
}

int ToolLibrary::getSpecificToolFileInfoList(const char* name, int& count,
                                             std::list<float>* values) const {
    if (name == nullptr || values == nullptr || tools_.empty()) return -1;
    const T_ToolPtMatchInfo* tool = lookUpWithFallThrough(name);
    const std::size_t stored = std::min(tool->markerPositions.size(),
                                        static_cast<std::size_t>(std::max(tool->markerCount, 0)) * 3);
    count = tool->markerCount;
    values->insert(values->end(), tool->markerPositions.begin(),
                   tool->markerPositions.begin() + static_cast<std::ptrdiff_t>(stored));
    return 0;
}

int ToolLibrary::getSpecificToolFileInfoArray(const char* name, int& count,
                                              float* positions) const {
    if (name == nullptr || positions == nullptr || tools_.empty()) return -1;
    const T_ToolPtMatchInfo* tool = lookUpWithFallThrough(name);
    const std::size_t stored = std::min(tool->markerPositions.size(),
                                        static_cast<std::size_t>(std::max(tool->markerCount, 0)) * 3);
    count = tool->markerCount;
    std::copy_n(tool->markerPositions.begin(), stored, positions);
    return 0;
}

int ToolLibrary::findFirstToolIndex(const char* name) const {
    if (name == nullptr) return -1;
    int index = 0;
    for (const auto& tool : tools_) {
        if (tool->toolName == name) return index;
        ++index;
    }
    return -1;
}

int ToolLibrary::findLastToolIndex(const char* name) const {
    if (name == nullptr) return -1;
    int found = -1;
    int index = 0;
    for (const auto& tool : tools_) {
        if (tool->toolName == name) found = index;
        ++index;
    }
    return found;
}

T_ToolPtMatchInfo* ToolLibrary::toolAt(std::uint32_t index) {
    if (index >= tools_.size()) return nullptr;
    return std::next(tools_.begin(), static_cast<std::ptrdiff_t>(index))->get();
}

const T_ToolPtMatchInfo* ToolLibrary::toolAt(std::uint32_t index) const {
    if (index >= tools_.size()) return nullptr;
    return std::next(tools_.begin(), static_cast<std::ptrdiff_t>(index))->get();
}

// ---- Writing back ----------------------------------------------------------

int ToolLibrary::WriteFormatToolAllInfoFromFile(int) {
    T_ToolPtMatchInfo* tool = toolAt(selectedToolIndex_);
    return tool == nullptr ? 0 : writeToolFileFull(*tool);
}

int ToolLibrary::WriteFormatToolInfoFromFile(int) {
    const T_ToolPtMatchInfo* tool = toolAt(selectedToolIndex_);
    return tool == nullptr ? 0 : rewriteToolTipSection(*tool);
}

void ToolLibrary::WriteErroIntoFile(const char* path, const std::list<float>& values) {
    if (path == nullptr) return;
    std::ofstream out(path, std::ios::out | std::ios::trunc);
    if (!out.is_open()) return;
    // "%f" in the "C" locale: six decimals, '.' as the decimal point.
    out.imbue(std::locale::classic());
    out << std::fixed << std::setprecision(6);
    for (float value : values) out << value << '\n';
}
