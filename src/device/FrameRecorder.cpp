#include "device/FrameRecorder.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

namespace vyx::device {
namespace {

// The writer writes out what it has at least this often, and sooner once
// this much is waiting.
constexpr auto kFlushInterval = std::chrono::milliseconds(100);
constexpr std::size_t kFlushBytes = 256 * 1024;

std::uint64_t nanosecondsSince(std::chrono::steady_clock::time_point start) {
    const auto elapsed = std::chrono::steady_clock::now() - start;
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(elapsed).count());
}

bool isFrame(RecordType type) {
    return type == RecordType::MarkerFrame || type == RecordType::WifiStatusFrame;
}

bool repliesFit(const ConnectReplies& replies) {
    const int link = replies.link;
    return payloadSizeFits(RecordType::ConfigurationReply, link, replies.configuration.size()) &&
           (replies.longForm.empty() ||
            payloadSizeFits(RecordType::LongConfigurationReply, link, replies.longForm.size())) &&
           (replies.modelText.empty() ||
            payloadSizeFits(RecordType::ModelTextReply, link, replies.modelText.size()));
}

}  // namespace

FrameRecorder::FrameRecorder(std::size_t queueCapacity)
    : queueCapacity_(queueCapacity > 0 ? queueCapacity : 1) {}

FrameRecorder::~FrameRecorder() { finish(); }

bool FrameRecorder::start(const std::string& path, const ConnectReplies& replies) {
    std::lock_guard<std::mutex> control(controlMutex_);
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (state_ == State::Running) return false;
    }
    if (!repliesFit(replies)) return false;
    // A writer finishing after a link loss is waited for before its file
    // could be opened again; one stopped by a write error has left already.
    if (writer_.joinable()) writer_.join();
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) return false;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (state_ == State::Failed) state_ = State::Idle;
    }

    const auto wallClock = std::chrono::system_clock::now().time_since_epoch();
    std::vector<std::uint8_t> opening = encodeRecordingHeader(
        replies.link,
        static_cast<std::uint64_t>(
            std::chrono::duration_cast<std::chrono::nanoseconds>(wallClock).count()));
    appendRecord(opening, RecordType::ConfigurationReply, 0, replies.configuration.data(),
                 replies.configuration.size());
    if (!replies.longForm.empty())
        appendRecord(opening, RecordType::LongConfigurationReply, 0, replies.longForm.data(),
                     replies.longForm.size());
    if (!replies.modelText.empty())
        appendRecord(opening, RecordType::ModelTextReply, 0, replies.modelText.data(),
                     replies.modelText.size());

    {
        std::lock_guard<std::mutex> lock(mutex_);
        state_ = State::Running;
        link_ = replies.link;
        startTime_ = std::chrono::steady_clock::now();
        queue_.clear();
        for (auto& last : lastOffered_) last.clear();
        lastError_.store(0, std::memory_order_relaxed);
        framesRecorded_.store(0, std::memory_order_relaxed);
        framesDropped_.store(0, std::memory_order_relaxed);
        bytesWritten_.store(0, std::memory_order_relaxed);
        active_.store(true, std::memory_order_release);
    }
    try {
        writer_ = std::thread(&FrameRecorder::writerLoop, this, fd, std::move(opening));
    } catch (...) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            state_ = State::Idle;
            active_.store(false, std::memory_order_release);
        }
        ::close(fd);
        ::unlink(path.c_str());
        return false;
    }
    return true;
}

void FrameRecorder::offer(int link, RecordType type, const std::uint8_t* data, std::size_t size) {
    if (data == nullptr || size == 0 || !isFrame(type)) return;
    std::lock_guard<std::mutex> lock(mutex_);
    if (link != link_ || (state_ != State::Running && state_ != State::Failed)) return;
    auto& last = lastOffered_[static_cast<std::size_t>(type)];
    if (last.size() == size && std::memcmp(last.data(), data, size) == 0) return;
    last.assign(data, data + size);
    if (state_ == State::Failed || queue_.size() >= queueCapacity_ ||
        !payloadSizeFits(type, link, size)) {
        framesDropped_.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    const bool wasEmpty = queue_.empty();
    queue_.push_back({type, nanosecondsSince(startTime_), std::vector<std::uint8_t>(data, data + size)});
    // The writer waits only on an empty queue.
    if (wasEmpty) wake_.notify_one();
}

void FrameRecorder::requestFinish(int link) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (link != link_) return;
    if (state_ == State::Running) state_ = State::Ending;
    if (state_ == State::Failed) state_ = State::Idle;
    wake_.notify_one();
}

