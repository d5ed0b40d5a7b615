// Output for a person at a terminal, and its plain form for pipes and files:
// a table redrawn in place, a progress bar, a yes/no question.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace vyx::cli {

bool stdoutIsTerminal();

// "[#########.........]  45%", `width` cells between the brackets.
std::string progressBar(double fraction, int width = 30);

// A block of lines shown again and again: on a terminal it replaces the block
// shown before, elsewhere each block is printed after the last.
class LiveBlock {
public:
    explicit LiveBlock(bool inPlace) : inPlace_(inPlace) {}
    void show(const std::vector<std::string>& lines);
    // A progress line: redrawn in place on a terminal; elsewhere printed only
    // when it moved on by a tenth or more, so that logs stay short.
    void progress(const std::string& label, double fraction, const std::string& note);

private:
    bool inPlace_;
    std::size_t shownLines_ = 0;
    int lastTenth_ = -1;
};

// Asks on the terminal; false without asking when stdin is not one.
bool confirm(const std::string& question);

// printf-style formatting into a string.
std::string format(const char* pattern, ...) __attribute__((format(printf, 1, 2)));

}  // namespace vyx::cli
