#include "cli/Terminal.h"

#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <iostream>

namespace vyx::cli {

bool stdoutIsTerminal() { return isatty(STDOUT_FILENO) == 1; }

std::string progressBar(double fraction, int width) {
    fraction = std::clamp(fraction, 0.0, 1.0);
    const int filled = static_cast<int>(fraction * width + 0.5);
    return "[" + std::string(static_cast<std::size_t>(filled), '#') +
           std::string(static_cast<std::size_t>(width - filled), '.') + "] " +
           format("%3d%%", static_cast<int>(fraction * 100.0 + 0.5));
}

void LiveBlock::show(const std::vector<std::string>& lines) {
    if (inPlace_ && shownLines_ > 0) std::printf("\033[%zuA", shownLines_);
    for (const std::string& line : lines)
        std::printf(inPlace_ ? "\r\033[K%s\n" : "%s\n", line.c_str());
    if (!inPlace_) std::printf("\n");
    shownLines_ = lines.size();
    std::fflush(stdout);
}

void LiveBlock::progress(const std::string& label, double fraction, const std::string& note) {
    const std::string line = label + " " + progressBar(fraction) + "  " + note;
    if (inPlace_) {
        std::printf("\r\033[K%s", line.c_str());
        if (fraction >= 1.0) std::printf("\n");
        std::fflush(stdout);
        return;
    }
    const int tenth = static_cast<int>(std::clamp(fraction, 0.0, 1.0) * 10.0);
    if (tenth == lastTenth_) return;
    lastTenth_ = tenth;
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

bool confirm(const std::string& question) {
    if (isatty(STDIN_FILENO) != 1) return false;
    std::printf("%s [y/N] ", question.c_str());
    std::fflush(stdout);
    std::string answer;
    std::getline(std::cin, answer);
    return !answer.empty() && (answer[0] == 'y' || answer[0] == 'Y');
}

std::string format(const char* pattern, ...) {
    char buffer[1024];
    va_list args;
    va_start(args, pattern);
    std::vsnprintf(buffer, sizeof buffer, pattern, args);
    va_end(args);
    return buffer;
}

}  // namespace vyx::cli
