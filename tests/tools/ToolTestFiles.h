// Scratch files for the tool tests: a fresh directory per test, removed with
// everything in it when the test ends.
#pragma once

#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iostream>
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
    std::string path() const { return path_.string(); }  // no trailing separator
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

// A four-marker tool file: markers at (x, 0, 0), (x + 50, 0, 0), (x, 80, 0),
// (x, 0, 120), tip (0, 0, -150), second point (0, 0, -100).
inline std::string fourMarkerToolText(const std::string& name, char kind = 'T', int x = 0) {
    const std::string x0 = std::to_string(x), x50 = std::to_string(x + 50);
    return name + "\n" + kind + "\n4\n" + x0 + " 0 0 15\n" + x50 + " 0 0 15\n" + x0 +
           " 80 0 15\n" + x0 + " 0 120 15\n2\n0 0 -150\n0 0 -100\n";
}

// Collects what the library prints on standard output while it lives.
class CapturedOutput {
public:
    CapturedOutput() : previous_(std::cout.rdbuf(text_.rdbuf())) {}
    ~CapturedOutput() { std::cout.rdbuf(previous_); }
    std::string str() const { return text_.str(); }

private:
    std::ostringstream text_;
    std::streambuf* previous_;
};