bool FrameRecorder::finish() {
    std::lock_guard<std::mutex> control(controlMutex_);
    bool wasOpen = false;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        wasOpen = state_ == State::Running || state_ == State::Failed;
        if (state_ == State::Running) state_ = State::Ending;
        if (state_ == State::Failed) state_ = State::Idle;
    }
    wake_.notify_one();
    if (writer_.joinable()) writer_.join();
    return wasOpen;
}

RecordingStats FrameRecorder::stats() const {
    RecordingStats s;
    s.active = active_.load(std::memory_order_acquire);
    s.lastError = lastError_.load(std::memory_order_relaxed);
    s.framesRecorded = framesRecorded_.load(std::memory_order_relaxed);
    s.framesDropped = framesDropped_.load(std::memory_order_relaxed);
    s.bytesWritten = bytesWritten_.load(std::memory_order_relaxed);
    return s;
}

int FrameRecorder::link() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return link_;
}

bool FrameRecorder::writeOut(int fd, std::vector<std::uint8_t>& buffer) {
    std::size_t done = 0;
    while (done < buffer.size()) {
        const ssize_t n = ::write(fd, buffer.data() + done, buffer.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<std::size_t>(n);
        bytesWritten_.fetch_add(static_cast<std::uint64_t>(n), std::memory_order_relaxed);
    }
    buffer.clear();
    return true;
}

void FrameRecorder::writerLoop(int fd, std::vector<std::uint8_t> opening) {
    // A recording written into a pipe whose reader went away must fail the
    // write (EPIPE), not kill the host process.
    sigset_t pipeSignal;
    sigemptyset(&pipeSignal);
    sigaddset(&pipeSignal, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipeSignal, nullptr);
    std::vector<std::uint8_t> buffer = std::move(opening);
    // Frames encoded into `buffer` but not yet written.
    std::uint64_t pendingFrames = 0;
    bool ok = writeOut(fd, buffer);
    auto lastFlush = std::chrono::steady_clock::now();
    std::deque<PendingFrame> batch;
    std::unique_lock<std::mutex> lock(mutex_);
    while (ok) {
        wake_.wait_for(lock, kFlushInterval,
                       [this] { return !queue_.empty() || state_ != State::Running; });
        batch.swap(queue_);
        const bool ending = state_ != State::Running;
        lock.unlock();

        for (const PendingFrame& frame : batch)
            appendRecord(buffer, frame.type, frame.timeNs, frame.bytes.data(), frame.bytes.size());
        pendingFrames += batch.size();
        batch.clear();
        const auto now = std::chrono::steady_clock::now();
        if (ending) {
            // No frame is taken any more, so the counts are final.
            std::array<std::uint8_t, 16> counts{};
            const std::uint64_t recorded =
                framesRecorded_.load(std::memory_order_relaxed) + pendingFrames;
            const std::uint64_t dropped = framesDropped_.load(std::memory_order_relaxed);
            for (int i = 0; i < 8; ++i) {
                counts[static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(recorded >> (8 * i));
                counts[static_cast<std::size_t>(8 + i)] = static_cast<std::uint8_t>(dropped >> (8 * i));
            }
            appendRecord(buffer, RecordType::End, nanosecondsSince(startTime_), counts.data(),
                         counts.size());
        }
        if (ending || buffer.size() >= kFlushBytes || now - lastFlush >= kFlushInterval) {
            ok = writeOut(fd, buffer);
            if (ok) {
                framesRecorded_.fetch_add(pendingFrames, std::memory_order_relaxed);
                pendingFrames = 0;
            }
            lastFlush = now;
        }
        lock.lock();
        if (ending) break;
    }
    if (!ok) {
        // The frames that did not reach the file, and those still queued,
        // are lost; later offers are counted as dropped until finish().
        lastError_.store(kRecordingWriteError, std::memory_order_relaxed);
        framesDropped_.fetch_add(pendingFrames + queue_.size(), std::memory_order_relaxed);
        queue_.clear();
        if (state_ == State::Running) state_ = State::Failed;
    }
    if (state_ == State::Ending) state_ = State::Idle;
    ::close(fd);
    active_.store(false, std::memory_order_release);
}

}  // namespace vyx::device
