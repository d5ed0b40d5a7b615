// Scratch files for the tool tests: a fresh directory per test, removed with
// everything in it when the test ends.
#pragma once

#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

class ScratchDirectory {
public:
    ScratchDirectory() {
        static std::atomic<int> serial{0};
        path_ = std::filesystem::temp_directory_path() /
                ("vyx_tools_" + std::to_string(getpid()) + "_" + std::to_string(serial++));
        std::filesystem::remove_all(path_);
        std::filesystem::create_directories(path_);
    }
    ~ScratchDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    // Directory path without a trailing separator.
    std::string path() const { return path_.string(); }
    std::string file(const std::string& name) const { return (path_ / name).string(); }

private:
    std::filesystem::path path_;
};

inline void writeFile(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// A four-marker tool file text with the given name, kind and tip point.
inline std::string fourMarkerToolText(const std::string& name, char kind = 'T',
                                      float xOffset = 0.0f) {
    std::ostringstream text;
    text << name << '\n' << kind << "\n4\n"
         << xOffset + 0 << " 0 0 15\n"
         << xOffset + 50 << " 0 0 15\n"
         << xOffset + 0 << " 80 0 15\n"
         << xOffset + 0 << " 0 120 15\n"
         << "2\n0 0 -150\n0 0 -100\n";
    return text.str();
}
