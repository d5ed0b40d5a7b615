// Runs a program as a child process with its output captured, bounded in
// time: the tests of command-line programs.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
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

// A child process whose stdout and stderr are read through pipes.
class Process {
public:
    explicit Process(const std::vector<std::string>& argv) {
        int outPipe[2];
        int errPipe[2];
        if (pipe2(outPipe, O_CLOEXEC) != 0 || pipe2(errPipe, O_CLOEXEC) != 0) return;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, outPipe[1], 1);
        posix_spawn_file_actions_adddup2(&actions, errPipe[1], 2);
        posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
        std::vector<char*> args;
        for (const std::string& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
        args.push_back(nullptr);
        if (posix_spawn(&pid_, args[0], &actions, nullptr, args.data(), environ) != 0) pid_ = -1;
        posix_spawn_file_actions_destroy(&actions);
        close(outPipe[1]);
        close(errPipe[1]);
        outFd_ = outPipe[0];
        errFd_ = errPipe[0];
    }
    ~Process() {
        if (pid_ > 0 && !exited_) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        if (outFd_ >= 0) close(outFd_);
        if (errFd_ >= 0) close(errFd_);
    }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    // Reads output until stdout holds `text`; false on time-out or exit.
    bool waitForOutput(const std::string& text, std::chrono::milliseconds timeout) {
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        while (result_.out.find(text) == std::string::npos) {
            if (!pump(deadline)) return result_.out.find(text) != std::string::npos;
        }
        return true;
    }

    void signal(int number) {
        if (pid_ > 0 && !exited_) kill(pid_, number);
    }

    // Waits for the exit, killing the process after `timeout`.
    ProcessResult finish(std::chrono::milliseconds timeout) {
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        while (pump(deadline)) {
        }
        if (pid_ <= 0) return result_;
        // A program may close its pipes and still run: wait for it only
        // until the deadline, then kill it.
        int status = 0;
        while (waitpid(pid_, &status, WNOHANG) == 0) {
            if (std::chrono::steady_clock::now() >= deadline) {
                kill(pid_, SIGKILL);
                waitpid(pid_, &status, 0);
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        exited_ = true;
        result_.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        return result_;
    }

private:
    // Reads what is there; false once both pipes are closed or time is up.
    bool pump(std::chrono::steady_clock::time_point deadline) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0 || (outFd_ < 0 && errFd_ < 0)) return false;
        pollfd fds[2] = {{outFd_, POLLIN, 0}, {errFd_, POLLIN, 0}};
        if (poll(fds, 2, static_cast<int>(left.count())) <= 0) return true;
        readInto(outFd_, fds[0].revents, result_.out);
        readInto(errFd_, fds[1].revents, result_.err);
        return true;
    }
    static void readInto(int& fd, short events, std::string& text) {
        if (fd < 0 || events == 0) return;
        char buffer[4096];
        const ssize_t n = read(fd, buffer, sizeof buffer);
        if (n > 0) {
            text.append(buffer, static_cast<std::size_t>(n));
        } else {
            close(fd);
            fd = -1;
        }
    }

    pid_t pid_ = -1;
    int outFd_ = -1;
    int errFd_ = -1;
    bool exited_ = false;
    ProcessResult result_;
};

// Runs the program to its end, killed after `timeout`.
inline ProcessResult runProcess(const std::vector<std::string>& argv,
                                std::chrono::milliseconds timeout = std::chrono::seconds(60)) {
    Process process(argv);
    return process.finish(timeout);
}

}  // namespace vyx::test
