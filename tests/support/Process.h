// Runs a program as a child process with its output captured, bounded in
// time: the tests of command-line programs.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace vyx::test {

struct ProcessResult {
    int exitCode = -1;  // -1 when killed for taking too long
    std::string out;
    std::string err;
};

// A child process whose stdout and stderr go to files of a scratch directory,
// read back whenever asked: a chatty program never blocks on a full pipe.
class Process {
public:
    explicit Process(const std::vector<std::string>& argv) {
        char pattern[] = "/tmp/vyx_process_XXXXXX";
        if (mkdtemp(pattern) == nullptr) return;
        dir_ = pattern;
        const std::string out = dir_ + "/out", err = dir_ + "/err";
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT, 0600);
        posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT, 0600);
        std::vector<char*> args;
        for (const std::string& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
        args.push_back(nullptr);
        if (posix_spawn(&pid_, args[0], &actions, nullptr, args.data(), environ) != 0) pid_ = -1;
        posix_spawn_file_actions_destroy(&actions);
    }
    ~Process() {
        if (running()) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        std::error_code ignored;
        if (!dir_.empty()) std::filesystem::remove_all(dir_, ignored);
    }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    // Polls stdout until it holds `text`; false on time-out or exit.
    bool waitForOutput(const std::string& text, std::chrono::milliseconds timeout) {
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        while (output("out").find(text) == std::string::npos) {
            if (!running() || std::chrono::steady_clock::now() >= deadline)
                return output("out").find(text) != std::string::npos;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return true;
    }

    void signal(int number) {
        if (running()) kill(pid_, number);
    }

    // Waits for the exit, killing the process after `timeout`.
    ProcessResult finish(std::chrono::milliseconds timeout) {
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        while (running() && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        if (running()) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
            exited_ = true;  // the exit code stays -1
        }
        return {exitCode_, output("out"), output("err")};
    }

private:
    // Whether the child still runs; once it has ended, reaps it and keeps its exit code.
    bool running() {
        int status = 0;
        if (pid_ <= 0 || exited_) return false;
        if (waitpid(pid_, &status, WNOHANG) == 0) return true;
        exited_ = true;
        exitCode_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        return false;
    }
    std::string output(const char* name) const {
        std::ifstream in(dir_ + "/" + name, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }

    pid_t pid_ = -1;
    bool exited_ = false;
    int exitCode_ = -1;
    std::string dir_;
};

// Runs the program to its end, killed after `timeout`.
inline ProcessResult runProcess(const std::vector<std::string>& argv,
                                std::chrono::milliseconds timeout = std::chrono::seconds(60)) {
    Process process(argv);
    return process.finish(timeout);
}

}  // namespace vyx::test
